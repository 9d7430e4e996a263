#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Platform/CapabilityCheck.h"
#include "BrimbleCore/Platform/Desktop.h"
#include "BrimbleCore/Platform/PlatformTexts.h"

namespace brimble {

/// The desktop the MCP tools drive, opened the first time a tool needs the screen, so a server
/// that only answers questions never starts a display, and kept for the server's life. Which
/// desktop that is, the composition root decides through `open`. Everything it returns lives as
/// long as it does. Called on the server's thread only: an embedded display's programs die with
/// the thread that started them.
class MCPDesktop {
 public:
  using Opener = std::function<std::unique_ptr<Desktop>()>;
  /// The machine's capability checks, as `brimble doctor` makes them.
  using Checklist = std::function<std::vector<CapabilityCheck>()>;

  /// The desktop application, when installed.
  struct AppInfo {
    bool installed = false;
    std::string path;
    std::string version;
  };

  /// `texts` word the failures before any desktop is open.
  MCPDesktop(Opener open, PlatformTexts texts);
  MCPDesktop(const MCPDesktop&) = delete;
  MCPDesktop& operator=(const MCPDesktop&) = delete;

  /// The desktop, opened now if it was not yet. Throws MCPToolError with the Screen Recording
  /// text when it cannot be opened, now and on every later call.
  Desktop& desktop();
  /// The session in use; no value while none was needed yet.
  std::optional<DesktopSession> session() const;
  const PlatformTexts& texts() const noexcept { return texts_; }
  /// Where `checklist` gets its checks; none are given until this is called.
  void setChecklist(Checklist checklist) { checklist_ = std::move(checklist); }
  /// The capability checks of this machine (a few seconds at most); empty without a source.
  std::vector<CapabilityCheck> checklist() const {
    return checklist_ ? checklist_() : std::vector<CapabilityCheck>{};
  }
  /// brimble-app on PATH, and what its --version says.
  AppInfo desktopApp() const;

  ScreenSource& screen() { return desktop().screen(); }
  InputSimulator& input() { return desktop().input(); }
  WindowManager& windows() { return desktop().windows(); }
  /// A window manager of its own, for a script: its clean-up closes only the windows that
  /// script opened, never those the assistant opened with the tools.
  std::unique_ptr<WindowManager> makeWindowManager() { return desktop().makeWindowManager(); }
  std::unique_ptr<SegmentRecorder> makeRecorder() { return desktop().makeSegmentRecorder(); }
  /// Null where no browser can be started.
  BrowserLauncher* browsers() { return desktop().browsers(); }
  /// What programs started on the desktop need in their environment ("NAME=value").
  const std::vector<std::string>& environment() { return desktop().environment(); }
  Clock& clock() { return desktop().clock(); }

 private:
  Opener open_;
  Checklist checklist_;
  PlatformTexts texts_;
  bool failed_ = false;
  std::unique_ptr<Desktop> desktop_;
};

}  // namespace brimble
