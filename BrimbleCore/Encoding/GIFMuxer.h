#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "BrimbleCore/Encoding/AnimationMuxer.h"
#include "BrimbleCore/Encoding/ByteSink.h"
#include "BrimbleCore/Encoding/GIFByteLayout.h"

namespace brimble {

/// Writes an animated GIF89a one frame at a time, in constant memory. Each frame is encoded alone
/// as a single-image GIF, taken apart, and re-emitted with its palette as a local colour table;
/// the first frame's palette is also the global table. One thread at a time.
class GIFMuxer final : public AnimationMuxer {
 public:
  struct Canvas {
    int width = 0;
    int height = 0;
  };

  /// Nothing is written until the first `append`. `loopCount` is the number of plays (0 =
  /// forever). With `frameDiffing`, frames after the first keep only the pixels that changed by
  /// more than `diffTolerance` in some channel.
  GIFMuxer(std::unique_ptr<ByteSink> sink, int loopCount, bool frameDiffing = false,
           int diffTolerance = 0);

  /// Frames whose colour table is byte for byte the global one (frames quantized to one shared
  /// palette) then refer to the global table instead of carrying a copy: 768 bytes saved per
  /// frame. Off by default: every frame carries its own table.
  void setReuseGlobalTable(bool reuse) noexcept { reuseGlobalTable_ = reuse; }

  /// Throws MuxError::inconsistentCanvas for a frame whose size differs from the first one's
  /// (writing nothing), MuxError from encoding and parsing, and the sink's errors. After a throw
  /// the output is incomplete; the caller discards it.
  void append(const Image& image, double delay) override;
  /// Writes the trailer and closes the sink. Throws MuxError::noFramesAppended, writing nothing,
  /// when no frame was appended.
  void finish() override;

  /// The platform step: `image` alone as a single-image GIF89a (giflib). Keeps the colours of
  /// indexed8 images and of bgra8 images with at most 256 colours exactly; reduces others.
  /// Pixels with alpha 0 are transparent and cropped away where they border the image.
  static std::vector<std::uint8_t> encodeStandalone(const Image& image);

  ByteSink& sink() noexcept { return *sink_; }
  int frameCount() const noexcept { return frameCount_; }
  std::optional<Canvas> canvas() const noexcept { return canvas_; }

 private:
  void writeHeader(const GIFFrameLayout& layout);
  void writeFrame(const GIFFrameLayout& layout, double delay);

  std::unique_ptr<ByteSink> sink_;
  const int loopCount_;
  const bool frameDiffing_;
  const int diffTolerance_;
  bool reuseGlobalTable_ = false;
  std::vector<std::uint8_t> globalTable_;
  std::optional<Canvas> canvas_;
  Image previousFrame_;  // the last full frame appended, for diffing
  int frameCount_ = 0;
};

}  // namespace brimble
