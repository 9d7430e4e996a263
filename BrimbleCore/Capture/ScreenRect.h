#pragma once

#include <cstdint>

namespace brimble {

/// A rectangle of the screen in pixels, origin at the top left of the whole screen (the X root
/// window). Points and pixels coincide: Linux displays have a scale factor of 1.
struct ScreenRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  bool empty() const noexcept { return width <= 0 || height <= 0; }
  /// Width times height, in 64 bits so that no rectangle overflows it; 0 when empty.
  std::int64_t area() const noexcept {
    return empty() ? 0 : std::int64_t{width} * std::int64_t{height};
  }
  /// The part of this rectangle that also lies in `other`; empty when they do not overlap.
  ScreenRect intersection(const ScreenRect& other) const noexcept;
  bool operator==(const ScreenRect&) const = default;
};

}  // namespace brimble
