#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/Support/ChildProcess.h"

namespace brimble::testing {

/// Moves the pointer of $DISPLAY to (`x`, `y`) of the screen.
void warpPointer(int x, int y);

/// Asks for `window` on $DISPLAY to become `width` x `height` (a window manager passes it on).
void resizeWindow(std::uint32_t window, int width, int height);

/// A window of our X test client (BrimbleX11TestClient) on $DISPLAY, closed with the object.
class TestWindow {
 public:
  /// Starts the client with `arguments` (--color, --size, --position, --class ...) and waits
  /// until its window is mapped. Fails the current test when it does not appear.
  explicit TestWindow(const std::vector<std::string>& arguments);

  std::uint32_t id() const noexcept { return id_; }
  /// Ends the client, which destroys its window.
  void close() { process_.closeInput(); }

 private:
  ChildProcess process_;
  std::uint32_t id_ = 0;
};

}  // namespace brimble::testing
