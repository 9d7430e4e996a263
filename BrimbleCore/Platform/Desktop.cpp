#include "BrimbleCore/Platform/Desktop.h"

#include <utility>

#include "BrimbleCore/Capture/ScreenSegmentRecorder.h"

namespace brimble {

const char* serverName(DesktopSession::Server server) {
  return server == DesktopSession::Server::wayland ? "wayland" : "x11";
}

Desktop::Desktop(DesktopSession session, PlatformTexts texts, std::vector<std::string> environment,
                 Backends backends, std::unique_ptr<EmbeddedDisplay> display, Clock& clock)
    : session_(std::move(session)),
      texts_(std::move(texts)),
      environment_(std::move(environment)),
      backends_(std::move(backends)),
      clock_(clock),
      display_(std::move(display)) {}

Desktop::~Desktop() {
  // The users of a part before the part: the window manager holds the window system, the
  // launcher and the accessibility service; the simulator holds the input backend.
  windows_.reset();
  input_.reset();
}

ScreenSource& Desktop::screen() {
  if (!screen_) {
    screen_ = backends_.screen();
  }
  return *screen_;
}

InputSimulator& Desktop::input() {
  if (!input_) {
    inputBackend_ = backends_.input();
    input_ = std::make_unique<InputSimulator>(*inputBackend_, clock_);
  }
  return *input_;
}

WindowSystem& Desktop::windowSystem() {
  if (!windowSystem_) {
    windowSystem_ = backends_.windows();
  }
  return *windowSystem_;
}

AppLauncher& Desktop::launcher() {
  if (!launcher_) {
    launcher_ = backends_.launcher();
  }
  return *launcher_;
}

AccessibilityBackend* Desktop::accessibility() {
  if (!accessibilityMade_) {
    accessibilityMade_ = true;
    if (backends_.accessibility) {
      accessibility_ = backends_.accessibility();
    }
  }
  return accessibility_.get();
}

WindowManager& Desktop::windows() {
  if (!windows_) {
    windows_ = makeWindowManager();
  }
  return *windows_;
}

std::unique_ptr<WindowManager> Desktop::makeWindowManager() {
  return std::make_unique<WindowManager>(windowSystem(), launcher(), clock_, accessibility());
}

BrowserLauncher* Desktop::browsers() {
  if (!browsersMade_) {
    browsersMade_ = true;
    if (backends_.browsers) {
      browsers_ = backends_.browsers();
    }
  }
  return browsers_.get();
}

std::unique_ptr<EventCapture> Desktop::makeEventCapture() {
  return backends_.eventCapture ? backends_.eventCapture(clock_) : nullptr;
}

std::unique_ptr<SegmentRecorder> Desktop::makeSegmentRecorder() {
  return std::make_unique<ScreenSegmentRecorder>(screen(), clock_,
                                                 [this] { return makeEventCapture(); });
}

std::unique_ptr<GlobalHotkey> Desktop::makeGlobalHotkey(const std::string& shortcut) {
  if (!backends_.globalHotkey) {
    throw GlobalHotkeyError::unavailable("This desktop takes no global shortcuts.");
  }
  return backends_.globalHotkey(shortcut);
}

}  // namespace brimble
