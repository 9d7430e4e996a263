// Xlib here and GoogleTest never: Xlib's macros (None, Bool, Status) break gtest's headers.
#include "tests/Support/X11Helpers.h"

#include <chrono>
#include <stdexcept>

#include <X11/Xlib.h>

namespace brimble::testing {
namespace {

/// Runs `body` on a fresh connection to $DISPLAY and waits until the server has done it.
template <typename Body>
void withDisplay(Body body) {
  Display* display = XOpenDisplay(nullptr);
  if (display == nullptr) {
    throw std::runtime_error("cannot open $DISPLAY");
  }
  body(display);
  XSync(display, False);
  XCloseDisplay(display);
}

}  // namespace

void warpPointer(int x, int y) {
  withDisplay([&](Display* display) {
    XWarpPointer(display, None, DefaultRootWindow(display), 0, 0, 0, 0, x, y);
  });
}

void resizeWindow(std::uint32_t window, int width, int height) {
  withDisplay([&](Display* display) {
    XResizeWindow(display, window, static_cast<unsigned>(width), static_cast<unsigned>(height));
  });
}

TestWindow::TestWindow(const std::vector<std::string>& arguments)
    : process_([&] {
        std::vector<std::string> command{BRIMBLE_X11_TEST_CLIENT};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
      }()) {
  while (const auto line = process_.readLine(std::chrono::seconds(10))) {
    if (line->rfind("window ", 0) == 0) {
      id_ = static_cast<std::uint32_t>(std::stoul(line->substr(7)));
      return;
    }
  }
  throw std::runtime_error("the test window did not appear: " + process_.errorOutput());
}

}  // namespace brimble::testing
