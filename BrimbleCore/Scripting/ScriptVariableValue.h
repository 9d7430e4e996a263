#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace brimble {

/// What a script variable holds: text, the lines a `run` captured, or a window number bound by
/// `capture-window` or `target`. Plain value.
class ScriptVariableValue {
 public:
  enum class Kind { string, lines, windowID };

  static ScriptVariableValue string(std::string text) {
    return ScriptVariableValue(std::move(text));
  }
  static ScriptVariableValue lines(std::vector<std::string> lines) {
    return ScriptVariableValue(std::move(lines));
  }
  static ScriptVariableValue windowID(std::uint32_t windowID) {
    return ScriptVariableValue(windowID);
  }

  Kind kind() const noexcept { return static_cast<Kind>(value_.index()); }

  /// The text as is; lines joined with a line feed between them; a window number in decimal.
  std::string stringValue() const;

  /// The line at `index`: of the text split at line feeds, of the lines, or for a window number
  /// its decimal form at index 0. No value for a negative or too large index.
  std::optional<std::string> lineAt(long index) const;

  /// The window number of a `windowID`; no value for the other kinds.
  std::optional<std::uint32_t> windowIDValue() const {
    if (const auto* id = std::get_if<std::uint32_t>(&value_)) {
      return *id;
    }
    return std::nullopt;
  }

  bool operator==(const ScriptVariableValue& other) const = default;

 private:
  using Storage = std::variant<std::string, std::vector<std::string>, std::uint32_t>;
  explicit ScriptVariableValue(Storage value) : value_(std::move(value)) {}

  Storage value_;
};

}  // namespace brimble
