#include "BrimbleCore/Capture/ScreenSource.h"

#include <algorithm>

namespace brimble {

ScreenRect ScreenRect::intersection(const ScreenRect& other) const noexcept {
  const int left = std::max(x, other.x);
  const int top = std::max(y, other.y);
  // In 64 bits: a rectangle near INT_MAX must not wrap around.
  const auto right = std::min(std::int64_t{x} + width, std::int64_t{other.x} + other.width);
  const auto bottom = std::min(std::int64_t{y} + height, std::int64_t{other.y} + other.height);
  if (right <= left || bottom <= top) {
    return {};
  }
  return {left, top, static_cast<int>(right - left), static_cast<int>(bottom - top)};
}

CaptureTarget CaptureTarget::windowCropOf(const ScreenRect& content, const ScreenRect& crop) {
  const ScreenRect area{content.x + crop.x, content.y + crop.y, crop.width, crop.height};
  return screenAreaOf(area.intersection(content));
}

std::optional<ScreenDisplay> displayHolding(const ScreenRect& area,
                                            const std::vector<ScreenDisplay>& displays) {
  std::optional<ScreenDisplay> best;
  std::int64_t bestOverlap = 0;
  for (const ScreenDisplay& display : displays) {
    const std::int64_t overlap = area.intersection(display.frame).area();
    if (overlap > bestOverlap) {
      bestOverlap = overlap;
      best = display;
    }
  }
  return best;
}

ScreenCaptureError ScreenCaptureError::displayUnreachable(const std::string& displayName) {
  return {Code::displayUnreachable,
          "Couldn't connect to the X display \"" + displayName + "\" to record it."};
}

ScreenCaptureError ScreenCaptureError::displayLost(const std::string& what,
                                                   const std::string& cause) {
  return {Code::displayLost, "Lost the connection to " + what + " being recorded: " + cause + "."};
}

ScreenCaptureError ScreenCaptureError::windowNotFound(std::uint32_t windowID) {
  return {Code::windowNotFound,
          "Couldn't find the window " + std::to_string(windowID) + " to record."};
}

ScreenCaptureError ScreenCaptureError::windowClosed(std::uint32_t windowID) {
  return {Code::windowClosed,
          "The window " + std::to_string(windowID) + " being recorded was closed."};
}

ScreenCaptureError ScreenCaptureError::unsupportedPixelFormat(int depth, int bitsPerPixel) {
  return {Code::unsupportedPixelFormat,
          "Can't record a screen of depth " + std::to_string(depth) + " at " +
              std::to_string(bitsPerPixel) +
              " bits per pixel; only 24-bit colour in 32-bit pixels is supported."};
}

}  // namespace brimble
