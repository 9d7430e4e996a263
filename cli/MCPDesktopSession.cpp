#include "cli/MCPDesktopSession.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "BrimbleCore/Capture/ScreenSegmentRecorder.h"
#include "BrimbleCore/MCP/MCPToolError.h"
#include "BrimbleCore/MCP/MCPTools.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Subprocess.h"

namespace brimble::cli {
namespace {

namespace fs = std::filesystem;

/// The authority file of the user's session, when the environment names none: the usual places
/// of display managers and of startx.
std::optional<std::string> sessionAuthority() {
  const std::string uid = std::to_string(::getuid());
  std::vector<fs::path> candidates;
  std::error_code error;
  const fs::path runtime = "/run/user/" + uid;
  candidates.push_back(runtime / "gdm" / "Xauthority");
  for (const auto& entry : fs::directory_iterator(runtime, error)) {
    if (entry.path().filename().string().starts_with(".mutter-Xwaylandauth.")) {
      candidates.push_back(entry.path());
    }
  }
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    candidates.push_back(fs::path(home) / ".Xauthority");
  }
  for (const fs::path& candidate : candidates) {
    if (fs::is_regular_file(candidate, error)) {
      return candidate.string();
    }
  }
  return std::nullopt;
}

/// The user's own running X session: the lowest of :0 to :9 whose socket this user owns.
/// brimble's embedded displays start at :99, so they are never taken for the user's.
std::optional<std::string> userSessionDisplay() {
  for (int number = 0; number <= 9; ++number) {
    const std::string socket = "/tmp/.X11-unix/X" + std::to_string(number);
    struct stat info {};
    if (::stat(socket.c_str(), &info) == 0 && S_ISSOCK(info.st_mode) && info.st_uid == ::getuid()) {
      return ":" + std::to_string(number);
    }
  }
  return std::nullopt;
}

}  // namespace

MCPDesktopSession::~MCPDesktopSession() {
  // Services first, the display they talk to last.
  browsers_.reset();
  windows_.reset();
  launcher_.reset();
  windowSystem_.reset();
  input_.reset();
  inputBackend_.reset();
  screen_.reset();
  session_.reset();
}

void MCPDesktopSession::ensureDisplay() {
  if (screen_) {
    return;
  }
  if (failed_) {
    throw MCPToolError(texts().toolScreenRecordingRequired);
  }
  try {
    DisplayInfo info;
    if (headless_) {
      session_ = std::make_unique<DisplaySession>(true);
      info = {session_->name(), true, "--headless was given"};
    } else if (platform::userDisplay()) {
      session_ = std::make_unique<DisplaySession>(false);
      info = {session_->name(), false, "$DISPLAY names it"};
    } else if (const auto found = userSessionDisplay()) {
      // Connections below read these, and programs started later inherit them.
      ::setenv("DISPLAY", found->c_str(), 1);
      const char* authority = std::getenv("XAUTHORITY");
      if (authority == nullptr || *authority == '\0') {
        if (const auto file = sessionAuthority()) {
          ::setenv("XAUTHORITY", file->c_str(), 1);
        }
      }
      session_ = std::make_unique<DisplaySession>(false);
      info = {session_->name(), false, "$DISPLAY was not set; found the user's running X session"};
    } else {
      session_ = std::make_unique<DisplaySession>(true);
      info = {session_->name(), true,
              "$DISPLAY was not set and the user has no running X session, so brimble started "
              "its own embedded display"};
    }
    logLine("[Brimble MCP] Using display " + info.name + ": " + info.reason);
    screen_ = session_->screenSource();
    inputBackend_ = session_->inputBackend();
    input_ = std::make_unique<InputSimulator>(*inputBackend_, steadyClock());
    windowSystem_ = session_->windowSystem();
    launcher_ = session_->appLauncher();
    accessibility_ = session_->accessibility();
    windows_ = std::make_unique<WindowManager>(*windowSystem_, *launcher_, steadyClock(),
                                               accessibility_.get());
    browsers_ = std::make_unique<ChromeBrowserLauncher>(session_->environment());
    info_ = info;
  } catch (const std::exception& error) {
    logLine(std::string("[Brimble MCP] No display: ") + error.what());
    browsers_.reset();
    windows_.reset();
    accessibility_.reset();
    launcher_.reset();
    windowSystem_.reset();
    input_.reset();
    inputBackend_.reset();
    screen_.reset();
    session_.reset();
    failed_ = true;
    throw MCPToolError(texts().toolScreenRecordingRequired);
  }
}

ScreenSource& MCPDesktopSession::screen() {
  ensureDisplay();
  return *screen_;
}

InputSimulator& MCPDesktopSession::input() {
  ensureDisplay();
  return *input_;
}

WindowManager& MCPDesktopSession::windows() {
  ensureDisplay();
  return *windows_;
}

std::unique_ptr<WindowManager> MCPDesktopSession::makeWindowManager() {
  ensureDisplay();
  return std::make_unique<WindowManager>(*windowSystem_, *launcher_, steadyClock(),
                                         accessibility_.get());
}

std::unique_ptr<SegmentRecorder> MCPDesktopSession::makeRecorder() {
  ensureDisplay();
  const std::string name = info_->name;
  return std::make_unique<ScreenSegmentRecorder>(
      *screen_, steadyClock(), [name] { return platform::eventCapture(name, steadyClock()); });
}

BrowserLauncher& MCPDesktopSession::browsers() {
  ensureDisplay();
  return *browsers_;
}

std::vector<std::string> MCPDesktopSession::environment() {
  ensureDisplay();
  std::vector<std::string> environment = session_->environment();
  // Programs must reach the display even where it was found rather than inherited.
  environment.push_back("DISPLAY=" + info_->name);
  return environment;
}

MCPDesktop::AppInfo MCPDesktopSession::desktopApp() {
  AppInfo app;
  const auto path = findProgram("brimble-app");
  if (!path) {
    return app;
  }
  app.installed = true;
  app.path = path->string();
  try {
    Subprocess child =
        Subprocess::spawn({app.path, "--version"}, {.output = StreamConnection::pipe});
    std::string text;
    char buffer[256];
    ssize_t count = 0;
    while ((count = ::read(child.output().get(), buffer, sizeof buffer)) > 0 &&
           text.size() < 4096) {
      text.append(buffer, static_cast<std::size_t>(count));
    }
    child.waitFor(std::chrono::seconds(2));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) {
      text.pop_back();
    }
    app.version = text;
  } catch (const std::exception& error) {
    logLine(std::string("[Brimble MCP] brimble-app --version failed: ") + error.what());
  }
  return app;
}

}  // namespace brimble::cli
