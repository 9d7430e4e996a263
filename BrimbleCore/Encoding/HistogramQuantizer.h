#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "BrimbleCore/Encoding/Image.h"
#include "BrimbleCore/Encoding/PixelRect.h"
#include "BrimbleCore/Encoding/RGBColor.h"

namespace brimble {

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

/// Counts the colours of any number of images, one at a time, for one palette that suits them
/// all. Holds a 4 MB table, not the images. One thread at a time.
class ColorHistogram {
 public:
  ColorHistogram();

  /// Counts the visible (alpha above 0) pixels of `image`.
  void add(const Image& image);

  /// A palette of at most `maxColors` (1...256) colours for every pixel counted: the smallest (to
  /// within a few colours) whose mean squared error stays at or below `enoughError`; with 0,
  /// always `maxColors`. Empty when nothing was counted.
  SharedPalette palette(int maxColors, double enoughError = 0) const;

 private:
  std::vector<std::uint32_t> bins_;  // per 6-bit bin: pixel count, then low-bit sums of r, g, b
  std::vector<std::uint32_t> used_;  // the bins counted into, in first-use order
};

/// `ColorHistogram` over `images`, for callers that hold them anyway.
SharedPalette paletteFor(std::span<const Image> images, int maxColors, double enoughError = 0);

}  // namespace HistogramQuantizer
}  // namespace brimble
