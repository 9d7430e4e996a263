#pragma once

namespace brimble {

/// A rectangle of the screen in pixels, origin at the top left of the whole screen (the X root
/// window). Points and pixels coincide: Linux displays have a scale factor of 1.
struct ScreenRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  bool empty() const noexcept { return width <= 0 || height <= 0; }
  /// The part of this rectangle that also lies in `other`; empty when they do not overlap.
  ScreenRect intersection(const ScreenRect& other) const noexcept;
  bool operator==(const ScreenRect&) const = default;
};

}  // namespace brimble
