// The window and info families: what is on screen, opening and focusing applications, and the
// server's own state (the script vocabulary, permissions, status).

#include <algorithm>
#include <cctype>
#include <string>

#include "BrimbleCore/Automation/AccessibilityBackend.h"
#include "BrimbleCore/Automation/WindowManagerError.h"
#include "BrimbleCore/MCP/MCPToolSupport.h"
#include "BrimbleCore/MCP/MCPTools.h"
#include "BrimbleCore/Scripting/ScriptCommandManifest.h"
#include "BrimbleCore/Scripting/ScriptSettings.h"

namespace brimble::mcp {
namespace {

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

JSONValue listWindows(MCPDesktop& desktop, const Arguments& arguments) {
  requireScreen(desktop);
  const std::string filter = lowered(arguments.string("app").value_or(""));
  JSONValue::Array windows;
  for (const WindowInfo& window : desktop.windows().windows()) {
    const std::string app = window.appName.empty() ? "Unknown" : window.appName;
    if (!filter.empty() && lowered(app).find(filter) == std::string::npos) {
      continue;
    }
    windows.push_back(JSONValue::Object{
        {"id", window.id},
        {"app", app},
        {"title", window.title},
        // Unknown on Wayland, and not made up.
        {"x", window.positionKnown ? JSONValue(window.frame.x) : JSONValue(nullptr)},
        {"y", window.positionKnown ? JSONValue(window.frame.y) : JSONValue(nullptr)},
        {"width", window.frame.width},
        {"height", window.frame.height}});
  }
  return JSONValue::Object{{"windows", std::move(windows)}};
}

JSONValue openApp(MCPDesktop& desktop, const Arguments& arguments) {
  const auto app = arguments.string("app");
  if (!app || app->empty()) {
    fail("'app' parameter is required");
  }
  requireScreen(desktop);
  std::uint32_t id = 0;
  try {
    id = desktop.windows().openApp(*app);
  } catch (const WindowManagerError& error) {
    if (error.code() == WindowManagerError::Code::noWindow) {
      fail("Opened " + *app + " but could not find its window");
    }
    fail("Failed to open " + *app);
  }
  const auto window = desktop.windows().find(id);
  if (!window) {
    fail("Opened " + *app + " but could not find its window");
  }
  return JSONValue::Object{
      {"window_id", window->id}, {"app", window->appName}, {"title", window->title}};
}

JSONValue focusApp(MCPDesktop& desktop, const Arguments& arguments) {
  const auto app = arguments.string("app");
  if (!app || app->empty()) {
    fail("'app' parameter is required");
  }
  try {
    desktop.windows().focusApp(*app);
  } catch (const WindowManagerError&) {
    fail("Failed to focus " + *app);
  }
  return JSONValue::Object{{"focused", true}, {"app", *app}};
}

JSONValue permissionsNote(const MCPDesktop& desktop, bool screenRecording) {
  return screenRecording ? "All required permissions granted."
                         : desktop.texts().toolScreenRecordingRequired;
}

JSONValue brimbleStatus(MCPDesktop& desktop, const SessionContext& context) {
  const bool screenRecording = screenRecordingGranted(desktop);
  const bool accessibility = accessibilityGranted(desktop);
  const MCPDesktop::AppInfo app = desktop.desktopApp();
  const auto display = desktop.session();

  std::vector<std::string> problems;
  if (!screenRecording) {
    problems.push_back(desktop.texts().screenProblem);
  }
  if (!app.installed) {
    problems.push_back(
        "the desktop app (brimble-app) was not detected on PATH; it is built and installed with "
        "brimble (the CLI and every MCP tool work without it)");
  }
  std::string summary = "Everything is ready.";
  if (!problems.empty()) {
    summary.clear();
    for (const std::string& problem : problems) {
      summary += (summary.empty() ? "" : "; ") + problem;
    }
    summary[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(summary[0])));
    summary += ".";
  }
  JSONValue displayJSON;
  if (display) {
    displayJSON = JSONValue::Object{{"name", display->name},
                                    {"backend", serverName(display->server)},
                                    {"embedded", display->embedded},
                                    {"reason", display->reason}};
  }
  return JSONValue::Object{
      {"cli_version", context.cliVersion()},
      {"app", JSONValue::Object{{"installed", app.installed},
                                {"path", app.installed ? JSONValue(app.path) : JSONValue()},
                                {"version", app.installed ? JSONValue(app.version) : JSONValue()}}},
      {"permissions",
       JSONValue::Object{{"screen_recording", screenRecording}, {"accessibility", accessibility}}},
      {"display", std::move(displayJSON)},
      {"summary", summary},
  };
}

}  // namespace

