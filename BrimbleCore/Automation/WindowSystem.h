#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Capture/ScreenRect.h"

namespace brimble {

/// One application window on screen.
struct WindowInfo {
  std::uint32_t id = 0;
  std::string title;
  /// The owning application's name; empty when nothing names it.
  std::string appName;
  /// The owning process; 0 when unknown.
  int pid = 0;
  /// The whole window, with the window manager's decorations.
  ScreenRect frame;
  /// The application's own area inside the decorations.
  ScreenRect contentFrame;
  /// Whether the frames are where the window is on screen. False where the platform tells only
  /// a window's size (a Wayland client does not know where its window is): the frames then hold
  /// that size at 0,0.
  bool positionKnown = true;
  bool operator==(const WindowInfo&) const = default;
};

/// How a window that sizes in steps counts its size: its content is `base` plus a whole number
/// of `step`s (a terminal: its padding plus character cells).
struct WindowSizeSteps {
  int stepWidth = 0;
  int stepHeight = 0;
  int baseWidth = 0;
  int baseHeight = 0;
  bool operator==(const WindowSizeSteps&) const = default;
};

/// What window management needs from a platform: the list of windows and requests to the
/// window manager. Requests are asynchronous: they are delivered when the call returns, and the
/// window manager carries them out soon after. One thread at a time.
class WindowSystem {
 public:
  WindowSystem() = default;
  WindowSystem(const WindowSystem&) = delete;
  WindowSystem& operator=(const WindowSystem&) = delete;
  WindowSystem(WindowSystem&&) = delete;
  WindowSystem& operator=(WindowSystem&&) = delete;
  virtual ~WindowSystem() = default;

  /// The windows on screen, frontmost first. Throws WindowManagerError when the display or its
  /// window manager keeps no list.
  virtual std::vector<WindowInfo> windows() = 0;
  /// The window that has the keyboard focus, if any.
  virtual std::optional<std::uint32_t> activeWindow() = 0;

  /// Asks for the window to be raised and focused. False when there is no such window.
  virtual bool activate(std::uint32_t id) = 0;
  /// Asks for the window's top-left corner, decorations included, to go to `frame`'s x and y
  /// and for its content to take `frame`'s width and height. False when there is no such window.
  virtual bool moveResize(std::uint32_t id, const ScreenRect& frame) = 0;
  /// Lets the window take any size, not only whole steps of its own (a terminal's cells), so a
  /// `moveResize` after it gives the exact size asked; the application fills what is left over.
  /// Nothing to do where windows size freely.
  virtual void allowAnySize(std::uint32_t /*id*/) {}
  /// Asks the window to close, as its close button would. False when there is no such window.
  virtual bool close(std::uint32_t id) = 0;
  /// The steps the window's application asks it to be sized in; no value when it asks for none,
  /// there is no such window, or the platform does not tell (the default).
  virtual std::optional<WindowSizeSteps> sizeSteps(std::uint32_t id) {
    static_cast<void>(id);
    return std::nullopt;
  }
};

}  // namespace brimble
