#include "cli/ReferenceCommands.h"

#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "BrimbleCore/Scripting/ScriptCommandManifest.h"
#include "BrimbleCore/Scripting/ScriptCommandTable.h"
#include "BrimbleCore/Scripting/ScriptSettings.h"

namespace brimble::cli {
namespace {

constexpr int kJSONIndent = 2;

int runCommands(bool json) {
  const ScriptCommandManifest& manifest = commandManifest();
  if (json) {
    fmt::print("{}\n", manifest.encodeJSON(kJSONIndent));
    return kExitSuccess;
  }
  // The manifest stays the language's own, the same on every platform; the listing also marks
  // what this platform cannot run.
  for (const ScriptCommand& command : ScriptCommandTable::shared().commands()) {
    const ScriptCommandInfo& info = command.info;
    fmt::print("{:<24}{}\n{:<24}e.g. {}\n", info.name, info.description, "",
               snippetExample(info.snippet));
    if (!command.platformNote.empty()) {
      fmt::print("{:<24}{}\n", "", command.platformNote);
    }
  }
  return kExitSuccess;
}

int runSettings(bool json) {
  if (json) {
    fmt::print("{}\n", settingsDocumentJSON(kJSONIndent));
    return kExitSuccess;
  }
  fmt::print("{:<20}{:<9}{:<12}{:<26}{}\n", "NAME", "TYPE", "DEFAULT", "VALUES", "MEANING");
  for (const ScriptSettingInfo& setting : scriptSettingsTable()) {
    std::string values;
    for (const std::string& value : setting.allowedValues) {
      values += (values.empty() ? "" : ", ") + value;
    }
    fmt::print("{:<20}{:<9}{:<12}{:<26}{}\n", setting.name, setting.type,
               setting.defaultValue.value_or("(none)"), values, setting.meaning);
  }
  return kExitSuccess;
}

}  // namespace

std::string snippetExample(const std::string& snippet) {
  std::string text;
  for (std::size_t i = 0; i < snippet.size(); ++i) {
    if (snippet.compare(i, 2, "\\$") == 0) {
      text += '$';
      ++i;
      continue;
    }
    if (snippet.compare(i, 2, "${") == 0) {
      const std::size_t close = snippet.find('}', i);
      std::size_t body = i + 2;
      while (body < close && snippet[body] >= '0' && snippet[body] <= '9') {
        ++body;
      }
      if (close != std::string::npos && body < close) {
        if (snippet[body] == ':') {
          text += snippet.substr(body + 1, close - body - 1);
        } else if (snippet[body] == '|' && close >= 1 && snippet[close - 1] == '|') {
          std::string choices = snippet.substr(body + 1, close - body - 2);
          for (char& c : choices) {
            c = c == ',' ? '|' : c;
          }
          text += choices;
        }
        i = close;
        continue;
      }
    }
    text += snippet[i];
  }
  return text;
}

Command addCommandsCommand(CLI::App& app) {
  auto json = std::make_shared<bool>(false);
  CLI::App* command = app.add_subcommand("commands", "List the .brim script commands");
  command->add_flag("--json", *json,
                    "Print the command manifest as JSON (version, commands, keywords)");
  return {command, [json] { return runCommands(*json); }};
}

Command addSettingsCommand(CLI::App& app) {
  auto json = std::make_shared<bool>(false);
  CLI::App* command = app.add_subcommand("settings", "List the .brim script settings");
  command->add_flag("--json", *json, "Print the settings document as JSON");
  return {command, [json] { return runSettings(*json); }};
}

}  // namespace brimble::cli
