#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <stop_token>

#include "BrimbleCore/Encoding/AnimationWriter.h"
#include "BrimbleCore/Encoding/CompressedFrameStore.h"
#include "BrimbleCore/Encoding/Frame.h"
#include "BrimbleCore/Encoding/FrameComparison.h"
#include "BrimbleCore/Encoding/FramePrefetch.h"
#include "BrimbleCore/Encoding/FrameStream.h"
#include "BrimbleCore/Encoding/Image.h"
#include "BrimbleCore/Encoding/OutputFormat.h"
#include "BrimbleCore/Encoding/PaletteStrategy.h"
#include "BrimbleCore/Encoding/VideoWriter.h"

namespace brimble {

/// The phases progress is reported for.
enum class RenderPhase { palette, encode };

/// Progress of an encode: items done of a total within a phase. May be called from worker
/// threads.
using EncodeProgress = std::function<void(RenderPhase phase, int done, int total)>;

/// Applied to every frame just before it is written, e.g. scaling to a maximum width. Called
/// from worker threads, possibly several at once.
using FrameTransform = std::function<Image(const Image&)>;

/// How shared palettes are built.
enum class PaletteBuilder {
  /// Median cut over 500 colours sampled from each of up to 20 frames; a scene shares a palette
  /// when those samples hold at most 512 distinct colours.
  medianCut,
  /// A colour histogram of every pixel of up to 20 frames, split by variance and refined; a
  /// scene shares a palette when it stays within about 40 dB PSNR of full colour.
  histogram,
};

/// Finer choices of an encode. Frames given with their delays read only the palette strategy
/// and the WebP mode.
struct EncoderTuning {
  PaletteBuilder paletteBuilder = PaletteBuilder::medianCut;
  DedupRule dedupRule = DedupRule::sampled;
  /// Palettes for GIF frames; by default every frame gets its own. With diffing and a shared
  /// palette, frames are diffed by palette index.
  PaletteStrategy paletteStrategy = PaletteStrategy::perFrame;
  /// Lossless: on screen recordings it is both smaller and exact (terminal clip: 51,992 bytes
  /// against 59,718 lossy at 33 dB); see bench/README.md.
  WebPMode webpMode = WebPMode::lossless;
  /// Threads that decode and transform frames ahead of the writer; 0 means one per core.
  unsigned decodeThreads = 0;
};

/// How an encode writes its file. Frames given with their delays (`encode`) come merged and
/// scaled already: the fields marked "Sequences" are not read for them.
struct SequenceOptions {
  /// Sequences: each frame is nominally 1/fps long.
  int fps = 30;
  /// Number of plays; 0 = forever.
  int loopCount = 0;
  /// GIF: frames after the first keep only what changed.
  bool frameDiffing = true;
  /// Sequences: frames that repeat the last kept frame only lengthen its delay.
  bool deduplicate = true;
  OutputFormat format = OutputFormat::gif;
  EncodeProgress progress{};
  /// Sequences: applied to every frame before it is written.
  FrameTransform transform{};
  float webpQuality = 75;
  std::stop_token stop{};
  EncoderTuning tuning{};
  /// Sequences: with `deduplicate`, frames it reports are merged into the frame before them
  /// without being decoded, so a recording's idle stretches cost no decoding.
  RepeatCheck repeatsPrevious{};
  /// MP4: quality, speed and sound.
  VideoOptions video{};
};

/// Turns a clip into a file: an animation (GIF, WebP or APNG) through the AnimationWriter, or an
/// MP4 video through the VideoWriter (the animation writers themselves refuse MP4). Output goes
/// to an AtomicFile: after a failure or a cancellation nothing is left and an existing file at
/// the destination is untouched. Stateless; any thread.
class ClipEncoder {
 public:
  /// Writes `frames` with their delays to `output`. GIF frames shorter than 2 cs take in the
  /// frames after them, as in sequences. GIF without diffing applies the palette strategy then;
  /// with diffing each frame keeps full colour and frames after the first carry only what
  /// changed. Nothing is written for no frames. Throws MuxError, VideoError, file errors, and
  /// CancellationError when `options.stop` is requested.
  static EncodeSummary encode(std::span<const ProcessedFrame> frames,
                              const std::filesystem::path& output, const SequenceOptions& options);

  /// `encode` for a clip read one frame at a time from the stream `open` makes, so that only a
  /// few frames are decoded at once: each is written as it comes, except that frames sharing a
  /// GIF palette are held by scene (up to FrameStream::kHeldFrameBytes, beyond which the rest
  /// of the scene takes the palette of what was held). Encode progress counts frames written of
  /// those in the stream's source. The stream is opened once more when an APNG turns out to
  /// need alpha. Nothing is written for no frames. Throws what `encode` throws and what the
  /// stream throws.
  static EncodeSummary encodeStream(const FrameStreamSource& open,
                                    const std::filesystem::path& output,
                                    const SequenceOptions& options);

  /// Writes the JPEG (or PNG) frames of `frameStore`, each nominally 1/`options.fps` long. With
  /// `options.deduplicate`, frames similar to the last kept frame only lengthen its delay, and
  /// frames whose bytes repeat the frame before are merged without decoding. Frames that cannot
  /// be decoded are skipped. Decoding runs ahead on worker threads; at most a few decoded frames
  /// are alive at any time, whatever the recording's length.
  static EncodeSummary encodeCompressed(const CompressedFrameStore& frameStore,
                                        const std::filesystem::path& output,
                                        const SequenceOptions& options);

  /// `encodeCompressed` for any sequence of `count` frames that can be produced by index: a
  /// recording's frame store, image files, generated frames. Frames for which `frameAt` gives
  /// no value are skipped; what it throws ends the encode and is rethrown.
  static EncodeSummary encodeSequence(int count, const FrameSupplier& frameAt,
                                      const std::filesystem::path& output,
                                      const SequenceOptions& options);

  /// FrameComparison::createDiffFrame.
  static std::optional<Image> createDiffFrame(const Image& current, const Image& previous,
                                              int tolerance) {
    return FrameComparison::createDiffFrame(current, previous, tolerance);
  }

  /// FrameComparison::compressedFramesAreSimilar.
  static bool compressedFramesAreSimilar(const Image& a, const Image& b) {
    return FrameComparison::compressedFramesAreSimilar(a, b);
  }
};

}  // namespace brimble
