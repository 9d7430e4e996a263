#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

#include "BrimbleCore/Encoding/Frame.h"
#include "BrimbleCore/Encoding/FrameStream.h"
#include "BrimbleCore/Encoding/PixelRect.h"

namespace brimble {

class ClipEditError : public std::runtime_error {
 public:
  enum class Code { invalidTrim, cropOutside, invalidSpeed, pausesTooLong };

  static ClipEditError invalidTrim(double start, double end, double duration);
  static ClipEditError cropOutside(const PixelRect& crop, int width, int height);
  static ClipEditError invalidSpeed(double speed);
  /// The frames between two changes of picture quicker than `threshold` seconds take more than
  /// `limitBytes` decoded.
  static ClipEditError pausesTooLong(std::size_t limitBytes, double threshold);

  Code code() const noexcept { return code_; }

 private:
  ClipEditError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// Shortens or speeds up the pauses of a clip: the frames with their idle stretches handled.
/// The effects code provides it (IdleTrimmer); an edit only says where in the chain it runs.
using IdleTreatment =
    std::function<std::vector<ProcessedFrame>(std::span<const ProcessedFrame> frames)>;

/// Edits of a finished clip, as the editor window, `brimble process` and the MCP tool
/// `process_gif` make them. The defaults change nothing.
struct ClipEdit {
  /// Seconds of the clip's timeline: the part from `trimStart` up to `trimEnd` is kept.
  std::optional<double> trimStart{};
  std::optional<double> trimEnd{};
  /// The rectangle of each frame to keep, in the frame's pixels.
  std::optional<PixelRect> crop{};
  /// Playback speed factor: 2 plays twice as fast.
  double speed = 1;
  /// Frames wider than this are scaled down to it, keeping their aspect; 0 keeps their size.
  int maxWidth = 0;
  /// Runs of frames that repeat the first of the run within 10 per channel become one frame
  /// shown for their combined time.
  bool deduplicate = false;
  /// Pauses handled; none keeps them as they are.
  IdleTreatment idle{};
  /// The seconds a picture must stay for `idle` to count it as a pause. A stream hands `idle`
  /// the clip in pieces, each ending with a picture shown no longer than this, so a long clip is
  /// never held whole; it must be the treatment's own threshold.
  double idleThreshold = 0;
};

/// The edit chain of decoded clips (trim, crop, speed, width, deduplication, idle treatment) and
/// its steps. Stateless; any thread.
class ClipEditor {
 public:
  /// Length of `frames` in seconds (the sum of their delays).
  static double duration(const std::vector<ProcessedFrame>& frames);

  /// The part of the timeline from `start` to `end` seconds: frames entirely outside go, frames
  /// across a boundary keep only their time inside. Throws ClipEditError::invalidTrim when the
  /// range is empty or starts past the end.
  static std::vector<ProcessedFrame> trim(const std::vector<ProcessedFrame>& frames, double start,
                                          double end);
  /// Every frame cut to `rect`. Throws ClipEditError::cropOutside when `rect` is empty or not
  /// inside the frames.
  static std::vector<ProcessedFrame> crop(const std::vector<ProcessedFrame>& frames,
                                          const PixelRect& rect);
  /// Delays divided by `speed`. Throws ClipEditError::invalidSpeed outside 0.01 to 100.
  static std::vector<ProcessedFrame> changeSpeed(const std::vector<ProcessedFrame>& frames,
                                                 double speed);
  /// `clip` followed by `segment`, whose frames are resized to the clip's frame size when theirs
  /// differs, so a segment recorded later joins the clip seamlessly.
  static std::vector<ProcessedFrame> append(const std::vector<ProcessedFrame>& clip,
                                            const std::vector<ProcessedFrame>& segment);
  /// The whole chain, as far as `edit` asks: trim and crop (in the clip's own seconds and
  /// pixels), speed, width, deduplication, idle treatment. Deduplication comes before the idle
  /// treatment, so that a pause whose frames differ only by noise counts as one pause, and so
  /// that the darkened steps of a fade are not merged away again. Throws ClipEditError, and
  /// what the idle treatment throws.
  static std::vector<ProcessedFrame> apply(const std::vector<ProcessedFrame>& frames,
                                           const ClipEdit& edit);

  /// The chain of `apply` as a stream: frames are read from `source` and edited one at a time,
  /// so only a few are decoded at once. Deduplication holds one frame; the idle treatment holds
  /// the frames since the last short-lived picture, at most FrameStream::kHeldFrameBytes
  /// (beyond that ClipEditError::pausesTooLong). A trim that keeps nothing is found when the
  /// source ends. Throws, from `next`, ClipEditError, what the source and the idle treatment
  /// throw, and CancellationError once `stop` is requested (checked before each source frame).
  static std::unique_ptr<FrameStream> stream(std::unique_ptr<FrameStream> source, ClipEdit edit,
                                             std::stop_token stop = {});

  /// Parses "START:END" in seconds, either side may be empty ("2:", ":4.5"). No value for
  /// anything else.
  static std::optional<std::pair<std::optional<double>, std::optional<double>>> parseTrim(
      const std::string& text);
  /// Parses "X,Y,WIDTH,HEIGHT". No value for anything else.
  static std::optional<PixelRect> parseCrop(const std::string& text);
};

}  // namespace brimble