bool screenRecordingGranted(MCPDesktop& desktop) {
  try {
    return !desktop.screen().displays().empty();
  } catch (const std::exception&) {
    return false;
  }
}

void requireScreen(MCPDesktop& desktop) {
  if (!screenRecordingGranted(desktop)) {
    fail(desktop.texts().toolScreenRecordingRequired);
  }
}

bool accessibilityGranted(MCPDesktop& desktop) {
  try {
    if (!desktop.input().available()) {
      return false;
    }
    AccessibilityBackend* backend = desktop.windows().accessibility();
    std::string reason;
    return backend != nullptr && backend->available(reason);
  } catch (const std::exception&) {
    return false;
  }
}

void registerWindowTools(const ToolEnvironment& environment) {
  MCPDesktop& desktop = environment.desktop;
  environment.server.registerTool(
      {"list_windows",
       "List all capturable windows on screen. Optionally filter by application name.",
       objectSchema({{"app", property("string",
                                      "Filter by application name (case-insensitive "
                                      "substring match)")}})},
      [&desktop](const JSONValue& arguments) {
        return listWindows(desktop, Arguments(arguments));
      });
  environment.server.registerTool(
      {"open_app",
       "Open an application and return the new window ID. Creates a new window even if the app "
       "is already running.",
       objectSchema({{"app", property("string",
                                      "Application name (e.g. 'Terminal', 'Finder', "
                                      "'Safari')")}},
                    {"app"})},
      [&desktop](const JSONValue& arguments) { return openApp(desktop, Arguments(arguments)); });
  environment.server.registerTool(
      {"focus_app", "Bring an application to the front.",
       objectSchema({{"app", property("string", "Application name")}}, {"app"})},
      [&desktop](const JSONValue& arguments) { return focusApp(desktop, Arguments(arguments)); });
}

void registerInfoTools(const ToolEnvironment& environment) {
  MCPDesktop& desktop = environment.desktop;
  SessionContext& context = environment.context;
  environment.server.registerTool(
      {"list_settings",
       "List all available .brim script settings with their types, defaults, and descriptions.",
       objectSchema({})},
      [](const JSONValue&) -> JSONValue {
        // The published document itself, so the tool and the schema resource never differ.
        return JSONValue::Object{
            {"settings", JSONValue::decode(settingsDocumentJSON())["settings"]}};
      });
  environment.server.registerTool(
      {"list_commands", "List all available .brim script commands with syntax descriptions.",
       objectSchema({})},
      [](const JSONValue&) -> JSONValue {
        JSONValue::Array commands;
        for (const ScriptCommandInfo& command : commandManifest().commands) {
          commands.push_back(
              JSONValue::Object{{"command", command.name}, {"description", command.description}});
        }
        return JSONValue::Object{{"commands", std::move(commands)}};
      });
  environment.server.registerTool(
      {"check_permissions", "Check current Screen Recording and Accessibility permission status.",
       objectSchema({})},
      [&desktop](const JSONValue&) -> JSONValue {
        const bool screenRecording = screenRecordingGranted(desktop);
        JSONValue::Object result{{"screen_recording", screenRecording},
                                 {"accessibility", accessibilityGranted(desktop)},
                                 {"note", permissionsNote(desktop, screenRecording)}};
        // Which backend answered, and why that one: the same question differs on Wayland.
        if (const auto session = desktop.session()) {
          result.emplace("backend", serverName(session->server));
          result.emplace("backend_reason", session->reason);
        }
        // The checks `brimble doctor` makes, each missing one with the one thing to do.
        if (const auto checks = desktop.checklist(); !checks.empty()) {
          result.emplace("checks", JSONValue::decode(checklistJson(checks)["checks"].dump()));
        }
        return result;
      });
  environment.server.registerTool(
      {"brimble_status",
       "Diagnostic snapshot of the Brimble server: CLI version, whether the desktop app is "
       "installed, permission status, and the display in use and why. "
       "Always succeeds; call it first if anything seems off.",
       objectSchema({})},
      [&desktop, &context](const JSONValue&) { return brimbleStatus(desktop, context); });
}

}  // namespace brimble::mcp
