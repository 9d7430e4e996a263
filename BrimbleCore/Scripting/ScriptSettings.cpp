#include "BrimbleCore/Scripting/ScriptSettings.h"

#include <algorithm>
#include <charconv>

#include <nlohmann/json.hpp>

#include "BrimbleCore/Automation/TerminalTheme.h"
#include "BrimbleCore/Effects/EffectColor.h"
#include "BrimbleCore/Effects/RenderSettings.h"
#include "BrimbleCore/Effects/WindowBar.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

constexpr std::string_view kBlanks = " \t\n\r";

nlohmann::ordered_json typedValue(const std::string& type, const std::string& text) {
  if (type == "integer") {
    return *intFromSettingText(text);
  }
  if (type == "number") {
    // Whole numbers are written without a fraction, as everywhere in Brimble's JSON.
    const double value = *doubleFromSettingText(text);
    if (const auto whole = intFromSettingText(formatScriptNumber(value))) {
      return *whole;
    }
    return value;
  }
  if (type == "boolean") {
    return *boolFromSettingText(text);
  }
  return text;
}

bool isMarginFill(std::string_view text) {
  const std::string_view value = trimmed(text, kBlanks);
  return !value.empty() && (!value.starts_with('#') || EffectColor::parse(value).has_value());
}

bool isTerminalTheme(std::string_view text) {
  try {
    TerminalTheme::parse(text);
    return true;
  } catch (const TerminalThemeError&) {
    return false;
  }
}

bool isLoopOffset(std::string_view text) {
  return LoopOffset::parse(text).has_value();
}

bool isPlaybackSpeed(std::string_view text) {
  const auto factor = doubleFromSettingText(text);
  return factor && *factor >= 0.25 && *factor <= 4;
}

std::string themeNames() {
  std::string names;
  for (const std::string& name : TerminalTheme::names()) {
    names += (names.empty() ? "" : ", ") + name;
  }
  return names;
}

}  // namespace

const std::vector<ScriptSettingInfo>& scriptSettingsTable() {
  static const std::vector<ScriptSettingInfo> table = {
      {"fps", "integer", "30", {"12", "24", "30", "60"}, "capture and output frame rate"},
      {"output", "string", "output.gif", {}, "output file path"},
      {"max-width", "integer", "800", {}, "maximum output width in pixels", 16},
      {"loop-count", "integer", "0", {}, "0 loops forever, 1 plays once", 0},
      {"transition", "number", "0.3", {}, "crossfade between recorded segments, seconds", 0},
      {.name = "playback-speed",
       .type = "number",
       .defaultValue = "1",
       .allowedValues = {},
       .meaning = "the output plays this many times as fast as it was recorded (2: half as long)",
       .accepts = isPlaybackSpeed,
       .expected = "a factor from 0.25 to 4"},
      {.name = "loop-offset",
       .type = "string",
       .defaultValue = "0",
       .allowedValues = {},
       .meaning = "the frame a looping output starts with (from 0), or a share of its length "
                  "(50%); the frames before it play at the end",
       .accepts = isLoopOffset,
       .expected = "a frame number (0 or more) or a percentage such as 50%"},
      {"show-cursor", "boolean", "true", {}, "show the system cursor"},
      {"cursor-smoothing", "boolean", "false", {}, "smooth cursor paths"},
      {"click-indicators", "boolean", "false", {}, "draw click overlays"},
      {"type-smoothing", "boolean", "false", {}, "even out typing speed"},
      {"keystroke-badges", "boolean", "false", {}, "show key-combination badges"},
      {"keystroke-text",
       "boolean",
       "false",
       {},
       "with the key badges, show typed text as a caption"},
      {"include-title-bar", "boolean", "true", {}, "keep the window title bar"},
      {"idle-strategy",
       "string",
       std::nullopt,
       {"fade", "cut", "ramp"},
       "treatment of idle stretches"},
      {"idle-threshold", "number", "2.0", {}, "seconds without change that count as idle", 0},
      {"palette-strategy",
       "string",
       "auto",
       {"auto", "global", "perFrame"},
       "colour palette choice for the encoder"},
      {"cleanup", "boolean", "true", {}, "close windows the script opened, after render"},
      {"strict", "boolean", "true", {}, "fail on non-zero exit codes of `run`"},
      {"run-timeout", "number", "30", {}, "seconds before a `run` command is stopped", 0},
      {"pace", "string", std::nullopt, {"tutorial", "demo", "cinematic"}, "pace preset"},
      {"typing-delay", "number", "0.05", {}, "seconds between typed characters", 0},
      {"auto-pace", "boolean", "false", {}, "insert pauses between actions"},
      {"auto-pace-delay", "number", "0.8", {}, "length of an inserted pause, seconds", 0},
      {"window-bar", "string", std::nullopt, windowBarStyleNames(),
       "a bar over each recorded window: a title, or three buttons left or right, filled or "
       "rings"},
      {"window-bar-size", "integer", std::nullopt, {}, "height of the window bar in pixels", 1},
      {"window-title",
       "string",
       std::nullopt,
       {},
       "title in the window bar, and of terminals the script opens"},
      {"border-radius", "integer", std::nullopt, {}, "radius of the window's corners in pixels", 0},
      {"margin",
       "integer",
       std::nullopt,
       {},
       "pixels around the window, filled with margin-fill",
       0},
      {.name = "margin-fill",
       .type = "string",
       .defaultValue = std::nullopt,
       .allowedValues = {},
       .meaning = "what fills the margin: a colour (#674eff) or a PNG or JPEG file",
       .accepts = isMarginFill,
       .expected = "a colour such as #674eff, or an image file"},
      {"terminal-font", "string", std::nullopt, {}, "font family of terminals the script opens"},
      {"terminal-font-size",
       "number",
       std::nullopt,
       {},
       "font size of terminals the script opens, in points",
       4},
      {"terminal-columns",
       "integer",
       std::nullopt,
       {},
       "width of terminals the script opens, in characters",
       10},
      {"terminal-rows",
       "integer",
       std::nullopt,
       {},
       "height of terminals the script opens, in lines",
       2},
      {"terminal-width",
       "integer",
       std::nullopt,
       {},
       "width of terminals the script opens, in pixels",
       100},
      {"terminal-height",
       "integer",
       std::nullopt,
       {},
       "height of terminals the script opens, in pixels",
       50},
      {.name = "terminal-theme",
       .type = "string",
       .defaultValue = std::nullopt,
       .allowedValues = {},
       .meaning = "colours of terminals the script opens: a theme name (Dracula, Nord, ...) or "
                  "JSON colours",
       .accepts = isTerminalTheme,
       .expected = "a theme name (" + themeNames() + ") or a JSON object of colours"},
      {"terminal-shell",
       "string",
       std::nullopt,
       {},
       "shell of terminals the script opens (bash, zsh, fish, sh, ...); the user's when unset"},
      {"terminal-prompt",
       "string",
       std::nullopt,
       {},
       "prompt of terminals the script opens, whose shell then skips the user's startup files"},
      {"terminal-padding",
       "integer",
       std::nullopt,
       {},
       "pixels between a terminal's edge and its text",
       0},
      {"line-height",
       "number",
       std::nullopt,
       {},
       "terminals' line height, a factor of the font's (0.9 to 1.5)",
       0.9},
      {"cursor-blink",
       "boolean",
       "false",
       {},
       "whether the cursor of terminals the script opens blinks"},
  };
  return table;
}

