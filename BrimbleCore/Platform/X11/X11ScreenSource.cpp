#include "BrimbleCore/Platform/X11/X11ScreenSource.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xrandr.h>

#include "BrimbleCore/Platform/X11/X11ScreenStream.h"
#include "BrimbleCore/Platform/X11/XDisplay.h"
#include "BrimbleCore/Platform/X11/XHandles.h"

namespace brimble::x11 {
namespace {

struct MonitorsDeleter {
  void operator()(XRRMonitorInfo* monitors) const noexcept { XRRFreeMonitors(monitors); }
};

XDisplayPtr connect(const std::string& displayName) {
  XDisplayPtr display = openDisplay(displayName);
  if (!display) {
    const char* fromEnvironment = std::getenv("DISPLAY");
    throw ScreenCaptureError::displayUnreachable(
        !displayName.empty() ? displayName : (fromEnvironment != nullptr ? fromEnvironment : ""));
  }
  return display;
}

std::string lowercase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

/// The window manager's client windows from bottom to top; without a window manager, the
/// root's children in stacking order.
std::vector<Window> topLevelWindows(Display* display) {
  const Window root = DefaultRootWindow(display);
  for (const char* name : {"_NET_CLIENT_LIST_STACKING", "_NET_CLIENT_LIST"}) {
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* data = nullptr;
    const int status =
        XGetWindowProperty(display, root, XInternAtom(display, name, False), 0, 65536, False,
                           XA_WINDOW, &type, &format, &count, &remaining, &data);
    const XFreePtr<unsigned char> owned(data);
    if (status == Success && type == XA_WINDOW && format == 32) {
      // Format-32 properties arrive as longs, whatever the size of a long.
      const auto* windows = reinterpret_cast<const unsigned long*>(data);
      return {windows, windows + count};
    }
  }
  Window rootReturn = 0;
  Window parent = 0;
  Window* children = nullptr;
  unsigned int count = 0;
  std::vector<Window> windows;
  if (XQueryTree(display, root, &rootReturn, &parent, &children, &count) != 0) {
    const XFreePtr<Window> owned(children);
    windows.assign(children, children + count);
  }
  return windows;
}

std::optional<std::string> windowClass(Display* display, Window window) {
  XClassHint hint{};
  bool found = false;
  if (!succeeds(display, [&] { found = XGetClassHint(display, window, &hint) != 0; }) || !found) {
    return std::nullopt;
  }
  const XFreePtr<char> instanceName(hint.res_name);
  const XFreePtr<char> className(hint.res_class);
  return className ? std::optional<std::string>(className.get()) : std::nullopt;
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
  if (windowID == 0 ||
      !succeeds(display, [&] { status = XGetWindowAttributes(display, windowID, &attributes); }) ||
      status == 0 || attributes.c_class == InputOnly) {
    return std::nullopt;
  }
  int x = 0;
  int y = 0;
  Window child = 0;
  XTranslateCoordinates(display, windowID, DefaultRootWindow(display), 0, 0, &x, &y, &child);
  return ScreenWindow{windowID, {x, y, attributes.width, attributes.height}};
}

std::unique_ptr<ScreenStream> X11ScreenSource::openStream(const CaptureTarget& target,
                                                          bool showCursor) {
  return std::make_unique<X11ScreenStream>(displayName_, target, showCursor, options_.sharedMemory);
}

std::optional<ScreenWindow> X11ScreenSource::windowOfApplication(
    const std::string& applicationName) {
  const std::string wanted = lowercase(applicationName);
  std::optional<std::uint32_t> partial;
  std::optional<std::uint32_t> exact;
  {
    const XDisplayPtr connection = connect(displayName_);
    Display* display = connection.get();
    const std::vector<Window> windows = topLevelWindows(display);
    for (auto window = windows.rbegin(); window != windows.rend() && !exact; ++window) {
      const auto found = windowClass(display, *window);
      if (!found) {
        continue;
      }
      const std::string name = lowercase(*found);
      if (name == wanted) {
        exact = static_cast<std::uint32_t>(*window);
      } else if (!partial && name.find(wanted) != std::string::npos) {
        partial = static_cast<std::uint32_t>(*window);
      }
    }
  }
  const auto chosen = exact ? exact : partial;
  return chosen ? window(*chosen) : std::nullopt;
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
