#include "BrimbleCore/Platform/PlatformBackend.h"

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "BrimbleCore/Automation/ChromeBrowserLauncher.h"
#include "BrimbleCore/Platform/ATSPI/ATSPIAccessibility.h"
#include "BrimbleCore/Platform/ATSPI/ATSPIWindowSystem.h"
#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"
#include "BrimbleCore/Platform/Wayland/PortalGlobalHotkey.h"
#include "BrimbleCore/Platform/Wayland/WaylandInputBackend.h"
#include "BrimbleCore/Platform/Wayland/WaylandScreenSource.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11EventCapture.h"
#include "BrimbleCore/Platform/X11/X11GlobalHotkey.h"
#include "BrimbleCore/Platform/X11/X11InputBackend.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "BrimbleCore/Platform/X11/X11WindowSystem.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/UserFolders.h"

namespace brimble::platform {
namespace {

namespace fs = std::filesystem;

const PlatformTexts& x11Texts();
const PlatformTexts& waylandTexts();

std::optional<std::string> environmentVariable(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') {
    return std::nullopt;
  }
  return value;
}

/// The folder of the session's sockets: $XDG_RUNTIME_DIR, else where logind puts it.
fs::path runtimeDirectory() {
  if (const auto runtime = environmentVariable("XDG_RUNTIME_DIR")) {
    return *runtime;
  }
  return "/run/user/" + std::to_string(::getuid());
}

bool ownedSocket(const fs::path& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode) && info.st_uid == ::getuid();
}

/// The Wayland session the environment names: $WAYLAND_DISPLAY, or, where only
/// $XDG_SESSION_TYPE says wayland, the compositor's usual socket.
std::optional<DesktopSession> waylandSessionFromEnvironment() {
  if (const auto name = environmentVariable("WAYLAND_DISPLAY")) {
    return DesktopSession{*name, false, "$WAYLAND_DISPLAY names it",
                          DesktopSession::Server::wayland};
  }
  if (environmentVariable("XDG_SESSION_TYPE") == "wayland" &&
      ownedSocket(runtimeDirectory() / "wayland-0")) {
    return DesktopSession{"wayland-0", false, "$XDG_SESSION_TYPE is wayland",
                          DesktopSession::Server::wayland};
  }
  return std::nullopt;
}

/// The user's own running Wayland session, for a process started without its environment: the
/// first compositor socket ("wayland-*") this user owns in the runtime folder.
std::optional<std::string> runningWaylandDisplay() {
  std::error_code error;
  std::optional<std::string> found;
  for (const auto& entry : fs::directory_iterator(runtimeDirectory(), error)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with("wayland-") && !name.ends_with(".lock") && ownedSocket(entry.path()) &&
        (!found || name < *found)) {
      found = name;
    }
  }
  return found;
}

/// The user's own running X session: the lowest of :0 to :9 whose socket this user owns.
/// Brimble's embedded displays start at :99, so they are never taken for the user's.
std::optional<std::string> runningUserDisplay() {
  for (int number = 0; number <= 9; ++number) {
    const std::string socket = "/tmp/.X11-unix/X" + std::to_string(number);
    if (ownedSocket(socket)) {
      return ":" + std::to_string(number);
    }
  }
  return std::nullopt;
}

/// The authority file of the user's session, when the environment names none: the usual places
/// of display managers and of startx.
std::optional<std::string> sessionAuthority() {
  std::vector<fs::path> candidates;
  std::error_code error;
  const fs::path runtime = "/run/user/" + std::to_string(::getuid());
  candidates.push_back(runtime / "gdm" / "Xauthority");
  for (const auto& entry : fs::directory_iterator(runtime, error)) {
    if (entry.path().filename().string().starts_with(".mutter-Xwaylandauth.")) {
      candidates.push_back(entry.path());
    }
  }
  if (const auto home = environmentVariable("HOME")) {
    candidates.push_back(fs::path(*home) / ".Xauthority");
  }
  for (const fs::path& candidate : candidates) {
    if (fs::is_regular_file(candidate, error)) {
      return candidate.string();
    }
  }
  return std::nullopt;
}

/// What programs need in their environment to show their elements to the accessibility
/// service: GTK shows its tree by default, Qt and Chromium only when asked.
std::vector<std::string> accessibilityEnvironment() {
  return {"QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1", "ACCESSIBILITY_ENABLED=1"};
}

