#include "BrimbleCore/Platform/X11/X11WindowSystem.h"

#include <fstream>
#include <memory>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XRes.h>

#include "BrimbleCore/Automation/WindowManagerError.h"
#include "BrimbleCore/Platform/X11/XHandles.h"
#include "BrimbleCore/Platform/X11/XProperties.h"

namespace brimble::x11 {
namespace {

/// WM_NAME in whatever encoding it was stored (Latin-1 STRING, COMPOUND_TEXT), as UTF-8.
std::string legacyName(Display* display, Window window) {
  XTextProperty property{};
  if (XGetWMName(display, window, &property) == 0 || property.value == nullptr) {
    return {};
  }
  const XFreePtr<unsigned char> owned(property.value);
  char** list = nullptr;
  int count = 0;
  std::string name;
  if (Xutf8TextPropertyToTextList(display, &property, &list, &count) >= Success &&
      list != nullptr) {
    if (count > 0) {
      name = list[0];
    }
    XFreeStringList(list);
  }
  return name;
}

std::string className(Display* display, Window window) {
  XClassHint hint{};
  if (XGetClassHint(display, window, &hint) == 0) {
    return {};
  }
  const XFreePtr<char> instance(hint.res_name);
  const XFreePtr<char> windowClass(hint.res_class);
  return windowClass ? windowClass.get() : "";
}

/// The pid the X server knows for the client that created `window`: unlike _NET_WM_PID, which
/// the client writes itself, it cannot be wrong.
std::optional<int> serverKnownPid(Display* display, Window window) {
  XResClientIdSpec client{window, XRES_CLIENT_ID_PID_MASK};
  long count = 0;
  XResClientIdValue* values = nullptr;
  if (XResQueryClientIds(display, 1, &client, &count, &values) != Success) {
    return std::nullopt;
  }
  std::optional<int> pid;
  for (long i = 0; i < count; ++i) {
    if (XResGetClientIdType(&values[i]) == XRES_CLIENT_ID_PID) {
      const pid_t value = XResGetClientPid(&values[i]);
      if (value > 0) {
        pid = value;
      }
    }
  }
  XResClientIdsDestroy(count, values);
  return pid;
}

std::string processName(int pid) {
  std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
  std::string name;
  std::getline(comm, name);
  return name;
}

}  // namespace

X11WindowSystem::X11WindowSystem(const std::string& displayName)
    : display_(openDisplay(displayName)) {
  if (!display_) {
    throw WindowManagerError::windowListUnavailable("cannot connect to the X display " +
                                                    displayName);
  }
  // Client ids (and with them pids) came with version 1.2 of the extension.
  int eventBase = 0;
  int errorBase = 0;
  int major = 0;
  int minor = 0;
  clientIDs_ = XResQueryExtension(display_.get(), &eventBase, &errorBase) != 0 &&
               XResQueryVersion(display_.get(), &major, &minor) != 0 &&
               (major > 1 || (major == 1 && minor >= 2));
}

bool X11WindowSystem::exists(unsigned long window) {
  XWindowAttributes attributes{};
  const bool found =
      succeeds(display_.get(), [&] { XGetWindowAttributes(display_.get(), window, &attributes); });
  checkConnection(display_.get());
  return found;
}

std::optional<WindowInfo> X11WindowSystem::describe(unsigned long window) {
  Display* display = display_.get();
  XWindowAttributes attributes{};
  if (XGetWindowAttributes(display, window, &attributes) == 0 ||
      attributes.map_state != IsViewable) {
    return std::nullopt;  // gone, minimised or on another desktop
  }
  WindowInfo info;
  info.id = static_cast<std::uint32_t>(window);
  info.title = utf8Property(display, window, "_NET_WM_NAME").value_or("");
  if (info.title.empty()) {
    info.title = legacyName(display, window);
  }
  if (const auto known = clientIDs_ ? serverKnownPid(display, window) : std::nullopt) {
    info.pid = *known;
  } else if (const auto property = longProperty(display, window, "_NET_WM_PID", XA_CARDINAL);
             property && !property->empty()) {
    info.pid = static_cast<int>(property->front());
  }
  info.appName = className(display, window);
  if (info.appName.empty() && info.pid > 0) {
    info.appName = processName(info.pid);
  }
  int x = 0;
  int y = 0;
  Window child = 0;
  XTranslateCoordinates(display, window, attributes.root, 0, 0, &x, &y, &child);
  info.contentFrame = {x, y, attributes.width, attributes.height};
  info.frame = info.contentFrame;
  const auto extents = longProperty(display, window, "_NET_FRAME_EXTENTS", XA_CARDINAL);
  if (extents && extents->size() == 4) {
    const auto left = static_cast<int>((*extents)[0]);
    const auto right = static_cast<int>((*extents)[1]);
    const auto top = static_cast<int>((*extents)[2]);
    const auto bottom = static_cast<int>((*extents)[3]);
    info.frame = {x - left, y - top, attributes.width + left + right,
                  attributes.height + top + bottom};
  }
  return info;
}

std::vector<WindowInfo> X11WindowSystem::windows() {
  Display* display = display_.get();
  const Window root = DefaultRootWindow(display);
  auto list = longProperty(display, root, "_NET_CLIENT_LIST_STACKING", XA_WINDOW);
  if (!list) {
    list = longProperty(display, root, "_NET_CLIENT_LIST", XA_WINDOW);
  }
  checkConnection(display);
  if (!list) {
    throw WindowManagerError::windowListUnavailable(
        "the window manager publishes no _NET_CLIENT_LIST (is an EWMH window manager running?)");
  }
  std::vector<WindowInfo> windows;
  // The stacking list runs bottom to top; callers want the frontmost first.
  for (auto it = list->rbegin(); it != list->rend(); ++it) {
    std::optional<WindowInfo> info;
    // A window may close while we read it; its errors are expected, not failures.
    if (succeeds(display, [&] { info = describe(*it); }) && info) {
      windows.push_back(std::move(*info));
    }
  }
  checkConnection(display);
  return windows;
}

std::optional<std::uint32_t> X11WindowSystem::activeWindow() {
  const auto active = longProperty(display_.get(), DefaultRootWindow(display_.get()),
                                   "_NET_ACTIVE_WINDOW", XA_WINDOW);
  checkConnection(display_.get());
  if (!active || active->empty() || active->front() == 0) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(active->front());
}

void X11WindowSystem::sendToRoot(unsigned long window, const char* messageType,
                                 const long (&data)[5]) {
  Display* display = display_.get();
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = window;
  event.xclient.message_type = XInternAtom(display, messageType, False);
  event.xclient.format = 32;
  for (int i = 0; i < 5; ++i) {
    event.xclient.data.l[i] = data[i];
  }
  XSendEvent(display, DefaultRootWindow(display), False,
             SubstructureRedirectMask | SubstructureNotifyMask, &event);
  XSync(display, False);
  checkConnection(display);
}

// Source indication 2 (a pager or tool acting for the user) in the messages below: window
// managers apply focus-stealing prevention to source 1, an application's own request.
constexpr long kSourcePager = 2;

bool X11WindowSystem::activate(std::uint32_t id) {
  if (!exists(id)) {
    return false;
  }
  sendToRoot(id, "_NET_ACTIVE_WINDOW", {kSourcePager, CurrentTime, 0, 0, 0});
  return true;
}

bool X11WindowSystem::moveResize(std::uint32_t id, const ScreenRect& frame) {
  if (!exists(id)) {
    return false;
  }
  // Gravity NorthWest said explicitly: x and y then place the frame's top-left corner, while
  // width and height size the client. Flags bits 8 to 11 say x, y, width and height are given.
  constexpr long kNorthWest = 1;
  constexpr long kAllGiven = 0xF << 8;
  sendToRoot(
      id, "_NET_MOVERESIZE_WINDOW",
      {kNorthWest | kAllGiven | (kSourcePager << 12), frame.x, frame.y, frame.width, frame.height});
  return true;
}

void X11WindowSystem::allowAnySize(std::uint32_t id) {
  if (!exists(id)) {
    return;
  }
  // The window manager keeps a window to its size steps (WM_NORMAL_HINTS); without them it
  // honours any size, which the application then fills as it can.
  const XFreePtr<XSizeHints> hints(XAllocSizeHints());
  long supplied = 0;
  if (!hints || XGetWMNormalHints(display_.get(), id, hints.get(), &supplied) == 0 ||
      (hints->flags & PResizeInc) == 0) {
    return;
  }
  hints->flags &= ~PResizeInc;
  XSetWMNormalHints(display_.get(), id, hints.get());
  XSync(display_.get(), False);
}

bool X11WindowSystem::close(std::uint32_t id) {
  if (!exists(id)) {
    return false;
  }
  sendToRoot(id, "_NET_CLOSE_WINDOW", {CurrentTime, kSourcePager, 0, 0, 0});
  return true;
}

std::optional<WindowSizeSteps> X11WindowSystem::sizeSteps(std::uint32_t id) {
  if (!exists(id)) {
    return std::nullopt;
  }
  const XFreePtr<XSizeHints> hints(XAllocSizeHints());
  long supplied = 0;
  bool read = false;
  // The window may close between the two requests; its error is expected, not a failure.
  const bool answered = succeeds(display_.get(), [&] {
    read = hints && XGetWMNormalHints(display_.get(), id, hints.get(), &supplied) != 0;
  });
  checkConnection(display_.get());
  if (!answered || !read || (hints->flags & PResizeInc) == 0 || hints->width_inc <= 0 ||
      hints->height_inc <= 0) {
    return std::nullopt;
  }
  WindowSizeSteps steps{hints->width_inc, hints->height_inc, 0, 0};
  if ((hints->flags & PBaseSize) != 0) {
    steps.baseWidth = hints->base_width;
    steps.baseHeight = hints->base_height;
  } else if ((hints->flags & PMinSize) != 0) {
    steps.baseWidth = hints->min_width;
    steps.baseHeight = hints->min_height;
  }
  return steps;
}

}  // namespace brimble::x11
