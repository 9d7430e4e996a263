#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace brimble {

/// An argument that is either literal or read from a variable when the instruction runs.
struct ScriptValue {
  enum class Kind { string, number, variable, variableIndex };

  Kind kind = Kind::string;
  /// The text of a string (variables inside it are expanded when it is resolved); a variable's
  /// name without the `$`.
  std::string text;
  /// A number's value.
  double value = 0;
  /// The line index of a `variableIndex`.
  int index = 0;
  /// Where a string's text holds a `$` that was written `\$`, so names no variable.
  std::vector<std::size_t> literalDollars{};

  static ScriptValue string(std::string text, std::vector<std::size_t> literalDollars = {}) {
    return {Kind::string, std::move(text), 0, 0, std::move(literalDollars)};
  }
  static ScriptValue number(double value) { return {Kind::number, {}, value, 0, {}}; }
  static ScriptValue variable(std::string name) {
    return {Kind::variable, std::move(name), 0, 0, {}};
  }
  static ScriptValue variableIndex(std::string name, int index) {
    return {Kind::variableIndex, std::move(name), 0, index, {}};
  }

  bool operator==(const ScriptValue& other) const = default;

  /// As written: a string's text, the number, `$name` or `$name[N]`.
  std::string description() const;

  /// A string's `$name`s, in order, each once: the variables it is expanded with. A `$` written
  /// `\$`, or followed by no name character, names none.
  std::vector<std::string> namesInText() const;
};

/// Letters, digits and `_`, of which variable names are made (ASCII only).
bool isVariableNameCharacter(char c);

}  // namespace brimble