/// Chromium shows neither its window's nor its pages' elements until told to, and as root it
/// starts only without its sandbox (and then, with --test-type, without a warning bar).
DetachedAppLauncher::ProgramArguments accessibilityArguments() {
  std::vector<std::string> chromium{"--force-renderer-accessibility"};
  if (::geteuid() == 0) {
    chromium.insert(chromium.end(), {"--no-sandbox", "--test-type"});
  }
  DetachedAppLauncher::ProgramArguments arguments;
  for (const char* program :
       {"chromium", "chromium-browser", "google-chrome", "google-chrome-stable"}) {
    arguments.emplace(program, chromium);
  }
  return arguments;
}

/// The X11 desktop of `session`; `display` when Brimble started it. `environment` is what
/// programs started there need besides what the embedded display gives them.
std::unique_ptr<Desktop> x11Desktop(DesktopSession session,
                                    std::unique_ptr<EmbeddedDisplay> display,
                                    std::vector<std::string> environment = {}) {
  if (display) {
    const std::vector<std::string> own = display->environment();
    environment.insert(environment.begin(), own.begin(), own.end());
  }
  const std::string name = session.name;
  Desktop::Backends backends;
  backends.screen = [name] { return std::make_unique<x11::X11ScreenSource>(name); };
  backends.input = [name] { return std::make_unique<x11::X11InputBackend>(name); };
  backends.windows = [name] { return std::make_unique<x11::X11WindowSystem>(name); };
  backends.launcher = [environment] {
    std::vector<std::string> entries = environment;
    const std::vector<std::string> accessible = accessibilityEnvironment();
    entries.insert(entries.end(), accessible.begin(), accessible.end());
    return std::make_unique<DetachedAppLauncher>(std::move(entries), accessibilityArguments());
  };
  backends.accessibility = [name] {
    // Element actions end in synthesized keys, so the service counts as there only where input
    // reaches the display.
    atspi::ATSPIAccessibility::Keys keys;
    keys.reachScreen = [name] {
      try {
        return x11::X11InputBackend(name).available();
      } catch (const std::exception&) {
        return false;
      }
    };
    keys.missing = "the display has no XTest extension, so keys cannot be sent to it";
    keys.requirement = "the XTest extension and the AT-SPI bus";
    return std::make_unique<atspi::ATSPIAccessibility>(std::move(keys));
  };
  backends.browsers = [environment] {
    return std::make_unique<ChromeBrowserLauncher>(environment);
  };
  backends.eventCapture = [name](const Clock& clock) {
    return std::make_unique<x11::X11EventCapture>(name, clock);
  };
  backends.globalHotkey = [name](const std::string& shortcut) {
    return std::make_unique<x11::X11GlobalHotkey>(shortcut, name);
  };
  return std::make_unique<Desktop>(std::move(session), x11Texts(), std::move(environment),
                                   std::move(backends), std::move(display));
}

