#pragma once

#include <memory>

#include "BrimbleCore/Encoding/AnimationMuxer.h"
#include "BrimbleCore/Encoding/ByteSink.h"
#include "BrimbleCore/Encoding/FrameOutput.h"
#include "BrimbleCore/Encoding/OutputFormat.h"
#include "BrimbleCore/Encoding/WebPMuxer.h"

namespace brimble {

/// The writer of one output format, chosen from the format.
struct AnimationWriterOptions {
  OutputFormat format = OutputFormat::gif;
  int loopCount = 0;
  /// GIF: frames after the first keep only what changed.
  bool frameDiffing = false;
  /// GIF: frames whose colour table is the global one refer to it instead of repeating it.
  bool reuseGlobalTable = false;
  float webpQuality = 75;
  WebPMode webpMode = WebPMode::lossy;
  /// APNG: store alpha even if the first frame is opaque.
  bool apngAlpha = false;
};

/// The animation writer for a format, with what every encode needs around it: GIF delays kept
/// on the animation's own timeline, WebP and APNG failures logged, and a summary of what was
/// written. One thread at a time.
class AnimationWriter final : public FrameOutput {
 public:
  /// Throws MuxError::unexpectedLayout("mp4 has no animation muxer") for MP4.
  AnimationWriter(const AnimationWriterOptions& options, std::unique_ptr<ByteSink> sink);

  /// Throws what the format's muxer throws.
  void append(const Image& image, double delay) override;
  void finish() override;

  const EncodeSummary& summary() const noexcept override { return summary_; }

 private:
  template <typename Body>
  void logged(Body body);
  double gifDelayOnTimeline(double delay);

  OutputFormat format_;
  std::unique_ptr<AnimationMuxer> muxer_;
  EncodeSummary summary_;
  double elapsed_ = 0;  // seconds of animation written so far
};

}  // namespace brimble
