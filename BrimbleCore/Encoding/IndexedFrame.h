#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "BrimbleCore/Encoding/Image.h"
#include "BrimbleCore/Encoding/RGBColor.h"

namespace brimble {

/// A frame reduced to palette indices, cropped to the rectangle that holds visible pixels.
struct IndexedFrame {
  int left = 0;
  int top = 0;
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> indices;  // width * height, row by row
  std::vector<RGBColor> palette;      // 1 to 256 entries, including the transparent one
  std::optional<std::uint8_t> transparentIndex;
};

/// Turns `image` into palette indices for a GIF.
/// - indexed8 images keep their palette and indices exactly; one with a transparent index is
///   cropped to the pixels that show.
/// - bgra8 pixels with alpha 0 are transparent; the frame is cropped to the bounding box of the
///   other pixels (1x1 when there are none) and, when there are any, one palette entry is set
///   aside as the transparent index.
/// - When the visible pixels have no more colours than fit, every colour is kept exactly;
///   otherwise the palette is reduced by the histogram quantizer.
IndexedFrame indexFrame(const Image& image);

}  // namespace brimble