/// The Wayland desktop of `session`: the screen and input through the desktop portal (one
/// connection for both, and the user's choices remembered under the state folder), the windows
/// and their elements through the accessibility bus. Wayland lets no client listen to the input
/// of others, so segments are recorded without it.
std::unique_ptr<Desktop> waylandDesktop(DesktopSession session,
                                        std::vector<std::string> environment = {}) {
  const fs::path state = userFolders::state();
  // Connected on first use: a command that only lists windows needs no portal.
  auto portal = std::make_shared<std::shared_ptr<wayland::DesktopPortal>>();
  const auto connect = [portal] {
    if (!*portal) {
      *portal = std::make_shared<wayland::DesktopPortal>();
    }
    return *portal;
  };
  Desktop::Backends backends;
  backends.screen = [connect, state] {
    return std::make_unique<wayland::WaylandScreenSource>(
        connect(), wayland::WaylandScreenSource::Options{
                       .tokenFile = screenCastTokenFile(),
                       .windowTokenFile = state / "screencast-window-token"});
  };
  backends.input = [connect, state] {
    return std::make_unique<wayland::WaylandInputBackend>(
        connect(),
        wayland::WaylandInputBackend::Options{.tokenFile = state / "remote-desktop-token"});
  };
  backends.windows = [] { return std::make_unique<atspi::ATSPIWindowSystem>(); };
  backends.launcher = [environment] {
    std::vector<std::string> entries = environment;
    const std::vector<std::string> accessible = accessibilityEnvironment();
    entries.insert(entries.end(), accessible.begin(), accessible.end());
    return std::make_unique<DetachedAppLauncher>(std::move(entries), accessibilityArguments());
  };
  backends.accessibility = [] {
    atspi::ATSPIAccessibility::Keys keys;
    keys.requirement = "the AT-SPI bus, and the desktop portal's remote desktop for input";
    return std::make_unique<atspi::ATSPIAccessibility>(std::move(keys));
  };
  backends.browsers = [environment] {
    return std::make_unique<ChromeBrowserLauncher>(environment);
  };
  // Only the portal can give a Wayland client a shortcut that works in other apps' windows; where
  // it lacks the interface the hotkey says so, and the app offers the desktop's own shortcuts.
  backends.globalHotkey = [connect](const std::string& shortcut) -> std::unique_ptr<GlobalHotkey> {
    std::shared_ptr<wayland::DesktopPortal> connected;
    try {
      connected = connect();
    } catch (const wayland::PortalError& error) {
      throw GlobalHotkeyError::unavailable(error.what());
    }
    return std::make_unique<wayland::PortalGlobalHotkey>(std::move(connected), shortcut);
  };
  return std::make_unique<Desktop>(std::move(session), waylandTexts(), std::move(environment),
                                   std::move(backends));
}

std::unique_ptr<Desktop> embeddedDesktop(const std::string& reason) {
  std::unique_ptr<EmbeddedDisplay> display = startEmbeddedDisplay();
  DesktopSession session{display->name(), true, reason, DesktopSession::Server::x11};
  return x11Desktop(std::move(session), std::move(display));
}

}  // namespace

namespace {

// What is missing and how to get it, where no session is named: the same on every platform.
constexpr const char* kSessionMissing = "$WAYLAND_DISPLAY and $DISPLAY are not set";
constexpr const char* kSessionAdvice = "run inside a desktop session (Wayland or X11)";

const PlatformTexts& x11Texts() {
  static const PlatformTexts x11{
      .sessionMissing = kSessionMissing,
      .sessionAdvice = kSessionAdvice,
      .screenRecordingRequired =
          "Screen Recording permission required. No X11 display could be captured: run inside an "
          "X11 session or with --headless.",
      .toolScreenRecordingRequired =
          "Screen Recording permission is required. No X11 display could be captured: run inside "
          "an X11 session or start the server with --headless.",
      .screenRecordingNotGranted =
          "Not granted — required for recording. No X11 display could be "
          "captured (run in an X11 session or with --headless).",
      .screenProblem =
          "no X11 display could be captured (run in an X11 session or start the "
          "server with --headless)",
      .toolInputUnavailable =
          "Synthetic input is not available on this display (the XTest extension is missing).",
  };
  return x11;
}

const PlatformTexts& waylandTexts() {
  static const PlatformTexts wayland{
      .sessionMissing = kSessionMissing,
      .sessionAdvice = kSessionAdvice,
      .screenRecordingRequired =
          "Screen Recording permission required. The desktop portal did not share the screen: "
          "allow it in the screen-sharing dialog, or run with --headless.",
      .toolScreenRecordingRequired =
          "Screen Recording permission is required. The desktop portal did not share the screen: "
          "allow Brimble in the screen-sharing dialog, or start the server with --headless.",
      .screenRecordingNotGranted =
          "Not granted — required for recording. The desktop portal did not share the screen "
          "(allow it in the screen-sharing dialog, or use --headless).",
      .screenProblem =
          "the desktop portal did not share the screen (allow it in the "
          "screen-sharing dialog, or start the server with --headless)",
      .toolInputUnavailable =
          "Synthetic input is not available on this desktop (the desktop "
          "portal's remote desktop was refused or is missing).",
  };
  return wayland;
}

}  // namespace

const PlatformTexts& texts() {
  return waylandSessionFromEnvironment() ? waylandTexts() : x11Texts();
}

