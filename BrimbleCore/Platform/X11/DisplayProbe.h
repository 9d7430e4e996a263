#pragma once

#include <string>

#include "BrimbleCore/Platform/X11/XDisplay.h"

namespace brimble::x11 {

/// What an X display offers Brimble, found by asking it once.
struct DisplayOffer {
  /// A connection was accepted.
  bool reachable = false;
  ScreenSize size;
  /// A pixel of the root window could be read back: what recording needs.
  bool captures = false;
  /// The XTest extension, through which keys and clicks are sent.
  bool xtest = false;
};

/// Connects to `name` (":0") and looks, without changing anything on it.
DisplayOffer probeDisplay(const std::string& name);

}  // namespace brimble::x11
