#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "BrimbleCore/Automation/AccessibilityBackend.h"
#include "BrimbleCore/Automation/AppLauncher.h"
#include "BrimbleCore/Automation/TerminalLook.h"
#include "BrimbleCore/Automation/WindowManagerError.h"
#include "BrimbleCore/Automation/WindowSystem.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// The window an application name resolved to, and how many other windows matched it.
struct WindowMatch {
  WindowInfo window;
  int otherMatches = 0;
};

/// A process id, to look a window up by its owner.
struct OwnerPID {
  int value = 0;
};

/// Finds, opens, focuses, resizes and closes application windows for scripts and assistants.
/// Application names go through one alias table ("Terminal", "TextEdit", "Finder" name the
/// Linux programs that play those parts); any other name is a program name, and a window belongs
/// to an application when its name contains the requested one, ignoring case. The window system,
/// launcher and clock are borrowed and must outlive it. One thread at a time.
class WindowManager {
 public:
  /// `accessibility`, when given, is borrowed as well: dialogs and element targets in native
  /// applications need it.
  WindowManager(WindowSystem& windowSystem, AppLauncher& launcher, Clock& clock,
                AccessibilityBackend* accessibility = nullptr);

  /// The programs an application name stands for, in order of preference: "Terminal" is the
  /// first installed of x-terminal-emulator, gnome-terminal, konsole, xfce4-terminal and xterm;
  /// any other name not in the table is its own program, lower-cased.
  static std::vector<std::string> programsFor(std::string_view appName);

  /// The windows on screen, frontmost first. Throws WindowManagerError.
  std::vector<WindowInfo> windows();
  /// The windows of an application, best match first (as `find` ranks them). Throws
  /// WindowManagerError.
  std::vector<WindowInfo> windows(std::string_view appName);

  /// The window of an application: windows whose application name equals the request (or one
  /// of its programs) come before those that merely contain it, then the frontmost wins.
  /// Throws WindowManagerError when there is no window list.
  std::optional<WindowMatch> find(std::string_view appName);
  std::optional<WindowInfo> find(std::uint32_t id);
  /// The window that has the keyboard focus, if any.
  std::optional<std::uint32_t> focusedWindow() { return windowSystem_.activeWindow(); }
  /// The steps window `id` sizes in (a terminal's character cells), if it asks for any.
  std::optional<WindowSizeSteps> sizeSteps(std::uint32_t id) { return windowSystem_.sizeSteps(id); }
  /// The frontmost window of a process, ignoring windows without width or height.
  std::optional<WindowInfo> find(OwnerPID ownerPID);

  /// Starts the application and returns its new window, focused: the first window of the
  /// application that was not there before the launch (up to 10 seconds later), else its
  /// frontmost window. A program that hands the request to a running instance still counts,
  /// since the window, not the process, is watched. `environment` ("NAME=value") reaches the
  /// program started (not a running instance it hands over to). Throws WindowManagerError.
  std::uint32_t openApp(std::string_view name, const std::vector<std::string>& environment = {});
  /// Opens a terminal dressed as `look`, as `openApp("Terminal")` does: xterm, whose look can
  /// be set for one window, whatever terminal the system prefers. With a `log` file, the
  /// terminal appends to it everything its programs write to it. Throws WindowManagerError
  /// (launchFailed when xterm is not installed).
  std::uint32_t openTerminal(const TerminalLook& look, const std::filesystem::path& log = {},
                             const std::vector<std::string>& environment = {});
  /// Raises and focuses the application's window. Throws WindowManagerError.
  void focusApp(std::string_view name);
  /// Raises and focuses the window `id` and waits (briefly) until it has the focus; a window
  /// that does not take it is logged.
  void focus(std::uint32_t id);
  /// Moves the application's window to the top-left corner, sizes its content and returns where
  /// the content is the window manager has carried it out. Terminals size in character
  /// cells, so they may end a few pixels smaller. A window that keeps its size is
  /// WindowManagerError::requestRefused ("Cannot resize window 0x... to 800x600: it stayed
  /// 300x200 ..."); one that changes but stops short of the size (a limit of its own) logs a
  /// warning naming both sizes. Throws WindowManagerError windowNotFound as well.
  ScreenRect resize(std::string_view appName, int width, int height);
  /// The same for the window `id`. Throws as above, and windowNotFound when there is no such
  /// window.
  ScreenRect resize(std::uint32_t id, int width, int height);
  /// Lets window `id` take sizes between its own steps (WindowSystem::allowAnySize).
  void allowAnySize(std::uint32_t id) { windowSystem_.allowAnySize(id); }
  /// Asks a window to close; a failure is logged. Throws WindowManagerError (requestRefused)
  /// where the platform has no way to close it.
  void close(std::string_view appName, std::uint32_t windowID);
  /// Closes the windows `openApp` opened that are still there; a window the platform refuses
  /// to close is logged.
  void cleanupScriptWindows();

  /// Whether applications can be driven by element: there is an accessibility service and it
  /// answers. When not, and not `quiet`, logs "Warning: <command> requires Accessibility
  /// (<what the service says it needs>). ...".
  bool accessibilityGranted(bool quiet, std::string_view command);
  /// Presses `button` in the topmost dialog of the application and returns the line to report:
  /// "Clicked 'OK' in gedit dialog", or a warning when there is no such button (or no dialog, or
  /// no application name). Throws WindowManagerError when the application has no window, and
  /// DemoDriverError::permissionDenied without an accessibility service.
  std::string clickButtonInDialog(std::string_view appName, const std::string& button);
  /// Closes the topmost dialog of the application with Escape; reports as above ("Dismissed
  /// dialog in gedit — sent Escape").
  std::string dismissDialog(std::string_view appName);
  /// The accessibility service, or null when there is none.
  AccessibilityBackend* accessibility() const noexcept { return accessibility_; }

 private:
  /// The process whose dialogs answer for `appName`. Throws DemoDriverError::permissionDenied
  /// without an accessibility service, WindowManagerError when the application has no window.
  int dialogOwner(std::string_view appName);
  /// Starts `program` with `arguments` for the application `name` and returns its new window,
  /// as `openApp` says.
  std::uint32_t openProgram(std::string_view name, const std::string& program,
                            const std::vector<std::string>& arguments,
                            const std::vector<std::string>& environment);
  void sleepFor(double seconds);

  WindowSystem& windowSystem_;
  AppLauncher& launcher_;
  Clock& clock_;
  AccessibilityBackend* accessibility_;
  std::vector<std::pair<std::uint32_t, std::string>> scriptWindows_;  // id, requested name
};

}  // namespace brimble
