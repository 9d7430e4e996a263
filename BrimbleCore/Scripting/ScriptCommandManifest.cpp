#include "BrimbleCore/Scripting/ScriptCommandManifest.h"

#include <nlohmann/json.hpp>

#include "BrimbleCore/Scripting/ScriptCommandTable.h"

namespace brimble {
namespace {

using Json = nlohmann::ordered_json;

}  // namespace

ScriptManifestError ScriptManifestError::malformed(const std::string& detail) {
  return {Code::malformed, "Malformed command manifest: " + detail};
}

std::string ScriptCommandManifest::encodeJSON(int indent) const {
  Json commandList = Json::array();
  for (const ScriptCommandInfo& command : commands) {
    Json args = Json::array();
    for (const ScriptArgInfo& arg : command.args) {
      Json entry;
      entry["name"] = arg.name;
      entry["type"] = arg.type;
      entry["optional"] = arg.optional;
      if (arg.choices) {
        entry["choices"] = *arg.choices;
      }
      args.push_back(std::move(entry));
    }
    Json entry;
    entry["name"] = command.name;
    entry["description"] = command.description;
    entry["args"] = std::move(args);
    entry["snippet"] = command.snippet;
    commandList.push_back(std::move(entry));
  }
  Json document;
  document["version"] = version;
  document["commands"] = std::move(commandList);
  document["keywords"] = keywords;
  return document.dump(indent);
}

ScriptCommandManifest ScriptCommandManifest::decodeJSON(std::string_view json) {
  try {
    const Json document = Json::parse(json);
    ScriptCommandManifest manifest;
    manifest.version = document.at("version").get<int>();
    for (const Json& entry : document.at("commands")) {
      ScriptCommandInfo command;
      command.name = entry.at("name").get<std::string>();
      command.description = entry.at("description").get<std::string>();
      command.snippet = entry.at("snippet").get<std::string>();
      for (const Json& argument : entry.at("args")) {
        ScriptArgInfo arg;
        arg.name = argument.at("name").get<std::string>();
        arg.type = argument.at("type").get<std::string>();
        arg.optional = argument.at("optional").get<bool>();
        if (const auto found = argument.find("choices"); found != argument.end()) {
          arg.choices = found->get<std::vector<std::string>>();
        }
        command.args.push_back(std::move(arg));
      }
      manifest.commands.push_back(std::move(command));
    }
    manifest.keywords = document.at("keywords").get<std::vector<std::string>>();
    return manifest;
  } catch (const nlohmann::json::exception& error) {
    throw ScriptManifestError::malformed(error.what());
  }
}

ScriptCommandManifest makeCommandManifest() {
  ScriptCommandManifest manifest;
  for (const ScriptCommand& command : ScriptCommandTable::shared().commands()) {
    manifest.commands.push_back(command.info);
    manifest.keywords.push_back(command.info.name);
  }
  return manifest;
}

const ScriptCommandManifest& commandManifest() {
  static const ScriptCommandManifest manifest = makeCommandManifest();
  return manifest;
}

const std::vector<std::string>& commandKeywords() {
  return commandManifest().keywords;
}

}  // namespace brimble
