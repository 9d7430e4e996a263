#include "BrimbleCore/Encoding/WebPMuxer.h"

#include <cmath>
#include <span>

#include <webp/encode.h>
#include <webp/mux.h>

#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/StraightAlpha.h"

namespace brimble {
namespace {

struct PictureFreer {
  void operator()(WebPPicture* picture) const noexcept { WebPPictureFree(picture); }
};

struct WebPDataClearer {
  void operator()(WebPData* data) const noexcept { WebPDataClear(data); }
};

/// Milliseconds on the animation's clock; rounding the running total, not each delay, keeps long
/// animations from drifting.
int milliseconds(double seconds) {
  return static_cast<int>(std::lround(seconds * 1000));
}

}  // namespace

void WebPMuxer::EncoderDeleter::operator()(WebPAnimEncoder* encoder) const noexcept {
  WebPAnimEncoderDelete(encoder);
}

WebPMuxer::WebPMuxer(std::unique_ptr<ByteSink> sink, int loopCount, float quality, WebPMode mode)
    : sink_(std::move(sink)), loopCount_(loopCount), quality_(quality), mode_(mode) {}

WebPMuxer::~WebPMuxer() = default;

void WebPMuxer::append(const Image& source, double delay) {
  if (frameCount_ > 0 && (source.width() != width_ || source.height() != height_)) {
    throw MuxError::inconsistentCanvas();
  }
  if (source.empty()) {
    throw MuxError::encoderFailed();
  }
  if (!encoder_) {
    width_ = source.width();
    height_ = source.height();
    WebPAnimEncoderOptions options;
    if (!WebPAnimEncoderOptionsInit(&options)) {
      throw MuxError::encoderFailed();
    }
    options.anim_params.loop_count = loopCount_ < 0 ? 0 : loopCount_;
    options.allow_mixed = mode_ == WebPMode::mixed ? 1 : 0;
    encoder_.reset(WebPAnimEncoderNew(width_, height_, &options));
    if (!encoder_) {
      throw MuxError::encoderFailed();
    }
  }
  WebPConfig config;
  if (!WebPConfigInit(&config)) {
    throw MuxError::encoderFailed();
  }
  config.lossless = mode_ == WebPMode::lossless ? 1 : 0;
  config.quality = quality_;
  config.method = 4;
  WebPPicture picture;
  if (!WebPPictureInit(&picture)) {
    throw MuxError::encoderFailed();
  }
  std::unique_ptr<WebPPicture, PictureFreer> guard(&picture);
  picture.width = width_;
  picture.height = height_;
  picture.use_argb = 1;
  // libwebp takes straight alpha; ours is premultiplied, which only opaque pixels share.
  const Image image = source.toBGRA8();
  const std::uint8_t* pixels = image.bytes().data();
  auto stride = static_cast<int>(image.bytesPerRow());
  PixelBuffer straight;
  if (hasTranslucentPixels(image)) {
    straight = straightBGRA(image);
    pixels = straight.data();
    stride = width_ * 4;
  }
  if (!WebPPictureImportBGRA(&picture, pixels, stride)) {
    throw MuxError::encoderFailed();
  }
  if (!WebPAnimEncoderAdd(encoder_.get(), &picture, milliseconds(elapsed_), &config)) {
    throw MuxError::encoderFailed();
  }
  elapsed_ += delay > 0 && std::isfinite(delay) ? delay : 0;
  ++frameCount_;
}

void WebPMuxer::finish() {
  if (frameCount_ == 0) {
    throw MuxError::noFramesAppended();
  }
  // A final empty frame marks when the last real frame ends.
  if (!WebPAnimEncoderAdd(encoder_.get(), nullptr, milliseconds(elapsed_), nullptr)) {
    throw MuxError::encoderFailed();
  }
  WebPData data;
  WebPDataInit(&data);
  std::unique_ptr<WebPData, WebPDataClearer> guard(&data);
  if (!WebPAnimEncoderAssemble(encoder_.get(), &data)) {
    throw MuxError::encoderFailed();
  }
  sink_->write(std::span<const std::uint8_t>(data.bytes, data.size));
  sink_->close();
}

}  // namespace brimble
