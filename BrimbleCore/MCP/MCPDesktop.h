#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/BrowserSession.h"
#include "BrimbleCore/Automation/InputSimulator.h"
#include "BrimbleCore/Automation/WindowManager.h"
#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Capture/SegmentRecorder.h"
#include "BrimbleCore/Platform/PlatformTexts.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// The desktop the MCP tools drive: its screen, input, windows, recorders and browsers. The
/// composition root decides which display that is and brings it up the first time a tool needs
/// it, so a server that only answers questions never starts one. Everything it returns lives as
/// long as it does. Called on the server's thread only.
class MCPDesktop {
 public:
  /// Which display is in use, and why that one.
  struct DisplayInfo {
    std::string name;
    bool embedded = false;
    std::string reason;
  };
  /// The desktop application, when installed.
  struct AppInfo {
    bool installed = false;
    std::string path;
    std::string version;
  };

  MCPDesktop() = default;
  MCPDesktop(const MCPDesktop&) = delete;
  MCPDesktop& operator=(const MCPDesktop&) = delete;
  MCPDesktop(MCPDesktop&&) = delete;
  MCPDesktop& operator=(MCPDesktop&&) = delete;
  virtual ~MCPDesktop() = default;

  /// The screen, its display brought up when needed. Throws MCPToolError with the Screen
  /// Recording text when there is no display to capture.
  virtual ScreenSource& screen() = 0;
  virtual InputSimulator& input() = 0;
  virtual WindowManager& windows() = 0;
  /// A window manager of its own, for a script: its clean-up closes only the windows that
  /// script opened, never those the assistant opened with the tools.
  virtual std::unique_ptr<WindowManager> makeWindowManager() = 0;
  /// A recorder of segments on this display, with its input listened to.
  virtual std::unique_ptr<SegmentRecorder> makeRecorder() = 0;
  virtual BrowserLauncher& browsers() = 0;
  /// What programs started on this display need in their environment ("NAME=value").
  virtual std::vector<std::string> environment() = 0;
  virtual Clock& clock() = 0;
  /// How the platform words what it cannot do; known before any display is brought up.
  virtual const PlatformTexts& texts() const = 0;
  /// The display in use; no value while none was needed yet.
  virtual std::optional<DisplayInfo> display() const = 0;
  virtual AppInfo desktopApp() = 0;
};

}  // namespace brimble
