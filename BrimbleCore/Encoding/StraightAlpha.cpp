#include "BrimbleCore/Encoding/StraightAlpha.h"

namespace brimble {

PixelBuffer straightBGRA(const Image& source) {
  const Image image = source.toBGRA8();
  const auto rowBytes = static_cast<std::size_t>(image.width()) * 4;
  PixelBuffer pixels(rowBytes * static_cast<std::size_t>(image.height()));
  std::uint8_t* out = pixels.data();
  for (int y = 0; y < image.height(); ++y) {
    const auto row = image.row(y);
    for (std::size_t i = 0; i < rowBytes; i += 4, out += 4) {
      const unsigned alpha = row[i + 3];
      out[0] = unpremultiplied(row[i], alpha);
      out[1] = unpremultiplied(row[i + 1], alpha);
      out[2] = unpremultiplied(row[i + 2], alpha);
      out[3] = static_cast<std::uint8_t>(alpha);
    }
  }
  return pixels;
}

bool hasTranslucentPixels(const Image& source) {
  if (source.format() == PixelFormat::indexed8) {
    return source.transparentIndex().has_value();
  }
  for (int y = 0; y < source.height(); ++y) {
    const auto row = source.row(y);
    for (std::size_t i = 3; i < row.size(); i += 4) {
      if (row[i] != 255) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace brimble
