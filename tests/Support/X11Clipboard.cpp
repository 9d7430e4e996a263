#include "tests/Support/X11Clipboard.h"

#include <chrono>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <poll.h>

namespace brimble::testing {

namespace {

using Clock = std::chrono::steady_clock;

/// Waits for an event of `type` on `window`, up to the deadline.
bool waitForEvent(Display* display, Window window, int type, XEvent& event,
                  Clock::time_point deadline) {
  while (Clock::now() < deadline) {
    while (XPending(display) > 0) {
      XNextEvent(display, &event);
      if (event.type == type && event.xany.window == window) {
        return true;
      }
    }
    pollfd wait{ConnectionNumber(display), POLLIN, 0};
    poll(&wait, 1, 20);
  }
  return false;
}

/// The property's whole value, deleting it (which tells an INCR sender to go on).
std::optional<std::vector<std::uint8_t>> takeProperty(Display* display, Window window,
                                                      Atom property, Atom* type) {
  std::vector<std::uint8_t> bytes;
  long offset = 0;
  for (;;) {
    int format = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(display, window, property, offset, 1 << 20, False, AnyPropertyType, type,
                           &format, &count, &remaining, &data) != Success) {
      return std::nullopt;
    }
    const std::size_t unit = format == 32 ? sizeof(long) : static_cast<std::size_t>(format / 8);
    if (data != nullptr) {
      if (format == 32) {
        // Xlib hands 32-bit items as longs.
        for (unsigned long i = 0; i < count; ++i) {
          const auto value = static_cast<std::uint32_t>(reinterpret_cast<long*>(data)[i]);
          for (int b = 0; b < 4; ++b) {
            bytes.push_back(static_cast<std::uint8_t>(value >> (8 * b)));
          }
        }
      } else {
        bytes.insert(bytes.end(), data, data + count * unit);
      }
      XFree(data);
    }
    offset += static_cast<long>(count * (format == 32 ? 1 : unit) / 4);
    if (remaining == 0) {
      break;
    }
  }
  XDeleteProperty(display, window, property);
  XFlush(display);
  return bytes;
}

}  // namespace

std::optional<std::vector<std::uint8_t>> readClipboard(const std::string& displayName,
                                                       const std::string& target) {
  Display* display = XOpenDisplay(displayName.c_str());
  if (display == nullptr) {
    return std::nullopt;
  }
  std::optional<std::vector<std::uint8_t>> result;
  const Window window =
      XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
  XSelectInput(display, window, PropertyChangeMask);
  const Atom clipboard = XInternAtom(display, "CLIPBOARD", False);
  const Atom property = XInternAtom(display, "BRIMBLE_TEST_PASTE", False);
  const Atom incr = XInternAtom(display, "INCR", False);
  XConvertSelection(display, clipboard, XInternAtom(display, target.c_str(), False), property,
                    window, CurrentTime);
  XFlush(display);
  const auto deadline = Clock::now() + std::chrono::seconds(5);
  XEvent event;
  if (waitForEvent(display, window, SelectionNotify, event, deadline) &&
      event.xselection.property != None) {
    Atom type = None;
    result = takeProperty(display, window, property, &type);
    if (result && type == incr) {
      // Large data comes in chunks: each new value of the property is the next one, and an
      // empty one ends it.
      result->clear();
      for (;;) {
        if (!waitForEvent(display, window, PropertyNotify, event, deadline)) {
          result.reset();
          break;
        }
        if (event.xproperty.state != PropertyNewValue || event.xproperty.atom != property) {
          continue;
        }
        const auto chunk = takeProperty(display, window, property, &type);
        if (!chunk) {
          result.reset();
          break;
        }
        if (chunk->empty()) {
          break;
        }
        result->insert(result->end(), chunk->begin(), chunk->end());
      }
    }
  }
  XDestroyWindow(display, window);
  XCloseDisplay(display);
  return result;
}

std::vector<std::string> clipboardTargets(const std::string& displayName) {
  std::vector<std::string> names;
  const auto atoms = readClipboard(displayName, "TARGETS");
  if (!atoms) {
    return names;
  }
  Display* display = XOpenDisplay(displayName.c_str());
  if (display == nullptr) {
    return names;
  }
  for (std::size_t i = 0; i + 4 <= atoms->size(); i += 4) {
    const Atom atom = static_cast<Atom>((*atoms)[i]) | (static_cast<Atom>((*atoms)[i + 1]) << 8) |
                      (static_cast<Atom>((*atoms)[i + 2]) << 16) |
                      (static_cast<Atom>((*atoms)[i + 3]) << 24);
    char* name = XGetAtomName(display, atom);
    if (name != nullptr) {
      names.emplace_back(name);
      XFree(name);
    }
  }
  XCloseDisplay(display);
  return names;
}

}  // namespace brimble::testing
