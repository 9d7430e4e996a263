#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/WindowSystem.h"
#include "BrimbleCore/Platform/X11/XDisplay.h"

namespace brimble::x11 {

/// Windows as an EWMH window manager publishes them, on a connection of its own: the list from
/// _NET_CLIENT_LIST_STACKING, titles from _NET_WM_NAME (else WM_NAME), application names from
/// WM_CLASS (else the process name), process ids from the X-Resource extension (else
/// _NET_WM_PID), frames including _NET_FRAME_EXTENTS. Requests are EWMH client messages from a
/// pager (source indication 2). When the server goes away, calls throw
/// XDisplayError::connectionLost. One thread at a time.
class X11WindowSystem final : public WindowSystem {
 public:
  /// Connects to `displayName`. Throws WindowManagerError when the display
  /// cannot be reached.
  explicit X11WindowSystem(const std::string& displayName);

  std::vector<WindowInfo> windows() override;
  std::optional<std::uint32_t> activeWindow() override;
  bool activate(std::uint32_t id) override;
  bool moveResize(std::uint32_t id, const ScreenRect& frame) override;
  void allowAnySize(std::uint32_t id) override;
  bool close(std::uint32_t id) override;
  /// From WM_NORMAL_HINTS: its resize increment and base size (else its minimum size, as ICCCM
  /// says).
  std::optional<WindowSizeSteps> sizeSteps(std::uint32_t id) override;

 private:
  std::optional<WindowInfo> describe(unsigned long window);
  bool exists(unsigned long window);
  void sendToRoot(unsigned long window, const char* messageType, const long (&data)[5]);

  XDisplayPtr display_;
  bool clientIDs_ = false;  // whether X-Resource can tell a window's pid
};

}  // namespace brimble::x11
