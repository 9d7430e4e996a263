#include "BrimbleCore/Platform/X11/XProperties.h"

#include <X11/Xlib.h>

namespace brimble::x11 {
namespace {

struct RawProperty {
  XFreePtr<unsigned char> data;
  unsigned long count = 0;
};

/// The whole property, when it exists with `type` and `format`.
std::optional<RawProperty> readProperty(Display* display, Window window, const char* name,
                                        Atom type, int format) {
  Atom actualType = None;
  int actualFormat = 0;
  unsigned long count = 0;
  unsigned long remaining = 0;
  unsigned char* data = nullptr;
  const int status =
      XGetWindowProperty(display, window, XInternAtom(display, name, False), 0, 65536, False, type,
                         &actualType, &actualFormat, &count, &remaining, &data);
  RawProperty property{XFreePtr<unsigned char>(data), count};
  if (status != Success || actualType != type || actualFormat != format) {
    return std::nullopt;
  }
  return property;
}

}  // namespace

std::optional<std::vector<unsigned long>> longProperty(Display* display, XID window,
                                                       const char* name, XID type) {
  const auto property = readProperty(display, window, name, type, 32);
  if (!property) {
    return std::nullopt;
  }
  const auto* items = reinterpret_cast<const unsigned long*>(property->data.get());
  return std::vector<unsigned long>(items, items + property->count);
}

std::optional<std::string> utf8Property(Display* display, XID window, const char* name) {
  const auto property =
      readProperty(display, window, name, XInternAtom(display, "UTF8_STRING", False), 8);
  if (!property) {
    return std::nullopt;
  }
  return std::string(reinterpret_cast<const char*>(property->data.get()), property->count);
}

}  // namespace brimble::x11
