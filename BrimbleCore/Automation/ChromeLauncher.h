#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "BrimbleCore/Support/Subprocess.h"

namespace brimble {

/// Starts Chrome or Chromium with a DevTools port, for scripts and assistants to drive.
class ChromeLauncher {
 public:
  /// A running browser. Ending it (destruction, or assigning another session to it) stops the
  /// browser with all its processes and deletes its profile directory. Move-only, empty after a
  /// move; one thread at a time.
  class Session {
   public:
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    Session(Session&& other) noexcept;
    Session& operator=(Session&& other) noexcept;
    ~Session();

    int port() const noexcept { return port_; }
    const std::filesystem::path& userDataDirectory() const noexcept { return userDataDirectory_; }
    const std::string& webSocketDebuggerURL() const noexcept { return webSocketDebuggerURL_; }
    pid_t pid() const noexcept { return process_.pid(); }

   private:
    friend class ChromeLauncher;
    Session() = default;
    void end() noexcept;

    Subprocess process_;
    int port_ = 0;
    std::filesystem::path userDataDirectory_;
    std::string webSocketDebuggerURL_;
  };

  /// The browser program: the first found of google-chrome, google-chrome-stable, chromium,
  /// chromium-browser; empty when there is none.
  static std::string findBrowser();

  /// Starts the browser on `url` with the DevTools endpoint on `port` (0: a free one, read back
  /// from the profile), in a fresh profile directory "brimble-chrome-…" in the temporary
  /// directory, in a 1280x800 application window (the page alone, without tabs or toolbar) at
  /// the screen's top-left corner, and polls /json/list (up
  /// to `timeout`) for a page target. `environment` ("NAME=value") is added to ours for the
  /// browser: the display it opens on. Throws CDPError: browserNotInstalled, or
  /// noDebuggablePage when no page target appeared in time.
  static Session launch(int port, const std::string& url,
                        std::chrono::milliseconds timeout = std::chrono::seconds(20),
                        const std::vector<std::string>& environment = {});

  /// The WebSocket URL of the first "page" target in a /json/list body. Throws CDPError:
  /// malformedTargetList when the body is not a JSON array, noPageTarget when no entry is a page
  /// with a webSocketDebuggerUrl.
  static std::string pageTargetURL(const std::string& targetList);
};

}  // namespace brimble
