#include "BrimbleCore/Scripting/ScriptCommandManifest.h"

#include <utility>

#include <nlohmann/json.hpp>

namespace brimble {
namespace {

using Json = nlohmann::ordered_json;

ScriptArgSpec required(std::string name, std::string type) {
  return {std::move(name), std::move(type), false, std::nullopt};
}

ScriptArgSpec optional(std::string name, std::string type) {
  return {std::move(name), std::move(type), true, std::nullopt};
}

ScriptArgSpec choice(std::string name, std::vector<std::string> choices, bool isOptional = false) {
  return {std::move(name), "string", isOptional, std::move(choices)};
}

std::vector<ScriptArgSpec> rect() {
  return {optional("x", "number"), optional("y", "number"), optional("width", "number"),
          optional("height", "number")};
}

std::vector<ScriptArgSpec> spotlightArgs() {
  std::vector<ScriptArgSpec> args = {choice("target", {"stdout", "region"}),
                                     optional("line", "variableIndex")};
  for (ScriptArgSpec& arg : rect()) {
    args.push_back(std::move(arg));
  }
  args.push_back(optional("duration", "number"));
  return args;
}

std::vector<ScriptArgSpec> titleCardArgs() {
  return {required("title", "string"), optional("subtitle", "string"),
          optional("duration", "number")};
}

}  // namespace

ScriptManifestError ScriptManifestError::malformed(const std::string& detail) {
  return {Code::malformed, "Malformed command manifest: " + detail};
}

std::string ScriptCommandManifest::encodeJSON(int indent) const {
  Json commandList = Json::array();
  for (const ScriptCommandSpec& command : commands) {
    Json args = Json::array();
    for (const ScriptArgSpec& arg : command.args) {
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
      ScriptCommandSpec command;
      command.name = entry.at("name").get<std::string>();
      command.description = entry.at("description").get<std::string>();
      command.snippet = entry.at("snippet").get<std::string>();
      for (const Json& argument : entry.at("args")) {
        ScriptArgSpec arg;
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
  manifest.commands = {
      {"set",
       "Set a script setting (fps, output, max-width, etc.)",
       {required("key", "string"), required("value", "string")},
       "set ${1:key} ${2:value}"},
      {"open",
       "Open an application and create a new window",
       {required("app", "string")},
       R"(open "${1:Terminal}")"},
      {"focus",
       "Bring an application's window to the front",
       {required("app", "string")},
       R"(focus "${1:Terminal}")"},
      {"capture-window",
       "Capture a window reference by app name or ID",
       {choice("by", {"app", "id"}), required("window", "string"), optional("as", "variable")},
       R"(capture-window app "${1:Terminal}" as \$${2:win})"},
      {"record",
       "Record a window, screen region, window sub-region, or iOS Simulator "
       "(duration/continue; audio for MP4, not available for simulator)",
       {optional("window", "variable"), optional("crop", "flag"), optional("region", "flag"),
        optional("simulator", "flag"), optional("x", "number"), optional("y", "number"),
        optional("width", "number"), optional("height", "number"), optional("duration", "number"),
        optional("continue", "flag"), optional("audio", "flag")},
       R"(record \$${1:win} duration ${2:3.0} continue)"},
      {"stop", "Stop the active recording", {}, "stop"},
      {"type",
       "Simulate typing text, optionally pressing Enter",
       {required("text", "string"), optional("enter", "flag"), optional("delay", "number")},
       R"(type "${1:text}")"},
      {"click",
       "Click at coordinates, current position, or an element target (e.g. text:Save)",
       {optional("x", "number"), optional("y", "number"), optional("target", "target"),
        optional("right", "flag")},
       "click ${1:x} ${2:y}"},
      {"tap",
       "Tap the iOS Simulator at a device framebuffer pixel (the coordinates simctl screenshots "
       "use). Brings the Simulator to the front, so it steals focus.",
       {required("x", "number"), required("y", "number")},
       "tap ${1:x} ${2:y}"},
      {"move",
       "Smoothly move the cursor to coordinates over a duration",
       {required("x", "number"), required("y", "number"), optional("duration", "number")},
       "move ${1:x} ${2:y} duration ${3:0.5}"},
      {"cursor",
       "Instantly set cursor position",
       {required("x", "number"), required("y", "number")},
       "cursor ${1:x} ${2:y}"},
      {"scroll",
       "Simulate scroll wheel in a direction",
       {choice("direction", {"up", "down", "left", "right"}), optional("ticks", "number")},
       "scroll ${1|up,down,left,right|} ${2:3}"},
      {"key",
       "Simulate a key press with optional modifiers",
       {required("keyspec", "string")},
       "key ${1:enter}"},
      {"wait",
       "Pause execution for a number of seconds",
       {required("seconds", "number")},
       "wait ${1:1.0}"},
      {"wait-for-idle",
       "Wait until screen content stabilizes or timeout",
       {required("seconds", "number")},
       "wait-for-idle ${1:2.0}"},
      {"run",
       "Execute a shell command, optionally capturing output",
       {required("command", "string"), optional("as", "variable")},
       R"(run "${1:command}" as \$${2:out})"},
      {"spotlight", "Add a spotlight effect to a region or stdout line", spotlightArgs(),
       "spotlight region ${1:x} ${2:y} ${3:w} ${4:h} duration ${5:2.0}"},
      {"spotlight-shift", "Animate spotlight from previous position to a new target",
       spotlightArgs(), "spotlight-shift region ${1:x} ${2:y} ${3:w} ${4:h} duration ${5:2.0}"},
      {"clear-fx", "Remove all active visual effects", {}, "clear-fx"},
      {"remain", "Wait for the remaining duration of the current recording", {}, "remain"},
      {"render", "Stop recording and render the GIF immediately", {}, "render"},
      {"clear", "Send Ctrl+L to clear the target window", {}, "clear"},
      {"resize",
       "Resize the target window to width x height",
       {required("width", "number"), required("height", "number")},
       "resize ${1:800} ${2:600}"},
      {"intro", "Add a title card at the beginning of the GIF", titleCardArgs(),
       R"(intro "${1:Title}" subtitle "${2:Subtitle}")"},
      {"outro", "Add a title card at the end of the GIF", titleCardArgs(),
       R"(outro "${1:Title}" subtitle "${2:Subtitle}")"},
      {"dismiss-dialog",
       "Dismiss an unexpected dialog or sheet (optional: app, button keywords)",
       {optional("app", "string"), optional("button", "string")},
       R"(dismiss-dialog button "${1:OK}")"},
      {"click-button-in-dialog",
       "Click a named button in the frontmost dialog/sheet to proceed (requires Accessibility)",
       {required("button", "string"), optional("app", "string")},
       R"(click-button-in-dialog button "${1:Allow}")"},
      {"set-background",
       R"(Composite frames over a solid hex background color (e.g. "#FF0000"))",
       {required("color", "string")},
       R"(set-background color "${1:#1a1a2e}")"},
      {"target",
       "Attach to a native app or Safari window for unobtrusive element-driven demos",
       {choice("kind", {"window", "app"}), required("match", "string"), optional("as", "variable")},
       R"(target app "${1:Name}" as \$${2:app})"},
      {"fill",
       "Set the value of an element matched by target (falls back to keystrokes for fields that "
       "reject direct value-setting)",
       {required("target", "target"), required("text", "string"), optional("enter", "flag")},
       R"(fill ${1:text:Field} "${2:value}")"},
      {"move-to",
       "Move the synthetic cursor to an element without clicking",
       {required("target", "target")},
       "move-to ${1:text:Label}"},
      {"wait-for",
       "Wait until an element matching the target appears (or timeout)",
       {required("target", "target"), optional("timeout", "number")},
       "wait-for ${1:text:Label} timeout ${2:10}"},
      {"browser",
       "Launch a browser session: chrome (CDP, CSS selectors) or safari (AX)",
       {choice("engine", {"chrome", "safari"}), required("url", "string"),
        optional("as", "variable")},
       R"(browser chrome "${1:...}" as \$${2:b})"},
      {"navigate",
       "Navigate the active browser session to a URL",
       {required("url", "string"), optional("show-typing", "flag")},
       R"(navigate "${1:...}")"},
      {"highlight",
       "Highlight an element (resolved by target) for a duration",
       {required("target", "target"), optional("duration", "number"),
        choice("style", {"outline", "glow", "box"}, true)},
       "highlight ${1:text:Save} duration ${2:2.0} style ${3|outline,glow,box|}"},
      {"zoom",
       "Zoom toward an element (digital Ken-Burns, or CDP page zoom for Chrome)",
       {required("target", "target"), optional("scale", "number"), optional("duration", "number"),
        choice("mode", {"digital", "page"}, true)},
       "zoom ${1:text:Logo} scale ${2:2.0} duration ${3:0.6} mode ${4|digital,page|}"},
      {"zoom-out",
       "Return the zoom to 1.0",
       {optional("duration", "number")},
       "zoom-out duration ${1:0.5}"},
  };
  for (const ScriptCommandSpec& command : manifest.commands) {
    manifest.keywords.push_back(command.name);
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
