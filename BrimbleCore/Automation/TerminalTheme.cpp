#include "BrimbleCore/Automation/TerminalTheme.h"

#include <cctype>

#include <nlohmann/json.hpp>

#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

struct NamedTheme {
  const char* name;
  TerminalTheme theme;
};

// Each as its authors publish it. "Brimble" is the calm scheme the embedded display gives its
// terminals when a script names none.
const std::vector<NamedTheme>& shippedThemes() {
  static const std::vector<NamedTheme> themes = {
      {"Brimble",
       {"#1d2021",
        "#e6e1d6",
        "#f2c57c",
        "#3c4042",
        {"#2c2f30", "#e2786f", "#9ccf7a", "#ebc06d", "#79a7e0", "#c997d6", "#6fc4bd", "#d6d0c4",
         "#5b5f61", "#f0938b", "#b5e094", "#f4d38f", "#9cc0ee", "#dab3e4", "#93d8d2", "#f4f0e8"}}},
      {"Dracula",
       {"#282a36",
        "#f8f8f2",
        "#f8f8f2",
        "#44475a",
        {"#21222c", "#ff5555", "#50fa7b", "#f1fa8c", "#bd93f9", "#ff79c6", "#8be9fd", "#f8f8f2",
         "#6272a4", "#ff6e6e", "#69ff94", "#ffffa5", "#d6acff", "#ff92df", "#a4ffff", "#ffffff"}}},
      {"Nord",
       {"#2e3440",
        "#d8dee9",
        "#d8dee9",
        "#434c5e",
        {"#3b4252", "#bf616a", "#a3be8c", "#ebcb8b", "#81a1c1", "#b48ead", "#88c0d0", "#e5e9f0",
         "#4c566a", "#bf616a", "#a3be8c", "#ebcb8b", "#81a1c1", "#b48ead", "#8fbcbb", "#eceff4"}}},
      {"Catppuccin Mocha",
       {"#1e1e2e",
        "#cdd6f4",
        "#f5e0dc",
        "#585b70",
        {"#45475a", "#f38ba8", "#a6e3a1", "#f9e2af", "#89b4fa", "#f5c2e7", "#94e2d5", "#bac2de",
         "#585b70", "#f38ba8", "#a6e3a1", "#f9e2af", "#89b4fa", "#f5c2e7", "#94e2d5", "#a6adc8"}}},
      {"Catppuccin Latte",
       {"#eff1f5",
        "#4c4f69",
        "#dc8a78",
        "#acb0be",
        {"#5c5f77", "#d20f39", "#40a02b", "#df8e1d", "#1e66f5", "#ea76cb", "#179299", "#acb0be",
         "#6c6f85", "#d20f39", "#40a02b", "#df8e1d", "#1e66f5", "#ea76cb", "#179299", "#bcc0cc"}}},
      {"Solarized Dark",
       {"#002b36",
        "#839496",
        "#93a1a1",
        "#073642",
        {"#073642", "#dc322f", "#859900", "#b58900", "#268bd2", "#d33682", "#2aa198", "#eee8d5",
         "#002b36", "#cb4b16", "#586e75", "#657b83", "#839496", "#6c71c4", "#93a1a1", "#fdf6e3"}}},
      {"Solarized Light",
       {"#fdf6e3",
        "#657b83",
        "#586e75",
        "#eee8d5",
        {"#073642", "#dc322f", "#859900", "#b58900", "#268bd2", "#d33682", "#2aa198", "#eee8d5",
         "#002b36", "#cb4b16", "#586e75", "#657b83", "#839496", "#6c71c4", "#93a1a1", "#fdf6e3"}}},
      {"Gruvbox Dark",
       {"#282828",
        "#ebdbb2",
        "#ebdbb2",
        "#504945",
        {"#282828", "#cc241d", "#98971a", "#d79921", "#458588", "#b16286", "#689d6a", "#a89984",
         "#928374", "#fb4934", "#b8bb26", "#fabd2f", "#83a598", "#d3869b", "#8ec07c", "#ebdbb2"}}},
      {"One Dark",
       {"#282c34",
        "#abb2bf",
        "#528bff",
        "#3e4451",
        {"#282c34", "#e06c75", "#98c379", "#e5c07b", "#61afef", "#c678dd", "#56b6c2", "#abb2bf",
         "#5c6370", "#e06c75", "#98c379", "#e5c07b", "#61afef", "#c678dd", "#56b6c2", "#ffffff"}}},
      {"Tokyo Night",
       {"#1a1b26",
        "#c0caf5",
        "#c0caf5",
        "#283457",
        {"#15161e", "#f7768e", "#9ece6a", "#e0af68", "#7aa2f7", "#bb9af7", "#7dcfff", "#a9b1d6",
         "#414868", "#f7768e", "#9ece6a", "#e0af68", "#7aa2f7", "#bb9af7", "#7dcfff", "#c0caf5"}}},
      {"Monokai",
       {"#272822",
        "#f8f8f2",
        "#f8f8f0",
        "#49483e",
        {"#272822", "#f92672", "#a6e22e", "#f4bf75", "#66d9ef", "#ae81ff", "#a1efe4", "#f8f8f2",
         "#75715e", "#f92672", "#a6e22e", "#f4bf75", "#66d9ef", "#ae81ff", "#a1efe4", "#f9f8f5"}}},
  };
  return themes;
}

