#pragma once

#include <cstdint>
#include <vector>

#include "BrimbleCore/Encoding/Image.h"
#include "BrimbleCore/Encoding/RGBColor.h"

namespace brimble {

/// A rectangle of pixels.
struct PixelRect {
  int left = 0;
  int top = 0;
  int width = 0;
  int height = 0;
};

/// Palette indices for the pixels of a rectangle, and the palette they refer to.
struct QuantizedPixels {
  std::vector<std::uint8_t> indices;  // rect.width * rect.height, row by row
  /// Transparent (alpha 0) pixels get the index palette.size(), so pass at most 255 colours
  /// when the rectangle has any.
  std::vector<RGBColor> palette;
};

/// Reduces full-colour pixels to a palette: a colour histogram at 6 bits per channel, split by
/// variance-minimising median cut, then refined with a few k-means passes. Screen content keeps
/// its flat colours; photographs and gradients degrade smoothly. No dithering: dithered noise
/// defeats frame diffing and compresses badly.
namespace HistogramQuantizer {

/// Quantizes the bgra8 `image` within `rect` to at most `maxColors` (1...256) colours. Pixels
/// with alpha 0 are ignored when building the palette.
QuantizedPixels quantize(const Image& image, PixelRect rect, int maxColors);

}  // namespace HistogramQuantizer
}  // namespace brimble
