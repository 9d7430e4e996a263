#include "BrimbleCore/Encoding/AnimationWriter.h"

#include <cmath>
#include <exception>
#include <string>

#include "BrimbleCore/Encoding/APNGMuxer.h"
#include "BrimbleCore/Encoding/GIFMuxer.h"
#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/WebPMuxer.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {

AnimationWriter::AnimationWriter(const AnimationWriterOptions& options,
                                 std::unique_ptr<ByteSink> sink)
    : format_(options.format) {
  switch (options.format) {
    case OutputFormat::gif: {
      auto gif =
          std::make_unique<GIFMuxer>(std::move(sink), options.loopCount, options.frameDiffing, 0);
      gif->setReuseGlobalTable(options.reuseGlobalTable);
      muxer_ = std::move(gif);
      break;
    }
    case OutputFormat::webp:
      muxer_ = std::make_unique<WebPMuxer>(std::move(sink), options.loopCount, options.webpQuality,
                                           options.webpMode);
      break;
    case OutputFormat::apng:
      muxer_ = std::make_unique<APNGMuxer>(std::move(sink), options.loopCount, options.apngAlpha);
      break;
    case OutputFormat::mp4:
      throw MuxError::unexpectedLayout("mp4 has no animation muxer");
  }
}

void AnimationWriter::append(const Image& image, double delay) {
  if (format_ == OutputFormat::gif) {
    delay = gifDelayOnTimeline(delay);
  }
  logged([&] { muxer_->append(image, delay); });
  summary_.duration += delay;
  if (summary_.frames++ == 0) {
    summary_.width = image.width();
    summary_.height = image.height();
  }
}

void AnimationWriter::finish() {
  logged([&] { muxer_->finish(); });
}

template <typename Body>
void AnimationWriter::logged(Body body) {
  try {
    body();
  } catch (const std::exception& error) {
    // A translucent frame in a colour-only APNG is no failure: the encode starts again with alpha.
    const auto* mux = dynamic_cast<const MuxError*>(&error);
    if (mux == nullptr || mux->code() != MuxError::Code::unsupportedColorType) {
      if (format_ == OutputFormat::webp) {
        logLine(std::string("BrimbleCore: WebP mux failed: ") + error.what());
      } else if (format_ == OutputFormat::apng) {
        logLine(std::string("BrimbleCore: APNG mux failed: ") + error.what());
      }
    }
    throw;
  }
}

/// GIF delays are whole centiseconds. Rounding each delay alone lets the animation drift from
/// the recording (30 fps frames of 3.33 cs become 3 cs: 10% fast); rounding the running end time
/// instead keeps every frame within 5 ms of when it was captured.
double AnimationWriter::gifDelayOnTimeline(double delay) {
  const double start = elapsed_;
  elapsed_ += delay > 0 && std::isfinite(delay) ? delay : 0;
  return (std::round(elapsed_ * 100) - std::round(start * 100)) / 100;
}

}  // namespace brimble
