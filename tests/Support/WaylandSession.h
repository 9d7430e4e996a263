#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Support/Subprocess.h"

namespace brimble::testing {

/// A headless GNOME Wayland session for tests: a private session bus, PipeWire and WirePlumber,
/// mutter with one 1280x800 virtual monitor, and the desktop portals the bus starts on demand.
/// While it lives, this process's environment points at it as a user's login would
/// (DBUS_SESSION_BUS_ADDRESS, XDG_RUNTIME_DIR, WAYLAND_DISPLAY, XDG_SESSION_TYPE=wayland,
/// XDG_CURRENT_DESKTOP=GNOME; no DISPLAY), so the code under test finds it as it would the
/// user's desktop. Stopped, with everything the bus started, when it goes. One per process;
/// main thread.
class WaylandSession {
 public:
  struct Options {
    /// GNOME Shell as the compositor rather than bare mutter: the portal's window chooser lists
    /// the windows the shell tells it of, and mutter alone tells none. The shell needs a system
    /// bus, which the session brings (a private one), and it leaves its overview at once.
    bool shell = false;
  };

  /// Starts the session; null when this machine lacks mutter (or GNOME Shell, when asked for;
  /// the test skips then). Throws std::runtime_error when it does not come up.
  static std::unique_ptr<WaylandSession> start() { return start(Options{}); }
  static std::unique_ptr<WaylandSession> start(const Options& options);
  WaylandSession(const WaylandSession&) = delete;
  WaylandSession& operator=(const WaylandSession&) = delete;
  ~WaylandSession();

  /// The session's environment ("NAME=value"), for programs a test starts in it.
  const std::vector<std::string>& environment() const noexcept { return environment_; }

  /// Presses the screen-share dialog `delay` from now, as a user would (the monitor, then
  /// Share), in the background.
  void approveScreenCastAfter(std::chrono::milliseconds delay);
  /// Allows remote interaction in the remote-desktop dialog `delay` from now.
  void approveRemoteDesktopAfter(std::chrono::milliseconds delay);
  /// Picks the window titled `title` in the screen-share dialog's window list, and Share, once
  /// the dialog lists it (it looks from `delay` on, for 20 seconds). Needs `Options::shell`.
  void approveWindowAfter(std::chrono::milliseconds delay, const std::string& title);
  /// Cancels whichever dialog is open `delay` from now (Escape).
  void cancelDialogAfter(std::chrono::milliseconds delay);
  /// Waits for the last approval or cancellation to finish. False when it failed.
  bool waitForDialogHelper(std::chrono::milliseconds timeout = std::chrono::seconds(30));

  /// Starts a GTK 3 window (`program` from gtk-3-examples, for example "gtk3-widget-factory")
  /// in the session; ends with the session.
  void startApplication(const std::vector<std::string>& arguments);

  /// Starts a window of one `colour` ("#rrggbb"), `width` by `height` and without a title bar
  /// (tests/Support/wayland-colour-window.py), of the application `app`, titled `title`; ends
  /// with the session. Its id on the accessibility bus, as `brimble windows` lists it, once it
  /// is listed there; no value when it is not within 20 seconds.
  std::optional<std::uint32_t> startColourWindow(const std::string& app, const std::string& title,
                                                 int width, int height, const std::string& colour);

  /// Moves the pointer to (`x`, `y`) of the monitor as a user's mouse would, and returns once it
  /// is there. False when the helper failed.
  bool movePointer(int x, int y);

  /// Acts as the user's mouse and keyboard, one action after another (tests/Support/
  /// wayland-input.py: "drag:X1,Y1,X2,Y2", "click:X,Y", "key:Return", "sleep:0.5", ...). False
  /// when the helper failed.
  bool input(const std::vector<std::string>& actions);

  /// Runs `command` while the session has a keyboard (the headless seat has one only while
  /// input is being sent, and clipboard clients need one) and returns what it wrote; no value
  /// when it failed.
  std::optional<std::string> withKeyboard(const std::vector<std::string>& command);

  /// The compositor's process, for measuring what it costs.
  pid_t compositorPid() const noexcept { return compositor_.pid(); }

  /// Kills the compositor (SIGKILL), as a crash would, and waits for it to be gone. Its screen
  /// casts end with it.
  void killCompositor();

 private:
  WaylandSession() = default;
  void dialogHelper(std::chrono::milliseconds delay, const char* mode,
                    const std::string& argument = {});

  std::filesystem::path runtime_;
  std::vector<std::string> environment_;
  Subprocess bus_;
  Subprocess systemBus_;
  Subprocess pipewire_;
  Subprocess wireplumber_;
  Subprocess compositor_;
  Subprocess dialog_;
  std::vector<Subprocess> applications_;
};

}  // namespace brimble::testing
