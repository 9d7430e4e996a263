#pragma once

#include <string>

#include "BrimbleCore/Capture/ScreenRect.h"

namespace brimble {

/// One element that discovery found: what it is, what it says, a target string that finds it
/// again ("css:#save", "text:Save"), and where it is on screen.
struct DiscoveredElement {
  std::string role;
  std::string text;
  std::string selector;
  ScreenRect rect;
};

}  // namespace brimble
