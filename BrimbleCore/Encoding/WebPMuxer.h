#pragma once

#include <memory>

#include "BrimbleCore/Encoding/AnimationMuxer.h"
#include "BrimbleCore/Encoding/ByteSink.h"

struct WebPAnimEncoder;

namespace brimble {

/// How WebP frames are compressed.
enum class WebPMode {
  /// Lossy at the given quality.
  lossy,
  /// Lossless; the quality sets the compression effort.
  lossless,
  /// Each frame lossy or lossless, whichever is smaller (libwebp's `allow_mixed`).
  mixed,
};

/// Writes an animated WebP through libwebp's animation encoder, which keeps only the compressed
/// frames in memory and picks per frame between a full frame and a changed sub-rectangle.
/// The file is assembled and written to the sink at `finish`. One thread at a time.
class WebPMuxer final : public AnimationMuxer {
 public:
  /// `quality` 0...100 for lossy frames, the compression effort for lossless ones. `loopCount`
  /// is the number of plays (0 = forever).
  WebPMuxer(std::unique_ptr<ByteSink> sink, int loopCount, float quality,
            WebPMode mode = WebPMode::lossy);
  WebPMuxer(const WebPMuxer&) = delete;
  WebPMuxer& operator=(const WebPMuxer&) = delete;
  ~WebPMuxer() override;

  /// Throws MuxError::inconsistentCanvas for a frame of another size than the first, and
  /// MuxError::encoderFailed when libwebp fails.
  void append(const Image& image, double delay) override;
  void finish() override;

  ByteSink& sink() noexcept { return *sink_; }

 private:
  struct EncoderDeleter {
    void operator()(WebPAnimEncoder* encoder) const noexcept;
  };

  std::unique_ptr<ByteSink> sink_;
  const int loopCount_;
  const float quality_;
  const WebPMode mode_;
  std::unique_ptr<WebPAnimEncoder, EncoderDeleter> encoder_;
  int width_ = 0;
  int height_ = 0;
  int frameCount_ = 0;
  double elapsed_ = 0;  // seconds from the start to the current frame
};

}  // namespace brimble
