#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/Support/ChildProcess.h"

namespace brimble::testing {

/// Turns CapsLock and NumLock on or off on `displayName`, as the lock keys' lights would show.
void setLocks(const std::string& displayName, bool capsLock, bool numLock);

/// Polls `condition` every 10 ms for up to 5 seconds: windows appear and change asynchronously.
bool eventually(const std::function<bool()>& condition);

/// A window of our X test client (BrimbleX11TestClient) on $DISPLAY, which reports the events
/// it receives as lines (see X11TestClient.cpp). Closed with the object.
class TestWindow {
 public:
  /// Starts the client with `arguments` (--color, --size, --max-size, --position, --class,
  /// --title) and waits until its window is mapped. Throws when it does not appear.
  explicit TestWindow(const std::vector<std::string>& arguments = {});

  std::uint32_t id() const noexcept { return id_; }
  pid_t pid() const noexcept { return process_.pid(); }

  /// The client's next line; no value after 5 seconds without one.
  std::optional<std::string> nextLine();
  /// Reads lines until `wanted`; false when it does not come.
  bool waitFor(const std::string& wanted);
  /// The next `count` lines (fewer when they stop coming).
  std::vector<std::string> lines(std::size_t count);

  /// Moves the pointer there as a program does (XWarpPointer), not as a device would.
  void warpPointer(int x, int y) { process_.write(command("warp", x, y)); }
  /// Asks for the window to be `width` x `height` (the window manager passes it on).
  void resize(int width, int height) { process_.write(command("resize", width, height)); }
  /// Repaints the window in `rgb` (0xRRGGBB).
  void setColor(unsigned rgb) {
    char line[32];
    std::snprintf(line, sizeof line, "color %06x\n", rgb);
    process_.write(line);
  }
  /// Ends the client, which destroys its window.
  void close() { process_.closeInput(); }
  std::string errorOutput() { return process_.errorOutput(); }

 private:
  static std::string command(const std::string& name, int a, int b) {
    return name + " " + std::to_string(a) + " " + std::to_string(b) + "\n";
  }

  ChildProcess process_;
  std::uint32_t id_ = 0;
};

}  // namespace brimble::testing
