#pragma once

#include <cstdint>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// One colour channel of a premultiplied pixel brought back to straight alpha, as PNG and
/// libwebp store it: rounded to nearest, 0 where the pixel is fully transparent.
inline std::uint8_t unpremultiplied(unsigned value, unsigned alpha) noexcept {
  if (alpha == 255) {
    return static_cast<std::uint8_t>(value);
  }
  if (alpha == 0) {
    return 0;
  }
  const unsigned straight = (value * 255 + alpha / 2) / alpha;
  return static_cast<std::uint8_t>(straight > 255 ? 255 : straight);
}

/// The pixels of `image` as tightly packed B, G, R, A bytes with straight alpha.
PixelBuffer straightBGRA(const Image& image);

/// Whether any pixel of `image` is not fully opaque.
bool hasTranslucentPixels(const Image& image);

}  // namespace brimble