std::string nameKey(std::string_view name) {
  std::string key;
  for (const char c : lowercased(name)) {
    if (c != ' ' && c != '-' && c != '_') {
      key += c;
    }
  }
  return key;
}

// "#rrggbb", or "#rgb" widened to it; no value for anything else.
std::optional<std::string> hexColor(const std::string& text) {
  const std::string value = lowercased(trimmed(text, " \t"));
  if (value.size() != 4 && value.size() != 7) {
    return std::nullopt;
  }
  if (value[0] != '#') {
    return std::nullopt;
  }
  for (std::size_t i = 1; i < value.size(); ++i) {
    if (std::isxdigit(static_cast<unsigned char>(value[i])) == 0) {
      return std::nullopt;
    }
  }
  if (value.size() == 7) {
    return value;
  }
  return std::string{'#', value[1], value[1], value[2], value[2], value[3], value[3]};
}

}  // namespace

TerminalThemeError TerminalThemeError::unknownName(const std::string& name) {
  std::string names;
  for (const std::string& known : TerminalTheme::names()) {
    names += (names.empty() ? "" : ", ") + known;
  }
  return {Code::unknownName, "Unknown terminal theme '" + name + "' (themes: " + names +
                                 "; or JSON colours such as {\"background\": \"#1e1e2e\"})"};
}

TerminalThemeError TerminalThemeError::invalidJSON(const std::string& reason) {
  return {Code::invalidJSON, "The terminal theme is not a JSON object of colours: " + reason};
}

TerminalThemeError TerminalThemeError::invalidColor(const std::string& key,
                                                    const std::string& value) {
  return {Code::invalidColor,
          "The terminal theme's '" + key + "' is '" + value + "', not a colour such as #1e1e2e"};
}

std::vector<std::string> TerminalTheme::names() {
  std::vector<std::string> names;
  for (const NamedTheme& theme : shippedThemes()) {
    names.emplace_back(theme.name);
  }
  return names;
}

std::optional<TerminalTheme> TerminalTheme::named(std::string_view name) {
  const std::string key = nameKey(name);
  for (const NamedTheme& theme : shippedThemes()) {
    if (nameKey(theme.name) == key) {
      return theme.theme;
    }
  }
  return std::nullopt;
}

TerminalTheme TerminalTheme::parse(std::string_view text) {
  const std::string_view body = trimmed(text, " \t\r\n");
  if (!body.starts_with('{')) {
    if (auto theme = named(body)) {
      return *theme;
    }
    throw TerminalThemeError::unknownName(std::string(body));
  }
  const nlohmann::json json = nlohmann::json::parse(body, nullptr, false);
  if (json.is_discarded()) {
    throw TerminalThemeError::invalidJSON("it does not parse");
  }
  if (!json.is_object()) {
    throw TerminalThemeError::invalidJSON("it is no object");
  }
  TerminalTheme theme = *named("Brimble");
  static constexpr const char* kColorNames[8] = {"black", "red",     "green", "yellow",
                                                 "blue",  "magenta", "cyan",  "white"};
  const auto slotOf = [&](const std::string& key) -> std::string* {
    const std::string lower = lowercased(key);
    if (lower == "background") {
      return &theme.background;
    }
    if (lower == "foreground") {
      return &theme.foreground;
    }
    if (lower == "cursor") {
      return &theme.cursor;
    }
    if (lower == "selection") {
      return &theme.selection;
    }
    std::string color = lower;
    std::size_t offset = 0;
    if (color.starts_with("bright")) {
      color = color.substr(6);
      offset = 8;
    }
    if (color == "purple") {
      color = "magenta";
    }
    for (std::size_t i = 0; i < 8; ++i) {
      if (color == kColorNames[i]) {
        return &theme.ansi[offset + i];
      }
    }
    return nullptr;
  };
  for (const auto& [key, value] : json.items()) {
    std::string* slot = slotOf(key);
    if (slot == nullptr) {
      continue;  // schemes carry names and other keys of their own
    }
    if (!value.is_string()) {
      throw TerminalThemeError::invalidColor(key, value.dump());
    }
    const auto color = hexColor(value.get<std::string>());
    if (!color) {
      throw TerminalThemeError::invalidColor(key, value.get<std::string>());
    }
    *slot = *color;
  }
  return theme;
}

}  // namespace brimble
