#include "BrimbleCore/MCP/MCPResources.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "BrimbleCore/MCP/MCPToolSupport.h"
#include "BrimbleCore/MCP/MCPTools.h"
#include "BrimbleCore/Scripting/ScriptCommandManifest.h"
#include "BrimbleCore/Scripting/ScriptLibrary.h"
#include "BrimbleCore/Scripting/ScriptSettings.h"
#include "BrimbleCore/Support/CaptureHistory.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble::MCPResources {

// Built from the examples/ files by CMake, so the installed binary needs no data files.
const std::vector<std::pair<std::string_view, std::string_view>>& embeddedExamples();

namespace {

namespace fs = std::filesystem;

// The reference's sections. A command of the manifest not named here lands in the last
// section, so a new command is documented even before it is filed.
constexpr std::pair<std::string_view, std::string_view> kSections[] = {
    {"Window Management",
     "open focus capture-window resize clear target dismiss-dialog "
     "click-button-in-dialog"},
    {"Recording", "record stop remain render hide show output screenshot"},
    {"Input", "type click tap move cursor scroll key"},
    {"Timing and Shell", "wait wait-for-idle wait-for-text run env require include"},
    {"Elements and Browser", "fill move-to wait-for browser navigate highlight zoom zoom-out"},
    {"Effects and Title Cards",
     "spotlight spotlight-shift clear-fx intro outro set-background caption chapter"},
    {"Settings", "set"},
};

std::string sectionOf(const std::string& command) {
  for (const auto& [section, commands] : kSections) {
    std::istringstream words{std::string(commands)};
    std::string word;
    while (words >> word) {
      if (word == command) {
        return std::string(section);
      }
    }
  }
  return "Other Commands";
}

std::string syntaxOf(const ScriptCommandInfo& command) {
  std::string syntax = command.name;
  for (const ScriptArgInfo& arg : command.args) {
    std::string shown;
    if (arg.type == "flag") {
      shown = arg.name;
    } else if (arg.choices && !arg.choices->empty()) {
      for (const std::string& choice : *arg.choices) {
        shown += (shown.empty() ? "" : "|") + choice;
      }
    } else if (arg.type == "variable") {
      shown = "$" + arg.name;
    } else {
      shown = "<" + arg.name + ">";
    }
    syntax += " " + (arg.optional ? "[" + shown + "]" : shown);
  }
  return syntax;
}

std::string defaultText(const ScriptSettingInfo& setting) {
  return setting.defaultValue ? *setting.defaultValue : "none";
}

std::string jsonText(const JSONValue& value) {
  try {
    return value.encode(JSONValue::Style::pretty);
  } catch (const JSONCodingError&) {
    logLine("BrimbleCore: MCP resource serialization failed; returning empty object");
    return "{}";
  }
}

std::string fileDate(fs::file_time_type time) {
  const auto system = std::chrono::file_clock::to_sys(time);
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", std::chrono::floor<std::chrono::seconds>(system));
}

/// The entries of the desktop app's library index; none when it is missing or unreadable.
JSONValue::Array historyEntries() {
  std::ifstream stream(historyFilePath(), std::ios::binary);
  if (!stream) {
    return {};
  }
  std::ostringstream text;
  text << stream.rdbuf();
  try {
    const JSONValue document = JSONValue::decode(text.str());
    const JSONValue::Array* entries = document["entries"].arrayValue();
    return entries ? *entries : JSONValue::Array{};
  } catch (const JSONCodingError&) {
    return {};
  }
}

JSONValue savedGIF(const JSONValue& entry) {
  const auto bytes = entry["fileSize"].numberValue().value_or(0);
  return JSONValue::Object{{"path", entry["path"]},
                           {"size_mb", mcp::megabytes(static_cast<std::uintmax_t>(bytes))},
                           {"date", entry["createdAt"]}};
}

std::string gifLibrary() {
  JSONValue::Array gifs;
  for (const JSONValue& entry : historyEntries()) {
    if (entry["path"].stringValue() != nullptr) {
      gifs.push_back(savedGIF(entry));
    }
  }
  if (gifs.empty()) {
    return "No saved GIFs found. Save a GIF in the Brimble app to populate the library.";
  }
  return jsonText(JSONValue::Object{{"gifs", std::move(gifs)}});
}

std::string gifEntry(const std::string& path) {
  for (const JSONValue& entry : historyEntries()) {
    const std::string* entryPath = entry["path"].stringValue();
    if (entryPath != nullptr && *entryPath == path) {
      return jsonText(savedGIF(entry));
    }
  }
  throw MCPResourceError::noSavedGIF(path);
}

std::string scriptLibrary() {
  const ScriptLibrary library;
  JSONValue::Array scripts;
  for (const ScriptLibrary::Entry& entry : library.list()) {
    scripts.push_back(JSONValue::Object{{"name", entry.name},
                                        {"path", entry.path.string()},
                                        {"size_bytes", entry.sizeBytes},
                                        {"modified", fileDate(entry.modifiedAt)}});
  }
  return jsonText(JSONValue::Object{{"directory", library.directory().string()},
                                    {"scripts", std::move(scripts)}});
}

}  // namespace

