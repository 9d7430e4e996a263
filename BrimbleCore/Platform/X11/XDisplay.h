#pragma once

#include <memory>
#include <stdexcept>
#include <string>

struct _XDisplay;  // Xlib's Display, declared here so that headers need no Xlib

namespace brimble::x11 {

struct XDisplayCloser {
  void operator()(_XDisplay* display) const noexcept;  // XCloseDisplay
};

/// One connection to an X server. Xlib connections must not be shared between threads without
/// XInitThreads; each thread that talks to X opens its own.
using XDisplayPtr = std::unique_ptr<_XDisplay, XDisplayCloser>;

/// Failures of a connection to an X server as a whole.
class XDisplayError : public std::runtime_error {
 public:
  enum class Code { connectionLost };

  /// The server went away under the connection: it ended, was stopped or crashed.
  static XDisplayError connectionLost(const std::string& displayName);

  Code code() const noexcept { return code_; }

 private:
  XDisplayError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// Connects to `name` (":0"; the platform's factory says which, and an empty name reaches
/// nothing). No value's pointer (null) when the server cannot be reached. Xlib's default handlers
/// exit the process on any error, from whatever thread meets it; on our connections an X error is
/// recorded instead (see `succeeds`), and a broken connection is marked lost: from then on every
/// request on it does nothing and fails, and `connectionLost` tells.
XDisplayPtr openDisplay(const std::string& name);

/// Whether the connection's server went away.
bool connectionLost(_XDisplay* display) noexcept;
/// Throws XDisplayError::connectionLost when it did.
void checkConnection(_XDisplay* display);

/// Runs `body` and reports whether the server answered it with an error: XSync is called before
/// and after, so errors of earlier requests are not counted and this request's are. For requests
/// that may legitimately fail (a window that vanished, a name that is not mapped).
template <typename Body>
bool succeeds(_XDisplay* display, Body body);

struct ScreenSize {
  int width = 0;
  int height = 0;
  bool operator==(const ScreenSize&) const = default;
};

/// The size of the display's default screen in pixels.
ScreenSize screenSize(_XDisplay* display) noexcept;

struct PointerState {
  int x = 0;  // on the root window
  int y = 0;
  unsigned mask = 0;  // the modifier keys and buttons held, as Xlib's state masks
};

/// Where the pointer is and what is held, asked of the server.
PointerState queryPointer(_XDisplay* display) noexcept;

/// The X error code of the last error recorded on this thread since `resetErrors`, or 0.
int lastError() noexcept;
void resetErrors() noexcept;
void syncDisplay(_XDisplay* display) noexcept;  // XSync(display, False)

template <typename Body>
bool succeeds(_XDisplay* display, Body body) {
  syncDisplay(display);
  resetErrors();
  body();
  syncDisplay(display);
  return lastError() == 0;
}

}  // namespace brimble::x11
