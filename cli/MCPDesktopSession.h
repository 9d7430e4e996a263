#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/ChromeBrowserLauncher.h"
#include "BrimbleCore/MCP/MCPDesktop.h"
#include "cli/DisplaySession.h"

namespace brimble::cli {

/// The MCP server's desktop on this platform. The display is chosen the first time a tool needs
/// the screen: $DISPLAY when set; else the user's own running X session (one of :0 to :9 whose
/// socket the user owns, with that session's authority file), since hosts often start servers
/// with a bare environment; else brimble's embedded display, kept for the server's life. With
/// `headless`, always the embedded one. Create, use and destroy it on the thread that serves the
/// requests: the embedded display's programs die with the thread that started them.
class MCPDesktopSession final : public MCPDesktop {
 public:
  explicit MCPDesktopSession(bool headless) : headless_(headless) {}
  ~MCPDesktopSession() override;

  ScreenSource& screen() override;
  InputSimulator& input() override;
  WindowManager& windows() override;
  std::unique_ptr<WindowManager> makeWindowManager() override;
  std::unique_ptr<SegmentRecorder> makeRecorder() override;
  BrowserLauncher& browsers() override;
  std::vector<std::string> environment() override;
  Clock& clock() override { return steadyClock(); }
  const PlatformTexts& texts() const override { return platform::texts(); }
  std::optional<DisplayInfo> display() const override { return info_; }
  AppInfo desktopApp() override;

 private:
  /// Brings the display and its services up once. Throws MCPToolError with the Screen Recording
  /// text when no display can be had.
  void ensureDisplay();

  const bool headless_;
  bool failed_ = false;
  std::optional<DisplayInfo> info_;
  std::unique_ptr<DisplaySession> session_;
  std::unique_ptr<ScreenSource> screen_;
  std::unique_ptr<InputBackend> inputBackend_;
  std::unique_ptr<InputSimulator> input_;
  std::unique_ptr<WindowSystem> windowSystem_;
  std::unique_ptr<AppLauncher> launcher_;
  std::unique_ptr<AccessibilityBackend> accessibility_;
  std::unique_ptr<WindowManager> windows_;
  std::unique_ptr<ChromeBrowserLauncher> browsers_;
};

}  // namespace brimble::cli