const ScriptSettingInfo* findScriptSetting(std::string_view name) {
  for (const ScriptSettingInfo& setting : scriptSettingsTable()) {
    if (setting.name == name) {
      return &setting;
    }
  }
  return nullptr;
}

bool isKnownSetting(std::string_view name) {
  return findScriptSetting(name) != nullptr || name == "intro-bg" || name == "intro-fg";
}

const std::vector<std::pair<std::string, std::string>>& initialSettings() {
  static const std::vector<std::pair<std::string, std::string>> settings = {
      {"fps", "30"},
      {"output", "output.gif"},
      {"max-width", "800"},
      {"loop-count", "0"},
      {"transition", "0.3"}};
  return settings;
}

std::string settingsDocumentJSON(int indent) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const ScriptSettingInfo& setting : scriptSettingsTable()) {
    nlohmann::ordered_json entry;
    entry["name"] = setting.name;
    entry["type"] = setting.type;
    entry["default"] =
        setting.defaultValue ? typedValue(setting.type, *setting.defaultValue) : nullptr;
    if (!setting.allowedValues.empty()) {
      nlohmann::ordered_json values = nlohmann::ordered_json::array();
      for (const std::string& value : setting.allowedValues) {
        values.push_back(typedValue(setting.type, value));
      }
      entry["enum"] = std::move(values);
    }
    list.push_back(std::move(entry));
  }
  nlohmann::ordered_json document;
  document["settings"] = std::move(list);
  return document.dump(indent);
}

std::optional<bool> boolFromSettingText(std::string_view text) {
  const std::string word = lowercased(trimmed(text, kBlanks));
  if (word == "true" || word == "yes" || word == "on" || word == "1") {
    return true;
  }
  if (word == "false" || word == "no" || word == "off" || word == "0") {
    return false;
  }
  return std::nullopt;
}

std::optional<int> intFromSettingText(std::string_view text) {
  text = trimmed(text, kBlanks);
  if (text.size() > 1 && text.front() == '+' && text[1] != '-') {
    text.remove_prefix(1);
  }
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return value;
}

std::optional<double> doubleFromSettingText(std::string_view text) {
  return parseScriptNumber(trimmed(text, kBlanks));
}

bool isAcceptedSettingValue(const ScriptSettingInfo& setting, std::string_view text) {
  if (setting.accepts != nullptr) {
    return setting.accepts(text);
  }
  if (!setting.allowedValues.empty()) {
    const auto matches = [&](const std::string& allowed) {
      if (setting.type == "integer") {
        return intFromSettingText(text) == intFromSettingText(allowed);
      }
      return text == allowed;
    };
    return std::any_of(setting.allowedValues.begin(), setting.allowedValues.end(), matches);
  }
  if (setting.type == "integer") {
    const auto value = intFromSettingText(text);
    return value && (!setting.minimum || *value >= *setting.minimum);
  }
  if (setting.type == "number") {
    const auto value = doubleFromSettingText(text);
    return value && (!setting.minimum || *value >= *setting.minimum);
  }
  if (setting.type == "boolean") {
    return boolFromSettingText(text).has_value();
  }
  return true;
}

}  // namespace brimble
