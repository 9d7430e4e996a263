#pragma once

#include <optional>
#include <span>
#include <vector>

#include "BrimbleCore/Encoding/Image.h"
#include "BrimbleCore/Encoding/RGBColor.h"

namespace brimble {

/// A bag of sampled colours (duplicates allowed) that median cut splits.
struct ColorBox {
  std::vector<RGBColor> colors;
};

/// Palettes by median cut over sampled pixels, and mapping pixels to them. Pure functions;
/// safe to call from any thread. Images with fewer than 24 bits per pixel (indexed8) are not
/// read: sampling gives nothing and quantizing gives no image.
namespace MedianCutQuantizer {

/// Up to `maxSamples` colours read at an even stride through the pixels, row by row.
std::vector<RGBColor> sampleColors(const Image& image, int maxSamples);

/// At most `maxColors` colours for `colors`: the distinct colours themselves when they fit,
/// otherwise the means of boxes split at the median of their widest channel.
std::vector<RGBColor> buildPalette(std::span<const RGBColor> colors, int maxColors);

/// `image` mapped to the nearest palette colour (squared RGB distance, ties to the lowest index),
/// without dithering. No image for an empty palette or an image that cannot be read. A palette
/// may hold at most 256 colours.
std::optional<Image> quantize(const Image& image, std::span<const RGBColor> palette);

}  // namespace MedianCutQuantizer
}  // namespace brimble
