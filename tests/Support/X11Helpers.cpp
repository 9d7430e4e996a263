#include "tests/Support/X11Helpers.h"

#include <chrono>
#include <stdexcept>
#include <thread>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>

namespace brimble::testing {

void setLocks(const std::string& displayName, bool capsLock, bool numLock) {
  Display* display = XOpenDisplay(displayName.c_str());
  if (display == nullptr) {
    throw std::runtime_error("cannot open display " + displayName);
  }
  // Mod2 is NumLock in every keymap Xvfb starts with.
  const unsigned wanted = (capsLock ? LockMask : 0u) | (numLock ? Mod2Mask : 0u);
  XkbLockModifiers(display, XkbUseCoreKbd, LockMask | Mod2Mask, wanted);
  XSync(display, False);
  XCloseDisplay(display);
}

bool eventually(const std::function<bool()>& condition) {
  for (int i = 0; i < 500; ++i) {
    if (condition()) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

TestWindow::TestWindow(const std::vector<std::string>& arguments)
    : process_([&] {
        std::vector<std::string> command{BRIMBLE_X11_TEST_CLIENT};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
      }()) {
  while (const auto line = nextLine()) {
    if (line->starts_with("window ")) {
      id_ = static_cast<std::uint32_t>(std::stoul(line->substr(7)));
      return;
    }
  }
  throw std::runtime_error("the test window did not appear: " + process_.errorOutput());
}

std::optional<std::string> TestWindow::nextLine() {
  return process_.readLine(std::chrono::seconds(5));
}

bool TestWindow::waitFor(const std::string& wanted) {
  while (const auto line = nextLine()) {
    if (*line == wanted) {
      return true;
    }
  }
  return false;
}

std::vector<std::string> TestWindow::lines(std::size_t count) {
  std::vector<std::string> read;
  while (read.size() < count) {
    const auto line = nextLine();
    if (!line) {
      break;
    }
    read.push_back(*line);
  }
  return read;
}

}  // namespace brimble::testing
