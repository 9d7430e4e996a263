#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "BrimbleCore/Scripting/PacePreset.h"
#include "BrimbleCore/Scripting/ScriptValue.h"
#include "BrimbleCore/Scripting/ScriptVariableValue.h"

namespace brimble {

/// The settings and variables of one running script. Settings are kept as text and converted
/// on read, an unparsable value giving the reader's default. One thread at a time.
class ScriptContext {
 public:
  /// Starts with fps "30", output "output.gif", max-width "800", loop-count "0" and transition
  /// "0.3"; every other setting is absent until set.
  ScriptContext();

  /// The text of setting `name`, or null when it is absent.
  const std::string* setting(std::string_view name) const;
  void setSetting(const std::string& name, std::string value);
  const std::map<std::string, std::string, std::less<>>& settings() const noexcept {
    return settings_;
  }

  /// Merges the preset's settings over the current ones; a later `setSetting` of one of them
  /// overrides the preset again.
  void applyPace(PacePreset preset);

  /// The setting's text when the engine can use it: it is set and, for a setting of the table,
  /// converts to its type, is one of its values and not below its minimum (so `set fps 25` or
  /// `set max-width -5` leave the default). Null otherwise.
  const std::string* usableSetting(std::string_view name) const;
  /// The setting as a boolean (true, yes, on, 1 / false, no, off, 0 in any case) when usable,
  /// else `defaultValue`.
  bool boolSetting(std::string_view name, bool defaultValue) const;
  /// The setting as an integer when usable, else `defaultValue`.
  int intSetting(std::string_view name, int defaultValue) const;
  /// The setting as a decimal number when usable, else `defaultValue`.
  double doubleSetting(std::string_view name, double defaultValue) const;

  /// The variable called `name` (without `$`), or null.
  const ScriptVariableValue* variable(std::string_view name) const;
  void setVariable(const std::string& name, ScriptVariableValue value);
  void removeVariable(std::string_view name);
  const std::map<std::string, ScriptVariableValue, std::less<>>& variables() const noexcept {
    return variables_;
  }

  /// The text `value` stands for on script line `line`: a string with its `$name`s expanded, a
  /// number ("3", "0.5"), a variable's text or one of its lines. Throws ScriptError
  /// undefinedVariable, or runtimeError "$name[i] out of range".
  std::string resolve(const ScriptValue& value, int line) const;

  /// A number as it is, anything else resolved and converted. Throws as `resolve`, and
  /// runtimeError "Expected number, got '<text>'".
  double resolveDouble(const ScriptValue& value, int line) const;

  /// A whole number of pixels, ticks or points: `resolveDouble` rounded to the nearest integer.
  /// Throws as `resolveDouble`, and runtimeError "Expected number, got '<text>'" for a value
  /// that is not finite or beyond a billion.
  int resolveInt(const ScriptValue& value, int line) const;

  /// The window that variable `name` holds (bound by `capture-window`, `target` or `browser`
  /// with `as $name`). Throws ScriptError undefinedVariable, or runtimeError "$name holds no
  /// window (bind one with capture-window ... as $name)".
  std::uint32_t resolveWindowID(const std::string& name, int line) const;

  /// `text` with every `$name` of a defined variable replaced by its text. An undefined `$name`
  /// stays as written and logs "BrimbleCore: Warning: line N: undefined variable '$name'".
  /// `$name[N]` is not indexed here: the brackets stay as text. The `$`s at `literalDollars`
  /// (written `\$`) stay as they are.
  std::string interpolateVariables(std::string_view text, int line,
                                   std::span<const std::size_t> literalDollars = {}) const;

 private:
  std::map<std::string, std::string, std::less<>> settings_;
  std::map<std::string, ScriptVariableValue, std::less<>> variables_;
};

}  // namespace brimble
