#pragma once

#include <cmath>

#include "BrimbleCore/Automation/DiscoveredElement.h"

namespace brimble {

/// An element's rectangle in page CSS pixels, relative to the viewport.
struct ElementRect {
  double x = 0;
  double y = 0;
  double w = 0;
  double h = 0;
  bool operator==(const ElementRect&) const = default;
};

/// Where the page's content area is on screen: what the page reported of its window.
struct CDPCalibration {
  double x = 0;  // screen position of the content area's top-left corner
  double y = 0;
  double w = 0;  // the content area's size in CSS pixels
  double h = 0;
};

/// Maps page rectangles to screen rectangles.
struct CDPGeometry {
  CDPCalibration calibration;
  double scale = 1;  // screen pixels per CSS pixel

  /// The rectangle in whole screen pixels, rounded to the nearest.
  ScreenRect toScreen(const ElementRect& rect) const {
    return {static_cast<int>(std::lround(calibration.x + rect.x * scale)),
            static_cast<int>(std::lround(calibration.y + rect.y * scale)),
            static_cast<int>(std::lround(rect.w * scale)),
            static_cast<int>(std::lround(rect.h * scale))};
  }
};

}  // namespace brimble
