#include "Brimble/Recording/ScreenSnapshot.h"

#include <exception>

#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {

QImage ScreenSnapshot::grab(const QRect& area) {
  try {
    if (!stream_ || streamArea_ != area) {
      stream_ = source_.openStream(
          CaptureTarget::screenAreaOf({area.x(), area.y(), area.width(), area.height()}), false);
      streamArea_ = area;
    }
    const std::optional<Image> image = stream_->grab();
    if (!image || image->format() != PixelFormat::bgra8) {
      return {};
    }
    // bgra8 in memory is Qt's ARGB32 on little-endian machines; the copy detaches from the
    // grab's buffer, which the Image owns.
    return QImage(image->bytes().data(), image->width(), image->height(),
                  static_cast<qsizetype>(image->bytesPerRow()), QImage::Format_ARGB32_Premultiplied)
        .copy();
  } catch (const std::exception& error) {
    stream_.reset();  // a display that went away gets a new stream next time
    logLine(std::string("Brimble: could not take a still of the screen: ") + error.what());
    return {};
  }
}

}  // namespace brimble
