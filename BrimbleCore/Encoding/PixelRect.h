#pragma once

#include <cstdint>

namespace brimble {

/// A rectangle of an image's pixels, origin at its top left.
struct PixelRect {
  int left = 0;
  int top = 0;
  int width = 0;
  int height = 0;

  bool empty() const noexcept { return width <= 0 || height <= 0; }
  /// Whether `other` lies wholly inside this rectangle. Edges are summed in 64 bits, so a
  /// rectangle parsed from the command line cannot overflow its way inside.
  bool contains(const PixelRect& other) const noexcept {
    return other.left >= left && other.top >= top &&
           std::int64_t{other.left} + other.width <= std::int64_t{left} + width &&
           std::int64_t{other.top} + other.height <= std::int64_t{top} + height;
  }
  bool operator==(const PixelRect&) const = default;
};

}  // namespace brimble
