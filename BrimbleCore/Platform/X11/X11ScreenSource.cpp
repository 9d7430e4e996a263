#include "BrimbleCore/Platform/X11/X11ScreenSource.h"

#include <algorithm>
#include <cctype>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xrandr.h>

#include "BrimbleCore/Platform/X11/X11ScreenStream.h"
#include "BrimbleCore/Platform/X11/XDisplay.h"
#include "BrimbleCore/Platform/X11/XHandles.h"
#include "BrimbleCore/Platform/X11/XProperties.h"

namespace brimble::x11 {
namespace {

struct MonitorsDeleter {
  void operator()(XRRMonitorInfo* monitors) const noexcept { XRRFreeMonitors(monitors); }
};

/// Throws ScreenCaptureError::displayLost when the server went away during the queries made.
void checkStillConnected(Display* display) {
  if (connectionLost(display)) {
    throw ScreenCaptureError::displayLost(
        std::string("the X display \"") + DisplayString(display) + "\"", "the X server ended");
  }
}

XDisplayPtr connect(const std::string& displayName) {
  XDisplayPtr display = openDisplay(displayName);
  if (!display) {
    throw ScreenCaptureError::displayUnreachable(displayName);
  }
  return display;
}

}  // namespace

std::vector<ScreenDisplay> X11ScreenSource::displays() {
  const XDisplayPtr connection = connect(displayName_);
  Display* display = connection.get();
  std::vector<ScreenDisplay> result;
  int eventBase = 0;
  int errorBase = 0;
  int major = 0;
  int minor = 0;
  if (XRRQueryExtension(display, &eventBase, &errorBase) != 0 &&
      XRRQueryVersion(display, &major, &minor) != 0 && (major > 1 || (major == 1 && minor >= 5))) {
    int count = 0;
    const std::unique_ptr<XRRMonitorInfo, MonitorsDeleter> monitors(
        XRRGetMonitors(display, DefaultRootWindow(display), True, &count));
    for (int i = 0; monitors && i < count; ++i) {
      const XRRMonitorInfo& monitor = monitors.get()[i];
      const XFreePtr<char> name(XGetAtomName(display, monitor.name));
      result.push_back({
          .displayID = monitor.noutput > 0 ? static_cast<std::uint32_t>(monitor.outputs[0]) : 0,
          .name = name ? name.get() : "",
          .frame = {monitor.x, monitor.y, monitor.width, monitor.height},
          .scaleFactor = 1,
          .primary = monitor.primary != 0,
      });
    }
  }
  checkStillConnected(display);
  if (result.empty()) {
    const ScreenSize size = screenSize(display);
    result.push_back({.displayID = 0,
                      .name = "screen",
                      .frame = {0, 0, size.width, size.height},
                      .scaleFactor = 1,
                      .primary = true});
  }
  return result;
}

std::optional<ScreenWindow> X11ScreenSource::window(std::uint32_t windowID) {
  const XDisplayPtr connection = connect(displayName_);
  Display* display = connection.get();
  XWindowAttributes attributes{};
  Status status = 0;
  const bool exists =
      windowID != 0 &&
      succeeds(display, [&] { status = XGetWindowAttributes(display, windowID, &attributes); }) &&
      status != 0 && attributes.c_class != InputOnly;
  checkStillConnected(display);
  if (!exists) {
    return std::nullopt;
  }
  int x = 0;
  int y = 0;
  Window child = 0;
  XTranslateCoordinates(display, windowID, DefaultRootWindow(display), 0, 0, &x, &y, &child);
  checkStillConnected(display);
  return ScreenWindow{windowID, {x, y, attributes.width, attributes.height}};
}

std::optional<DecoratedWindow> X11ScreenSource::decoratedWindow(std::uint32_t windowID) {
  const XDisplayPtr connection = connect(displayName_);
  Display* display = connection.get();
  const auto extents = longProperty(display, windowID, "_NET_FRAME_EXTENTS", XA_CARDINAL);
  checkStillConnected(display);
  if (!extents || extents->size() != 4) {
    return std::nullopt;
  }
  // The frame is the client's ancestor just below the root.
  const Window root = DefaultRootWindow(display);
  Window frame = windowID;
  for (int depth = 0; depth < 16; ++depth) {
    Window rootReturn = 0;
    Window parent = 0;
    Window* children = nullptr;
    unsigned int count = 0;
    Status status = 0;
    if (!succeeds(display,
                  [&] {
                    status = XQueryTree(display, frame, &rootReturn, &parent, &children, &count);
                  }) ||
        status == 0) {
      return std::nullopt;
    }
    if (children != nullptr) {
      XFree(children);
    }
    if (parent == root || parent == 0) {
      break;
    }
    frame = parent;
  }
  const FrameExtents decorations{static_cast<int>((*extents)[0]), static_cast<int>((*extents)[1]),
                                 static_cast<int>((*extents)[2]), static_cast<int>((*extents)[3])};
  if (frame == windowID || decorations == FrameExtents{}) {
    return std::nullopt;
  }
  const auto outer = window(static_cast<std::uint32_t>(frame));
  if (!outer) {
    return std::nullopt;
  }
  return DecoratedWindow{*outer, decorations};
}

std::unique_ptr<ScreenStream> X11ScreenSource::openStream(const CaptureTarget& target,
                                                          bool showCursor) {
  return std::make_unique<X11ScreenStream>(displayName_, target, showCursor, options_.sharedMemory);
}

std::optional<std::pair<int, int>> X11ScreenSource::pointerPosition() {
  const XDisplayPtr connection = connect(displayName_);
  Display* display = connection.get();
  Window root = 0;
  Window child = 0;
  int x = 0;
  int y = 0;
  int windowX = 0;
  int windowY = 0;
  unsigned int mask = 0;
  if (XQueryPointer(display, DefaultRootWindow(display), &root, &child, &x, &y, &windowX, &windowY,
                    &mask) == 0) {
    return std::nullopt;
  }
  return std::pair{x, y};
}

}  // namespace brimble::x11
