#pragma once

#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Platform/X11/XHandles.h"

struct _XDisplay;  // Xlib's Display

namespace brimble::x11 {

/// A window property of 32-bit items (windows, atoms, cardinals; Xlib hands them over as longs)
/// and of type `type`, or no value when it is missing or of another type or format.
std::optional<std::vector<unsigned long>> longProperty(_XDisplay* display, XID window,
                                                       const char* name, XID type);

/// A UTF8_STRING window property (_NET_WM_NAME), or no value when it is missing or of another
/// type.
std::optional<std::string> utf8Property(_XDisplay* display, XID window, const char* name);

}  // namespace brimble::x11
