#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "BrimbleCore/Encoding/AnimationMuxer.h"
#include "BrimbleCore/Encoding/ByteSink.h"

namespace brimble {

/// Writes an animated PNG one frame at a time. Frames after the first are stored as the
/// rectangle that changed, drawn over the previous frame, so static screens cost little; every
/// frame is lossless. The frame count in the acTL chunk is patched in at `finish`.
/// One thread at a time.
class APNGMuxer final : public AnimationMuxer {
 public:
  /// Nothing is written until the first `append`. `loopCount` is the number of plays (0 =
  /// forever). Pixels carry alpha when `withAlpha` is set or the first frame is not opaque;
  /// otherwise the file stores colour only (6 to 9% smaller on screen recordings).
  APNGMuxer(std::unique_ptr<ByteSink> sink, int loopCount, bool withAlpha = false);

  /// Throws MuxError::inconsistentCanvas for a frame whose size differs from the first one's,
  /// MuxError::unsupportedColorType(6) for a translucent frame in a file that stores colour only
  /// (nothing is written: start again with `withAlpha`), and the sink's errors.
  void append(const Image& image, double delay) override;
  /// Writes IEND, patches the frame count and closes the sink. Throws MuxError::noFramesAppended
  /// when nothing was appended.
  void finish() override;

  ByteSink& sink() noexcept { return *sink_; }

 private:
  void writeHeader(const Image& first);
  void writeChunk(const char type[4], const std::vector<std::uint8_t>& data);

  std::unique_ptr<ByteSink> sink_;
  const int loopCount_;
  bool withAlpha_;
  int width_ = 0;
  int height_ = 0;
  std::size_t animationControlOffset_ = 0;
  std::uint32_t sequenceNumber_ = 0;
  std::uint32_t frameCount_ = 0;
  Image previousFrame_;
};

}  // namespace brimble
