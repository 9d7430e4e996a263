#include "BrimbleCore/Platform/X11/XDisplay.h"

#include <mutex>
#include <set>

#include <X11/Xlib.h>

namespace brimble::x11 {
namespace {

thread_local int lastErrorCode = 0;

// Xlib's default handler prints and exits the process; a vanished window is routine for us.
int recordError(Display*, XErrorEvent* event) {
  lastErrorCode = event->error_code;
  return 0;
}

std::mutex lostMutex;  // guards lostConnections
std::set<Display*> lostConnections;

// Xlib calls the process-wide handler, then the connection's exit handler, whose default calls
// exit(1): a recording would die with its frames unsaved. Both return instead; Xlib then marks
// the connection broken and fails every later request on it without touching the socket.
int ignoreIOError(Display*) {
  return 0;
}

void markLost(Display* display, void*) {
  std::scoped_lock lock(lostMutex);
  lostConnections.insert(display);
}

}  // namespace

XDisplayError XDisplayError::connectionLost(const std::string& displayName) {
  return {Code::connectionLost,
          "Lost the connection to the X display " + displayName + ": the X server ended."};
}

void XDisplayCloser::operator()(_XDisplay* display) const noexcept {
  {
    std::scoped_lock lock(lostMutex);
    lostConnections.erase(display);
  }
  XCloseDisplay(display);
}

XDisplayPtr openDisplay(const std::string& name) {
  static std::once_flag installed;
  std::call_once(installed, [] {
    XSetErrorHandler(recordError);
    XSetIOErrorHandler(ignoreIOError);
  });
  if (name.empty()) {
    return nullptr;  // Xlib would fall back to $DISPLAY
  }
  XDisplayPtr display(XOpenDisplay(name.c_str()));
  if (display) {
    XSetIOErrorExitHandler(display.get(), markLost, nullptr);
  }
  return display;
}

bool connectionLost(_XDisplay* display) noexcept {
  std::scoped_lock lock(lostMutex);
  return lostConnections.count(display) > 0;
}

void checkConnection(_XDisplay* display) {
  if (connectionLost(display)) {
    throw XDisplayError::connectionLost(DisplayString(display));
  }
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