std::optional<DesktopSession> userSession() {
  if (auto wayland = waylandSessionFromEnvironment()) {
    return wayland;
  }
  if (const auto display = environmentVariable("DISPLAY")) {
    return DesktopSession{*display, false, "$DISPLAY names it", DesktopSession::Server::x11};
  }
  return std::nullopt;
}

std::filesystem::path screenCastTokenFile() {
  return userFolders::state() / "screencast-token";
}

std::unique_ptr<EmbeddedDisplay> startEmbeddedDisplay() {
  return x11::HeadlessDisplay::start();
}

namespace {

std::unique_ptr<Desktop> chooseDesktop(DesktopChoice choice) {
  if (choice == DesktopChoice::embedded) {
    return embeddedDesktop("--headless was given");
  }
  const std::optional<DesktopSession> wayland = waylandSessionFromEnvironment();
  std::optional<DesktopSession> x11;
  if (const auto display = environmentVariable("DISPLAY")) {
    x11 = DesktopSession{*display, false, "$DISPLAY names it", DesktopSession::Server::x11};
  }
  switch (choice) {
    case DesktopChoice::user:
      // A Wayland desktop's X server (XWayland) sees only the windows that use it.
      if (wayland) {
        return waylandDesktop(*wayland);
      }
      if (x11) {
        return x11Desktop(*x11, nullptr);
      }
      throw DesktopError::noUserSession(kSessionMissing);
    case DesktopChoice::script:
      if (x11 && !wayland) {
        return x11Desktop(*x11, nullptr);
      }
      return embeddedDesktop(wayland ? "demo scripts run in brimble's own display on a Wayland "
                                       "desktop, the same every time and without a dialog"
                                     : "$DISPLAY is not set, so brimble started its own embedded "
                                       "display");
    case DesktopChoice::userFoundElseEmbedded:
      if (wayland) {
        return waylandDesktop(*wayland);
      }
      if (x11) {
        return x11Desktop(*x11, nullptr);
      }
      if (const auto found = runningWaylandDisplay()) {
        // Programs started later, the portal's bus and the compositor's clients all read these.
        const std::string runtime = runtimeDirectory().string();
        std::vector<std::string> environment{"WAYLAND_DISPLAY=" + *found,
                                             "XDG_RUNTIME_DIR=" + runtime};
        ::setenv("WAYLAND_DISPLAY", found->c_str(), 1);
        ::setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
        if (!environmentVariable("DBUS_SESSION_BUS_ADDRESS") &&
            ownedSocket(runtimeDirectory() / "bus")) {
          const std::string bus = "unix:path=" + (runtimeDirectory() / "bus").string();
          ::setenv("DBUS_SESSION_BUS_ADDRESS", bus.c_str(), 1);
          environment.push_back("DBUS_SESSION_BUS_ADDRESS=" + bus);
        }
        return waylandDesktop({*found, false,
                               "$WAYLAND_DISPLAY was not set; found the user's running Wayland "
                               "session",
                               DesktopSession::Server::wayland},
                              std::move(environment));
      }
      if (const auto found = runningUserDisplay()) {
        std::vector<std::string> environment{"DISPLAY=" + *found};
        // Xlib reads the authority file's name from the environment only; the accessibility
        // library finds the session's bus through the display.
        ::setenv("DISPLAY", found->c_str(), 1);
        if (!environmentVariable("XAUTHORITY")) {
          if (const auto file = sessionAuthority()) {
            ::setenv("XAUTHORITY", file->c_str(), 1);
            environment.push_back("XAUTHORITY=" + *file);
          }
        }
        return x11Desktop(
            {*found, false, "$DISPLAY was not set; found the user's running X session",
             DesktopSession::Server::x11},
            nullptr, std::move(environment));
      }
      return embeddedDesktop(
          "no desktop session was named or found, so brimble started its own embedded display");
    case DesktopChoice::embedded:
      break;
  }
  return embeddedDesktop("--headless was given");
}

}  // namespace

std::unique_ptr<Desktop> openDesktop(DesktopChoice choice) {
  std::unique_ptr<Desktop> desktop = chooseDesktop(choice);
  const DesktopSession& session = desktop->session();
  logVerbose(std::string("Using the ") + serverName(session.server) + " session " + session.name +
             ": " + session.reason);
  return desktop;
}

}  // namespace brimble::platform
