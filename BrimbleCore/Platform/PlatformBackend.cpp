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
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11EventCapture.h"
#include "BrimbleCore/Platform/X11/X11GlobalHotkey.h"
#include "BrimbleCore/Platform/X11/X11InputBackend.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "BrimbleCore/Platform/X11/X11WindowSystem.h"

namespace brimble::platform {
namespace {

namespace fs = std::filesystem;

std::optional<std::string> environmentVariable(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') {
    return std::nullopt;
  }
  return value;
}

/// The user's own running X session: the lowest of :0 to :9 whose socket this user owns.
/// Brimble's embedded displays start at :99, so they are never taken for the user's.
std::optional<std::string> runningUserDisplay() {
  for (int number = 0; number <= 9; ++number) {
    const std::string socket = "/tmp/.X11-unix/X" + std::to_string(number);
    struct stat info {};
    if (::stat(socket.c_str(), &info) == 0 && S_ISSOCK(info.st_mode) && info.st_uid == ::getuid()) {
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
  return std::make_unique<Desktop>(std::move(session), texts(), std::move(environment),
                                   std::move(backends), std::move(display));
}

std::unique_ptr<Desktop> embeddedDesktop(const std::string& reason) {
  std::unique_ptr<EmbeddedDisplay> display = startEmbeddedDisplay();
  DesktopSession session{display->name(), true, reason};
  return x11Desktop(std::move(session), std::move(display));
}

}  // namespace

const PlatformTexts& texts() {
  static const PlatformTexts x11{
      .sessionMissing = "$DISPLAY is not set",
      .sessionAdvice = "run inside an X11 session",
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

std::unique_ptr<EmbeddedDisplay> startEmbeddedDisplay() {
  return x11::HeadlessDisplay::start();
}

std::unique_ptr<Desktop> openDesktop(DesktopChoice choice) {
  if (choice == DesktopChoice::embedded) {
    return embeddedDesktop("--headless was given");
  }
  if (const auto display = environmentVariable("DISPLAY")) {
    return x11Desktop({*display, false, "$DISPLAY names it"}, nullptr);
  }
  switch (choice) {
    case DesktopChoice::user:
      throw DesktopError::noUserSession(texts().sessionMissing);
    case DesktopChoice::userElseEmbedded:
      return embeddedDesktop("$DISPLAY is not set, so brimble started its own embedded display");
    case DesktopChoice::userFoundElseEmbedded:
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
            {*found, false, "$DISPLAY was not set; found the user's running X session"}, nullptr,
            std::move(environment));
      }
      return embeddedDesktop(
          "$DISPLAY was not set and the user has no running X session, so brimble started its own "
          "embedded display");
    case DesktopChoice::embedded:
      break;
  }
  return embeddedDesktop("--headless was given");
}

}  // namespace brimble::platform
