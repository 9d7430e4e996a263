#include "BrimbleCore/Automation/WindowManager.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <set>
#include <system_error>
#include <utility>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Text.h"
#include "BrimbleCore/Support/XID.h"

namespace brimble {
namespace {

constexpr double kNewWindowTimeout = 10;
constexpr double kNewWindowPoll = 0.050;
constexpr double kSettleTimeout = 1;
constexpr double kSettlePoll = 0.010;
// Terminals size in whole character cells, so a size this close to the one asked for is it.
constexpr int kCellSlack = 24;

/// How well a window's application name answers a request: 2 when it equals the request or one
/// of its programs, 1 when it contains one of them, 0 when it does not match.
int matchRank(const WindowInfo& window, const std::string& request,
              const std::vector<std::string>& programs) {
  if (window.appName.empty()) {
    return 0;
  }
  const std::string name = lowercased(window.appName);
  if (name == request || std::find(programs.begin(), programs.end(), name) != programs.end()) {
    return 2;
  }
  if (name.find(request) != std::string::npos) {
    return 1;
  }
  for (const std::string& program : programs) {
    if (name.find(program) != std::string::npos) {
      return 1;
    }
  }
  return 0;
}

}  // namespace

WindowManager::WindowManager(WindowSystem& windowSystem, AppLauncher& launcher, Clock& clock,
                             AccessibilityBackend* accessibility)
    : windowSystem_(windowSystem),
      launcher_(launcher),
      clock_(clock),
      accessibility_(accessibility) {}

std::vector<std::string> WindowManager::programsFor(std::string_view appName) {
  const std::string name = lowercased(appName);
  if (name == "terminal") {
    return {"x-terminal-emulator", "gnome-terminal", "konsole", "xfce4-terminal", "xterm"};
  }
  if (name == "textedit" || name == "text edit") {
    return {"gedit", "mousepad", "gnome-text-editor"};
  }
  if (name == "finder") {
    return {"nautilus", "thunar", "pcmanfm"};
  }
  return {name};
}

void WindowManager::sleepFor(double seconds) {
  clock_.sleepFor(
      std::chrono::duration_cast<Clock::Duration>(std::chrono::duration<double>(seconds)));
}

std::vector<WindowInfo> WindowManager::windows() {
  return windowSystem_.windows();
}

std::vector<WindowInfo> WindowManager::windows(std::string_view appName) {
  const std::string request = lowercased(appName);
  const std::vector<std::string> programs = programsFor(appName);
  std::vector<std::pair<int, WindowInfo>> ranked;
  for (WindowInfo& window : windowSystem_.windows()) {
    if (const int rank = matchRank(window, request, programs); rank > 0) {
      ranked.emplace_back(rank, std::move(window));
    }
  }
  // Stable, so among equals the frontmost stays first.
  std::stable_sort(ranked.begin(), ranked.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  std::vector<WindowInfo> matches;
  matches.reserve(ranked.size());
  for (auto& [rank, window] : ranked) {
    matches.push_back(std::move(window));
  }
  return matches;
}

std::optional<WindowMatch> WindowManager::find(std::string_view appName) {
  std::vector<WindowInfo> matches = windows(appName);
  if (matches.empty()) {
    return std::nullopt;
  }
  return WindowMatch{std::move(matches.front()), static_cast<int>(matches.size()) - 1};
}

std::optional<WindowInfo> WindowManager::find(std::uint32_t id) {
  for (WindowInfo& window : windowSystem_.windows()) {
    if (window.id == id) {
      return std::move(window);
    }
  }
  return std::nullopt;
}

std::optional<WindowInfo> WindowManager::find(OwnerPID ownerPID) {
  for (WindowInfo& window : windowSystem_.windows()) {
    if (window.pid == ownerPID.value && !window.frame.empty()) {
      return std::move(window);
    }
  }
  return std::nullopt;
}

void WindowManager::focus(std::uint32_t id) {
  if (!windowSystem_.activate(id)) {
    return;
  }
  // Activation is a request; keys sent before the window manager grants it would land in the
  // window that had the focus.
  const auto deadline = clock_.now() + std::chrono::duration_cast<Clock::Duration>(
                                           std::chrono::duration<double>(kSettleTimeout));
  while (windowSystem_.activeWindow() != id) {
    if (clock_.now() >= deadline) {
      logLine("BrimbleCore: WindowManager: Window " + std::to_string(id) +
              " did not become active");
      return;
    }
    sleepFor(kSettlePoll);
  }
}

std::uint32_t WindowManager::openApp(std::string_view name,
                                     const std::vector<std::string>& environment) {
  const std::string requested(name);
  const std::vector<std::string> programs = programsFor(name);
  const auto program = std::find_if(programs.begin(), programs.end(),
                                    [&](const std::string& p) { return launcher_.isInstalled(p); });
  if (program == programs.end()) {
    std::string names;
    for (const std::string& candidate : programs) {
      names += (names.empty() ? "" : ", ") + candidate;
    }
    throw WindowManagerError::launchFailed(requested, programs.size() == 1
                                                          ? names + " is not installed"
                                                          : "none of " + names + " is installed");
  }
  return openProgram(name, *program, {}, environment);
}

std::uint32_t WindowManager::openTerminal(const TerminalLook& look,
                                          const std::filesystem::path& log,
                                          const std::vector<std::string>& environment) {
  constexpr std::string_view kName = "Terminal";
  if (!launcher_.isInstalled("xterm")) {
    throw WindowManagerError::launchFailed(
        std::string(kName), "xterm is not installed, and only xterm takes a look of its own");
  }
  std::vector<std::string> arguments = look.xtermArguments();
  if (!log.empty()) {
    // Before -e: everything after it is the command's own.
    const auto command = std::find(arguments.begin(), arguments.end(), "-e");
    arguments.insert(command, {"-l", "-lf", log.string()});
  }
  return openProgram(kName, "xterm", arguments, environment);
}

std::uint32_t WindowManager::openProgram(std::string_view name, const std::string& program,
                                         const std::vector<std::string>& arguments,
                                         const std::vector<std::string>& environment) {
  const std::string requested(name);
  std::set<std::uint32_t> before;
  try {
    for (const WindowInfo& window : windows(name)) {
      before.insert(window.id);
    }
  } catch (const std::exception&) {
    logLine("BrimbleCore: WindowManager: Failed to snapshot window IDs for " + requested);
  }
  try {
    launcher_.launch(program, arguments, environment);
  } catch (const std::system_error& error) {
    throw WindowManagerError::launchFailed(requested, error.what());
  }

  const auto deadline = clock_.now() + std::chrono::duration_cast<Clock::Duration>(
                                           std::chrono::duration<double>(kNewWindowTimeout));
  while (true) {
    std::vector<WindowInfo> matches;
    try {
      matches = windows(name);
    } catch (const WindowManagerError&) {
      // The list can be missing for a moment while the window manager restarts; keep polling.
    }
    for (const WindowInfo& window : matches) {
      if (before.count(window.id) == 0) {
        scriptWindows_.emplace_back(window.id, requested);
        focus(window.id);
        return window.id;
      }
    }
    if (clock_.now() >= deadline) {
      break;
    }
    sleepFor(kNewWindowPoll);
  }

  const auto frontmost = find(name);
  if (!frontmost) {
    throw WindowManagerError::noWindow(requested);
  }
  const std::uint32_t id = frontmost->window.id;
  logLine("BrimbleCore: WindowManager: No new window detected for " + requested +
          ", using frontmost (ID: " + std::to_string(id) + ")");
  focus(id);
  return id;
}

void WindowManager::focusApp(std::string_view name) {
  const auto match = find(name);
  if (!match) {
    throw WindowManagerError::windowNotFound(std::string(name));
  }
  focus(match->window.id);
}

ScreenRect WindowManager::resize(std::string_view appName, int width, int height) {
  const auto match = find(appName);
  if (!match) {
    throw WindowManagerError::windowNotFound(std::string(appName));
  }
  return resize(match->window.id, width, height);
}

ScreenRect WindowManager::resize(std::uint32_t id, int width, int height) {
  const auto window = find(id);
  if (!window) {
    throw WindowManagerError::windowNotFound(formatXID(id));
  }
  const ScreenRect before = window->contentFrame;
  const auto reached = [&](const ScreenRect& size) {
    return std::abs(size.width - width) < kCellSlack && std::abs(size.height - height) < kCellSlack;
  };
  if (!windowSystem_.moveResize(id, {0, 0, width, height})) {
    throw WindowManagerError::windowNotFound(formatXID(id));
  }
  // Wait until the window manager has done it, so what comes next (a recording) sees the new
  // geometry; then say whether the window took the size. An application may keep a size of its
  // own (a fixed or a smallest size), and the window manager may refuse: the request alone
  // proves nothing.
  const auto deadline = clock_.now() + std::chrono::duration_cast<Clock::Duration>(
                                           std::chrono::duration<double>(kSettleTimeout));
  ScreenRect now = before;
  while (true) {
    const auto current = find(id);
    if (!current) {
      throw WindowManagerError::windowNotFound(formatXID(id));
    }
    now = current->contentFrame;
    if ((current->frame.x == 0 && current->frame.y == 0 && reached(now)) ||
        clock_.now() >= deadline) {
      break;
    }
    sleepFor(kSettlePoll);
  }
  const std::string asked = std::to_string(width) + "x" + std::to_string(height);
  const std::string got = std::to_string(now.width) + "x" + std::to_string(now.height);
  if (!reached(now) && now.width == before.width && now.height == before.height) {
    throw WindowManagerError::requestRefused(
        "resize window " + formatXID(id) + " to " + asked,
        "it stayed " + got + " (the application or the window manager keeps its size)");
  }
  if (!reached(now)) {
    logLine("Warning: window " + formatXID(id) + " is " + got + ", not the " + asked +
            " asked for (the application or the window manager limits its size)");
  }
  return now;
}

void WindowManager::close(std::string_view appName, std::uint32_t windowID) {
  std::erase_if(scriptWindows_, [&](const auto& entry) { return entry.first == windowID; });
  if (!windowSystem_.close(windowID)) {
    logLine("BrimbleCore: WindowManager: Failed to close window " + std::to_string(windowID) +
            " for " + std::string(appName));
  }
}

void WindowManager::cleanupScriptWindows() {
  const auto opened = std::exchange(scriptWindows_, {});
  std::vector<WindowInfo> present;
  try {
    present = windowSystem_.windows();
  } catch (const WindowManagerError&) {
    return;
  }
  for (auto it = opened.rbegin(); it != opened.rend(); ++it) {
    const bool there = std::any_of(present.begin(), present.end(), [&](const WindowInfo& window) {
      return window.id == it->first;
    });
    if (!there) {
      continue;
    }
    // One window the platform will not close must not keep the others open.
    try {
      close(it->second, it->first);
    } catch (const WindowManagerError& error) {
      logLine("BrimbleCore: WindowManager: " + std::string(error.what()));
    }
  }
}

bool WindowManager::accessibilityGranted(bool quiet, std::string_view command) {
  std::string reason;
  if (accessibility_ != nullptr && accessibility_->available(reason)) {
    return true;
  }
  if (!quiet) {
    const std::string requirement =
        accessibility_ != nullptr ? accessibility_->requirement() : "an accessibility service";
    logLine("Warning: " + std::string(command) + " requires Accessibility (" + requirement +
            "). Install at-spi2-core and enable accessibility for the app, then re-run.");
  }
  return false;
}

int WindowManager::dialogOwner(std::string_view appName) {
  if (accessibility_ == nullptr) {
    throw DemoDriverError::permissionDenied(
        "dialogs are answered through the accessibility service, and none is available");
  }
  const auto match = find(appName);
  if (!match) {
    throw WindowManagerError::windowNotFound(std::string(appName));
  }
  return match->window.pid;
}

std::string WindowManager::clickButtonInDialog(std::string_view appName,
                                               const std::string& button) {
  if (appName.empty()) {
    return "Warning: click-button-in-dialog called with no app name — skipping";
  }
  const int owner = dialogOwner(appName);
  const std::string name(appName);
  switch (accessibility_->clickButtonInDialog(owner, button)) {
    case DialogOutcome::clicked:
    case DialogOutcome::dismissed:
      return "Clicked '" + button + "' in " + name + " dialog";
    case DialogOutcome::noDialog:
      return "Warning: click-button-in-dialog found no dialog of " + name;
    case DialogOutcome::noButton:
      break;
  }
  return "Warning: click-button-in-dialog found no '" + button + "' button in a dialog of " + name;
}

std::string WindowManager::dismissDialog(std::string_view appName) {
  if (appName.empty()) {
    return "Warning: dismiss-dialog called with no app name — skipping";
  }
  const int owner = dialogOwner(appName);
  const std::string name(appName);
  if (accessibility_->dismissDialog(owner) == DialogOutcome::noDialog) {
    return "Warning: dismiss-dialog found no dialog of " + name;
  }
  return "Dismissed dialog in " + name + " — sent Escape";
}

}  // namespace brimble
