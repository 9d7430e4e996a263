#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/FrameOutput.h"
#include "BrimbleCore/Encoding/RGBColor.h"

namespace brimble {

/// Writes a frame sequence to an animation or video file: decoding runs ahead on worker threads
/// while the calling thread deduplicates, diffs and writes. GIF with shared palettes takes two
/// passes over the sequence (which frames to keep and where scenes start, then the writing);
/// everything else one. One thread at a time. GIF frames shorter than 2 cs (above 50 fps) take in
/// the frames after them, which are dropped, so that browsers play every frame as long as it says.
class SequenceEncoder {
 public:
  /// Makes the writer of the file; animation formats take the options, video ignores them.
  using OutputFactory =
      std::function<std::unique_ptr<FrameOutput>(const AnimationWriterOptions& options)>;

  /// `frameAt` and `options` must outlive the encoder. `apngAlpha` makes APNG files store alpha
  /// from the first frame on.
  SequenceEncoder(int count, const FrameSupplier& frameAt, const SequenceOptions& options,
                  bool apngAlpha);

  /// Writes to the writer `output` makes (called once, at the first frame that can be decoded).
  /// Nothing is written, and an empty summary returned, when no frame can be decoded.
  EncodeSummary write(const OutputFactory& output) const;

 private:
  struct KeepEntry;
  struct SequencePlan;
  /// What a frame of the sequence turns out to be: a repeat of the last kept frame, a new kept
  /// frame, or skipped (it cannot be decoded).
  enum class Arrival { repeat, kept, skipped };

  EncodeSummary writeAsFound(const OutputFactory& output) const;
  EncodeSummary writeWithSharedPalettes(const OutputFactory& output) const;
  SequencePlan plan() const;
  std::optional<std::vector<RGBColor>> scenePalette(const std::vector<KeepEntry>& kept,
                                                    std::size_t begin, std::size_t end) const;
  AnimationWriterOptions writerOptions(bool frameDiffing, bool reuseGlobalTable) const;
  /// `comparison` is the last kept frame; `previousDecoded` carries over from the frame before.
  Arrival classify(const DecodedFrame& frame, const std::optional<Image>& comparison,
                   bool& previousDecoded) const;
  /// Whether a frame of `delay` must take in the next: GIF frames shorter than 2 cs play at 10.
  bool tooShort(double delay) const;
  RepeatCheck repeatCheck() const;
  bool repeats(const Image& kept, const Image& next) const;
  Image prepared(const Image& image) const;
  void report(RenderPhase phase, int done, int total) const;

  const int count_;
  const FrameSupplier& frameAt_;
  const SequenceOptions& options_;
  const bool apngAlpha_;
  const double nominalDelay_;
  const double minimumDelay_;
  const unsigned threads_;
};

}  // namespace brimble
