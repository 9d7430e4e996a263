#pragma once

#include <cstdint>
#include <span>
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

/// One palette for several images, and how faithful it is.
struct SharedPalette {
  std::vector<RGBColor> colors;  // empty when the images have no visible pixels
  double meanSquaredError = 0;   // per channel, over every visible pixel of the images
};

/// A palette of at most `maxColors` (1...256) colours for every visible pixel of `images`: the
/// smallest (to within a few colours) whose mean squared error stays at or below
/// `enoughError`; with 0, always `maxColors`.
SharedPalette paletteFor(std::span<const Image> images, int maxColors, double enoughError = 0);

}  // namespace HistogramQuantizer
}  // namespace brimble
