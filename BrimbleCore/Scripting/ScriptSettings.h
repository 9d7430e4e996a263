#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brimble {

/// One key accepted by `set`: its value type ("integer", "number", "boolean" or "string"), its
/// default as text (no value when there is none), the values it is restricted to (empty when
/// any value of the type will do), what it means, and for numbers the least value that makes
/// sense (a negative width or delay does not).
struct ScriptSettingInfo {
  std::string name;
  std::string type;
  std::optional<std::string> defaultValue;
  std::vector<std::string> allowedValues;
  std::string meaning;
  std::optional<double> minimum{};
  /// For values no type or list describes (a theme, a colour or a file): whether `text` is one,
  /// and what is expected ("a colour such as #674eff or an image file").
  bool (*accepts)(std::string_view text) = nullptr;
  std::string expected{};
};

/// Every setting, in the order they are documented and published.
const std::vector<ScriptSettingInfo>& scriptSettingsTable();

/// The setting called `name`, or null.
const ScriptSettingInfo* findScriptSetting(std::string_view name);

/// Whether scripts may set `name`: the table's keys and the title-card colours `intro-bg` and
/// `intro-fg`, which the title-card renderer reads when present.
bool isKnownSetting(std::string_view name);

/// The entries a script context starts with: fps, output, max-width, loop-count, transition.
const std::vector<std::pair<std::string, std::string>>& initialSettings();

/// The published settings document: {"settings": [{"name", "type", "default", "enum"?}...]},
/// with typed defaults (null where there is none) and "enum" only for restricted values.
/// `indent` as for JSON pretty-printing; -1 is compact.
std::string settingsDocumentJSON(int indent = -1);

/// Setting text converted the way the settings are read. Booleans take true, yes, on, 1 and
/// false, no, off, 0 in any case; surrounding blanks are ignored. No value when the text does
/// not convert.
std::optional<bool> boolFromSettingText(std::string_view text);
std::optional<int> intFromSettingText(std::string_view text);
std::optional<double> doubleFromSettingText(std::string_view text);

/// Whether `text` is a value the engine will use for `setting` rather than falling back to the
/// default: it converts to the setting's type, is not below its minimum and, for restricted
/// settings, is one of them.
bool isAcceptedSettingValue(const ScriptSettingInfo& setting, std::string_view text);

}  // namespace brimble
