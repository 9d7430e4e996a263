#pragma once

#include <string>

namespace brimble {

/// A rectangle on screen, in pixels, top-left origin.
struct ScreenRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool operator==(const ScreenRect&) const = default;
};

/// One element that discovery found: what it is, what it says, a target string that finds it
/// again ("css:#save", "text:Save"), and where it is on screen.
struct DiscoveredElement {
  std::string role;
  std::string text;
  std::string selector;
  ScreenRect rect;
};

}  // namespace brimble