std::string scriptingReference() {
  std::map<std::string, std::vector<const ScriptCommandInfo*>> bySection;
  for (const ScriptCommandInfo& command : commandManifest().commands) {
    bySection[sectionOf(command.name)].push_back(&command);
  }
  std::string text =
      "# Brimble Scripting Reference (.brim)\n\n"
      "Line-oriented DSL for creating multi-step GIF demos.\n\n"
      "One command per line; `#` starts a comment; strings are double-quoted; `$name` and "
      "`$name[N]` read variables set with `as $name`. Element targets: `text:Label`, "
      "`role:push button/OK`, and in a browser `css:#selector`.\n";
  std::vector<std::string> order;
  for (const auto& [section, commands] : kSections) {
    order.emplace_back(section);
  }
  order.emplace_back("Other Commands");
  for (const std::string& section : order) {
    const auto found = bySection.find(section);
    if (found == bySection.end()) {
      continue;
    }
    text += "\n## " + section + "\n\n";
    for (const ScriptCommandInfo* command : found->second) {
      text += "- `" + syntaxOf(*command) + "` — " + command->description + "\n";
    }
  }
  text += "\n## Settings (`set <name> <value>`)\n\n";
  for (const ScriptSettingInfo& setting : scriptSettingsTable()) {
    text += "- `" + setting.name + "` (" + setting.type + ", default " + defaultText(setting);
    if (!setting.allowedValues.empty()) {
      std::string values;
      for (const std::string& value : setting.allowedValues) {
        values += (values.empty() ? "" : ", ") + value;
      }
      text += "; one of " + values;
    }
    text += ") — " + setting.meaning + "\n";
  }
  text += "\n## Examples\n\nRead `brimble://examples/<name>`: ";
  std::string names;
  for (const auto& [key, source] : examples()) {
    names += (names.empty() ? "" : ", ") + std::string(key);
  }
  text += names + ".\n";
  return text;
}

const std::vector<std::pair<std::string_view, std::string_view>>& examples() {
  return embeddedExamples();
}

std::string example(std::string_view key) {
  std::string available;
  for (const auto& [name, source] : examples()) {
    if (name == key) {
      return std::string(source);
    }
    available += (available.empty() ? "" : ", ") + std::string(name);
  }
  throw MCPResourceError::unknownExample(key, available);
}

std::string permissionStatus(const PlatformTexts& texts, bool screenRecording, bool accessibility) {
  const std::string& screenNote = screenRecording ? "Granted" : texts.screenRecordingNotGranted;
  const char* accessibilityNote =
      accessibility ? "Granted"
                    : "Not granted — optional, enables cursor smoothing, click indicators, "
                      "keystroke badges.";
  return fmt::format(
      "{{\n  \"screen_recording\": {},\n  \"accessibility\": {},\n"
      "  \"screen_recording_note\": \"{}\",\n  \"accessibility_note\": \"{}\"\n}}",
      screenRecording, accessibility, screenNote, accessibilityNote);
}

std::string recentRecordings(const std::vector<RecentOutput>& outputs) {
  if (outputs.empty()) {
    return R"({"recordings": [], "note": "No GIFs generated yet in this session."})";
  }
  std::string items;
  for (const RecentOutput& output : outputs) {
    items += (items.empty() ? "" : ", ") +
             fmt::format(R"({{"path": {}, "size_mb": {:.2f}, "dimensions": {}, "date": {}}})",
                         JSONValue(output.path.string()).encode(),
                         static_cast<double>(output.sizeBytes) / (1024.0 * 1024.0),
                         JSONValue(output.dimensions).encode(), JSONValue(output.date).encode());
  }
  return R"({"recordings": [)" + items + "]}";
}

std::string historyFilePath() {
  return CaptureHistory::defaultPath().string();
}

void registerAll(MCPServer& server, SessionContext& context, MCPDesktop& desktop) {
  server.registerResource(
      {"brimble://docs/scripting-reference", "Scripting Reference",
       "Complete .brim scripting DSL reference — all commands, settings, and variables.",
       "text/markdown"},
      [](const std::string&) { return scriptingReference(); });
  server.registerResource(
      {"brimble://examples/{name}", "Example Scripts",
       "Example .brim scripts: hello, git-workflow, multi-window, spotlight-demo, polish-demo.",
       "text/plain"},
      [](const std::string& uri) {
        return example(
            std::string_view(uri).substr(std::string_view("brimble://examples/").size()));
      });
  server.registerResource(
      {"brimble://schema/settings", "Settings Schema",
       "All .brim settings with types, defaults, and valid values.", "application/json"},
      [](const std::string&) { return settingsDocumentJSON(2); });
  server.registerResource(
      {"brimble://status/permissions", "Permission Status",
       "Current Screen Recording and Accessibility permission status.", "application/json"},
      [&desktop](const std::string&) {
        return permissionStatus(desktop.texts(), mcp::screenRecordingGranted(desktop),
                                mcp::accessibilityGranted(desktop));
      });
  server.registerResource(
      {"brimble://recordings", "Recent Recordings", "GIF files generated in the current session.",
       "application/json"},
      [&context](const std::string&) { return recentRecordings(context.recentOutputs()); });
  server.registerResource(
      {"gif://library", "GIF Library",
       "Recently saved GIFs from the Brimble app (path, size, date).", "application/json"},
      [](const std::string&) { return gifLibrary(); });
  server.registerResource(
      {"gif://{path}", "Saved GIF", "Metadata for a saved GIF by absolute path (path, size, date).",
       "application/json"},
      [](const std::string& uri) {
        return gifEntry(uri.substr(std::string_view("gif://").size()));
      });
  server.registerResource(
      {"script://library", "Script Library",
       "User .brim scripts from BRIMBLE_SCRIPT_DIR (default ~/.brimble/scripts).",
       "application/json"},
      [](const std::string&) { return scriptLibrary(); });
  server.registerResource(
      {"script://library/{name}", "Script Source", "Source of a single .brim script by name.",
       "text/plain"},
      [](const std::string& uri) {
        return ScriptLibrary().read(uri.substr(std::string_view("script://library/").size()));
      });
}

}  // namespace brimble::MCPResources
