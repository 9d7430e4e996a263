#include "BrimbleCore/Automation/ChromeLauncher.h"

#include <algorithm>
#include <fstream>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <stdlib.h>
#include <unistd.h>

#include "BrimbleCore/Automation/CDPError.h"
#include "BrimbleCore/Automation/WebSocketCDPTransport.h"
#include "BrimbleCore/Support/FileIO.h"

namespace brimble {
namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(50);

/// The port Chrome chose for --remote-debugging-port=0: the first line of DevToolsActivePort in
/// the profile, once written.
std::optional<int> activePort(const std::filesystem::path& profile) {
  std::ifstream file(profile / "DevToolsActivePort");
  int port = 0;
  if (file >> port && port > 0) {
    return port;
  }
  return std::nullopt;
}

}  // namespace

ChromeLauncher::Session::Session(Session&& other) noexcept
    : process_(std::move(other.process_)),
      port_(std::exchange(other.port_, 0)),
      userDataDirectory_(std::exchange(other.userDataDirectory_, {})),
      webSocketDebuggerURL_(std::exchange(other.webSocketDebuggerURL_, {})) {}

ChromeLauncher::Session& ChromeLauncher::Session::operator=(Session&& other) noexcept {
  if (this != &other) {
    end();
    process_ = std::move(other.process_);
    port_ = std::exchange(other.port_, 0);
    userDataDirectory_ = std::exchange(other.userDataDirectory_, {});
    webSocketDebuggerURL_ = std::exchange(other.webSocketDebuggerURL_, {});
  }
  return *this;
}

ChromeLauncher::Session::~Session() {
  end();
}

void ChromeLauncher::Session::end() noexcept {
  process_.terminate();
  if (!userDataDirectory_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(userDataDirectory_, ignored);
    userDataDirectory_.clear();
  }
}

std::string ChromeLauncher::findBrowser() {
  for (const char* program :
       {"google-chrome", "google-chrome-stable", "chromium", "chromium-browser"}) {
    if (findProgram(program)) {
      return program;
    }
  }
  return {};
}

std::string ChromeLauncher::pageTargetURL(const std::string& targetList) {
  const nlohmann::json targets = nlohmann::json::parse(targetList, nullptr, false);
  if (!targets.is_array()) {
    throw CDPError::malformedTargetList();
  }
  for (const nlohmann::json& target : targets) {
    // Chromium also lists "browser_ui" and other targets; only a page can be driven.
    if (target.is_object() && target.value("type", "") == "page" &&
        target.contains("webSocketDebuggerUrl") && target["webSocketDebuggerUrl"].is_string()) {
      return target["webSocketDebuggerUrl"].get<std::string>();
    }
  }
  throw CDPError::noPageTarget();
}

ChromeLauncher::Session ChromeLauncher::launch(int port, const std::string& url,
                                               std::chrono::milliseconds timeout,
                                               const std::vector<std::string>& environment) {
  const std::string browser = findBrowser();
  if (browser.empty()) {
    throw CDPError::browserNotInstalled();
  }
  Session session;
  std::string pattern = (temporaryDirectory() / "brimble-chrome-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "create " + pattern);
  }
  session.userDataDirectory_ = pattern;
  // The window manager's frame instead of Chromium's own: Chromium's frame draws a shadow inside
  // its window, which window.screenX/Y count and the page's position does not.
  std::filesystem::create_directories(session.userDataDirectory_ / "Default");
  std::ofstream(session.userDataDirectory_ / "Default" / "Preferences")
      << R"({"browser":{"custom_chrome_frame":false}})";
  std::vector<std::string> arguments = {
      browser,
      "--remote-debugging-port=" + std::to_string(port),
      "--user-data-dir=" + session.userDataDirectory_.string(),
      "--no-first-run",
      "--no-default-browser-check",
      "--disable-backgrounding-occluded-windows",
      "--disable-renderer-backgrounding",
      "--hide-crash-restore-bubble",
      "--no-restore-session-state",
      // A size that reads well in a GIF, where the window manager puts nothing in its way.
      "--window-position=0,0",
      "--window-size=1280,800",
      // Loopback only, and no background traffic: on a closed network it fails noisily.
      "--remote-debugging-address=127.0.0.1",
      "--disable-background-networking",
      "--disable-component-update",
      "--disable-sync",
      "--disable-default-apps",
      "--password-store=basic",
      // No crash reporter: it would keep reports in the user's configuration folder.
      "--disable-breakpad",
      "--disable-crash-reporter",
  };
  if (::geteuid() == 0) {
    // Chromium refuses to run as root with its sandbox; --test-type hides the warning bar that
    // --no-sandbox would otherwise show across the top of every recording.
    arguments.insert(arguments.end(), {"--no-sandbox", "--test-type"});
  }
  // A bare application window: no tabs, no toolbar. A recording draws an address bar of its
  // own, and Chromium's would be a second one above it.
  // Chromium opens no application window on an about: address (it falls back to a window with
  // tabs); an empty document is the same blank page.
  arguments.push_back("--app=" +
                      (url.starts_with("about:") ? std::string("data:text/html,") : url));
  // Whatever Chromium and its helpers keep outside the profile (crash reports, font and GPU
  // caches, dconf, "org.chromium.Chromium.*" temporary folders) goes inside it too, and is
  // deleted with it instead of piling up in the user's home and temporary directory.
  std::vector<std::string> browserEnvironment;
  for (const auto& [variable, folder] :
       {std::pair{"XDG_CONFIG_HOME", "xdg-config"}, std::pair{"XDG_CACHE_HOME", "xdg-cache"},
        std::pair{"XDG_DATA_HOME", "xdg-data"}, std::pair{"XDG_RUNTIME_DIR", "xdg-runtime"},
        std::pair{"TMPDIR", "tmp"}}) {
    const auto path = session.userDataDirectory_ / folder;
    std::filesystem::create_directory(path);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    browserEnvironment.push_back(std::string(variable) + "=" + path.string());
  }
  // The caller's entries (the display, its bus) join them; the profile's own folders win.
  for (const std::string& entry : environment) {
    const std::string name = entry.substr(0, entry.find('='));
    if (std::none_of(browserEnvironment.begin(), browserEnvironment.end(),
                     [&](const std::string& own) { return own.starts_with(name + "="); })) {
      browserEnvironment.push_back(entry);
    }
  }
  session.process_ = Subprocess::spawn(
      arguments, {.dieWithParent = true, .environment = std::move(browserEnvironment)});

  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (std::chrono::steady_clock::now() < deadline && !session.process_.hasExited()) {
    if (session.port_ == 0) {
      session.port_ = port != 0 ? port : activePort(session.userDataDirectory_).value_or(0);
    }
    if (const auto list =
            session.port_ != 0 ? loopbackHTTPGet(session.port_, "/json/list") : std::nullopt) {
      try {
        session.webSocketDebuggerURL_ = pageTargetURL(*list);
        return session;
      } catch (const CDPError&) {
        // The page target appears a moment after the endpoint does; keep polling.
      }
    }
    std::this_thread::sleep_for(kPollInterval);
  }
  throw CDPError::noDebuggablePage(session.port_ != 0 ? session.port_ : port);
}

}  // namespace brimble
