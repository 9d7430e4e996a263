#include "BrimbleCore/Platform/X11/XDisplay.h"

#include <mutex>

#include <X11/Xlib.h>

namespace brimble::x11 {
namespace {

thread_local int lastErrorCode = 0;

// Xlib's default handler prints and exits the process; a vanished window is routine for us.
int recordError(Display*, XErrorEvent* event) {
  lastErrorCode = event->error_code;
  return 0;
}

}  // namespace

void XDisplayCloser::operator()(_XDisplay* display) const noexcept {
  XCloseDisplay(display);
}

XDisplayPtr openDisplay(const std::string& name) {
  static std::once_flag installed;
  std::call_once(installed, [] { XSetErrorHandler(recordError); });
  return XDisplayPtr(XOpenDisplay(name.empty() ? nullptr : name.c_str()));
}

ScreenSize screenSize(_XDisplay* display) noexcept {
  return {DisplayWidth(display, DefaultScreen(display)),
          DisplayHeight(display, DefaultScreen(display))};
}

PointerState queryPointer(_XDisplay* display) noexcept {
  Window root = 0;
  Window child = 0;
  PointerState state;
  int windowX = 0;
  int windowY = 0;
  XQueryPointer(display, DefaultRootWindow(display), &root, &child, &state.x, &state.y, &windowX,
                &windowY, &state.mask);
  return state;
}

int lastError() noexcept {
  return lastErrorCode;
}

void resetErrors() noexcept {
  lastErrorCode = 0;
}

void syncDisplay(_XDisplay* display) noexcept {
  XSync(display, False);
}

}  // namespace brimble::x11
