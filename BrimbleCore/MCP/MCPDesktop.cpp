#include "BrimbleCore/MCP/MCPDesktop.h"

#include <chrono>
#include <utility>

#include <unistd.h>

#include "BrimbleCore/MCP/MCPToolError.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Subprocess.h"

namespace brimble {

MCPDesktop::MCPDesktop(Opener open, PlatformTexts texts)
    : open_(std::move(open)), texts_(std::move(texts)) {}

Desktop& MCPDesktop::desktop() {
  if (desktop_) {
    return *desktop_;
  }
  if (!failed_) {
    try {
      desktop_ = open_();
      // Connected now: a display that cannot be reached must read as the Screen Recording text
      // here, not as some tool's own error later.
      desktop_->windows();
      const DesktopSession& session = desktop_->session();
      logLine("[Brimble MCP] Using display " + session.name + ": " + session.reason);
      return *desktop_;
    } catch (const std::exception& error) {
      logLine(std::string("[Brimble MCP] No display: ") + error.what());
      desktop_.reset();
      failed_ = true;
    }
  }
  throw MCPToolError(texts_.toolScreenRecordingRequired);
}

std::optional<DesktopSession> MCPDesktop::session() const {
  return desktop_ ? std::optional(desktop_->session()) : std::nullopt;
}

MCPDesktop::AppInfo MCPDesktop::desktopApp() const {
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

}  // namespace brimble
