#include "cli/WindowCommands.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Automation/WindowManager.h"
#include "BrimbleCore/Support/XID.h"
#include "cli/CommandDesktop.h"
#include "cli/OptionChecks.h"

namespace brimble::cli {
namespace {

constexpr int kJSONIndent = 2;

struct WindowsOptions {
  std::string app;
  bool json = false;
  bool headless = false;
};

int runWindows(const WindowsOptions& options) {
  const auto desktop = commandDesktop(options.headless);
  WindowManager& windows = desktop->windows();
  const auto listed = options.app.empty() ? windows.windows() : windows.windows(options.app);
  if (options.json) {
    nlohmann::json list = nlohmann::json::array();
    for (const WindowInfo& window : listed) {
      list.push_back({{"id", window.id},
                      {"app", window.appName.empty() ? "Unknown" : window.appName},
                      {"pid", window.pid},
                      {"title", window.title},
                      {"x", window.positionKnown ? nlohmann::json(window.frame.x) : nullptr},
                      {"y", window.positionKnown ? nlohmann::json(window.frame.y) : nullptr},
                      {"width", window.frame.width},
                      {"height", window.frame.height}});
    }
    fmt::print("{}\n", nlohmann::json{{"windows", list}}.dump(kJSONIndent));
    return kExitSuccess;
  }
  if (listed.empty()) {
    // Said on standard error, so that a script reading the table still reads no rows.
    fmt::print(stderr, "brimble windows: {}\n",
               options.app.empty()
                   ? std::string("no windows on screen")
                   : "no windows of an application matching \"" + options.app + "\"");
    return kExitSuccess;
  }
  fmt::print("{:<11}{:<21}{:<8}{:<20}{}\n", "ID", "APP", "PID", "FRAME", "TITLE");
  for (const WindowInfo& window : listed) {
    // Where the platform does not say where a window is (Wayland), only its size is shown.
    const std::string place = window.positionKnown
                                  ? fmt::format("{},{}", window.frame.x, window.frame.y)
                                  : std::string("?,?");
    const std::string frame =
        fmt::format("{} {}x{}", place, window.frame.width, window.frame.height);
    fmt::print("{:<11}{:<21}{:<8}{:<20}{}\n", formatXID(window.id),
               window.appName.empty() ? "Unknown" : window.appName, window.pid, frame,
               window.title);
  }
  return kExitSuccess;
}

struct WindowOptions {
  std::string app;
  int width = 0;
  int height = 0;
  std::string id;
};

}  // namespace

Command addWindowsCommand(CLI::App& app) {
  auto options = std::make_shared<WindowsOptions>();
  CLI::App* command =
      app.add_subcommand("windows",
                         "List the windows on screen, frontmost first (on a Wayland desktop, those "
                         "the accessibility bus knows)");
  command->add_option("--app", options->app,
                      "Only this application's windows (a case-insensitive part of its name; "
                      "Terminal, TextEdit and Finder name their Linux counterparts)");
  command->add_flag("--json", options->json,
                    "Print {\"windows\": [...]} as JSON: id (a number), app, pid, title, frame");
  command->add_flag("--headless", options->headless, "Use Brimble's embedded display");
  return {command, [options] { return runWindows(*options); }};
}

Command addWindowCommand(CLI::App& app) {
  auto options = std::make_shared<WindowOptions>();
  CLI::App* command = app.add_subcommand(
      "window",
      "Open, focus, resize or close an application's window on the desktop (without one, start a "
      "display that stays with `brimble display start`)");
  command->require_subcommand(1);

  CLI::App* open = command->add_subcommand(
      "open", "Start the application and print its new window's id (the window is focused)");
  open->add_option("app", options->app, "Application name, e.g. Terminal or gedit")->required();
  CLI::App* focus = command->add_subcommand("focus", "Raise and focus the application's window");
  focus->add_option("app", options->app, "Application name")->required();
  CLI::App* resize = command->add_subcommand(
      "resize", "Move the application's window to the top-left corner and size its content");
  resize->add_option("app", options->app, "Application name")->required();
  resize->add_option("width", options->width, "Content width in pixels")
      ->required()
      ->check(CLI::Range(1, 65535));
  resize->add_option("height", options->height, "Content height in pixels")
      ->required()
      ->check(CLI::Range(1, 65535));
  CLI::App* close = command->add_subcommand(
      "close", "Ask the application's window (or the window --id names) to close");
  close->add_option("app", options->app, "Application name");
  close->add_option("--id", options->id, "The window's id, as `brimble windows` lists it")
      ->check(windowID());
  return {
      command, [=] {
        if (close->parsed() && options->app.empty() && options->id.empty()) {
          fmt::print(stderr, "brimble window close: give an application name or --id\n");
          return kExitUsage;
        }
        const auto desktop = lastingDesktop();
        WindowManager& manager = desktop->windows();
        if (open->parsed()) {
          fmt::print("{}\n", formatXID(manager.openApp(options->app)));
        } else if (focus->parsed()) {
          manager.focusApp(options->app);
        } else if (resize->parsed()) {
          const ScreenRect reached = manager.resize(options->app, options->width, options->height);
          fmt::print("{}x{}\n", reached.width, reached.height);
        } else if (const auto id = parseXID(options->id)) {
          if (!manager.find(*id)) {
            fmt::print(stderr, "brimble window close: Window ID {} not found\n", formatXID(*id));
            return kExitFailure;
          }
          manager.close(options->app, *id);
        } else {
          const auto match = manager.find(options->app);
          if (!match) {
            throw WindowManagerError::windowNotFound(options->app);
          }
          manager.close(options->app, match->window.id);
        }
        return kExitSuccess;
      }};
}

}  // namespace brimble::cli
