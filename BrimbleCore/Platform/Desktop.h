#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/AccessibilityBackend.h"
#include "BrimbleCore/Automation/AppLauncher.h"
#include "BrimbleCore/Automation/BrowserSession.h"
#include "BrimbleCore/Automation/EventCapture.h"
#include "BrimbleCore/Automation/GlobalHotkey.h"
#include "BrimbleCore/Automation/InputBackend.h"
#include "BrimbleCore/Automation/InputSimulator.h"
#include "BrimbleCore/Automation/WindowManager.h"
#include "BrimbleCore/Automation/WindowSystem.h"
#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Capture/SegmentRecorder.h"
#include "BrimbleCore/Platform/EmbeddedDisplay.h"
#include "BrimbleCore/Platform/PlatformTexts.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// Which session a desktop drives, and why that one.
struct DesktopSession {
  /// The display server's protocol, which picks the backend.
  enum class Server { x11, wayland };

  /// What clients connect to (":0", ":99", "wayland-0").
  std::string name;
  /// Brimble's own display rather than the user's.
  bool embedded = false;
  /// Why this session: "$DISPLAY names it", "--headless was given", ...
  std::string reason;
  Server server = Server::x11;
};

/// "x11" or "wayland".
const char* serverName(DesktopSession::Server server);

class DesktopError : public std::runtime_error {
 public:
  enum class Code { noUserSession };

  /// The user's own session was asked for and there is none; `missing` says what is missing in
  /// the platform's words ("$DISPLAY is not set").
  static DesktopError noUserSession(const std::string& missing) {
    return {Code::noUserSession, missing};
  }

  Code code() const noexcept { return code_; }

 private:
  DesktopError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// One session's desktop as Brimble drives it: its screen, input, windows, the programs started
/// there, its accessibility service, browsers, global shortcuts and recorders, and which session
/// it is. The platform's factory (BrimbleCore/Platform/PlatformBackend.h) builds it once per
/// command, and everything that acts on the screen takes it by reference; tests build one from
/// fakes. Each part is made the first time it is asked for, so a command connects only to what
/// it uses, and lives as long as the desktop. One thread at a time; what it hands out has the
/// thread contract of its own interface.
class Desktop {
 public:
  /// How each part is made, by the platform. Called at most once each (the event capture, the
  /// global shortcut and the recorders once per request). A part may be left empty where the
  /// platform has none (accessibility, browsers, event capture).
  struct Backends {
    std::function<std::unique_ptr<ScreenSource>()> screen;
    std::function<std::unique_ptr<InputBackend>()> input;
    std::function<std::unique_ptr<WindowSystem>()> windows;
    std::function<std::unique_ptr<AppLauncher>()> launcher;
    std::function<std::unique_ptr<AccessibilityBackend>()> accessibility;
    std::function<std::unique_ptr<BrowserLauncher>()> browsers;
    std::function<std::unique_ptr<EventCapture>(const Clock& clock)> eventCapture;
    /// Throws GlobalHotkeyError.
    std::function<std::unique_ptr<GlobalHotkey>(const std::string& shortcut)> globalHotkey;
  };

  /// `environment` ("NAME=value") is what programs started on this desktop need; `display`,
  /// when Brimble started the session itself, is stopped after every part is gone.
  Desktop(DesktopSession session, PlatformTexts texts, std::vector<std::string> environment,
          Backends backends, std::unique_ptr<EmbeddedDisplay> display = nullptr,
          Clock& clock = steadyClock());
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;
  ~Desktop();

  const DesktopSession& session() const noexcept { return session_; }
  /// How the platform words what it cannot do.
  const PlatformTexts& texts() const noexcept { return texts_; }
  /// The display Brimble started for this desktop; null on the user's own.
  const EmbeddedDisplay* embeddedDisplay() const noexcept { return display_.get(); }
  /// What programs started on this desktop need in their environment ("NAME=value").
  const std::vector<std::string>& environment() const noexcept { return environment_; }
  Clock& clock() const noexcept { return clock_; }

  /// The screen. Nothing connects until it is used.
  ScreenSource& screen();
  InputSimulator& input();
  /// Throws WindowManagerError when the windows cannot be reached.
  WindowSystem& windowSystem();
  /// Starts programs detached on this desktop, with their accessibility trees switched on.
  AppLauncher& launcher();
  /// Null where the platform has no accessibility service.
  AccessibilityBackend* accessibility();
  /// The window manager of the desktop's windows.
  WindowManager& windows();
  /// A window manager of its own, for a script: its clean-up closes only the windows that
  /// script opened.
  std::unique_ptr<WindowManager> makeWindowManager();
  /// Null where the platform cannot start a browser.
  BrowserLauncher* browsers();
  /// A listener of the input on this desktop; null where the platform cannot listen.
  std::unique_ptr<EventCapture> makeEventCapture();
  /// A recorder of one segment: frames, and the input while it runs.
  std::unique_ptr<SegmentRecorder> makeSegmentRecorder();
  /// Grabs `shortcut` system-wide. Throws GlobalHotkeyError.
  std::unique_ptr<GlobalHotkey> makeGlobalHotkey(const std::string& shortcut);

 private:
  DesktopSession session_;
  PlatformTexts texts_;
  std::vector<std::string> environment_;
  Backends backends_;
  Clock& clock_;
  // Declared before the parts, so destroyed after them: they talk to it.
  std::unique_ptr<EmbeddedDisplay> display_;
  std::unique_ptr<ScreenSource> screen_;
  std::unique_ptr<InputBackend> inputBackend_;
  std::unique_ptr<InputSimulator> input_;
  std::unique_ptr<WindowSystem> windowSystem_;
  std::unique_ptr<AppLauncher> launcher_;
  bool accessibilityMade_ = false;
  std::unique_ptr<AccessibilityBackend> accessibility_;
  std::unique_ptr<WindowManager> windows_;
  bool browsersMade_ = false;
  std::unique_ptr<BrowserLauncher> browsers_;
};

}  // namespace brimble
