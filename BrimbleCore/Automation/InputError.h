#pragma once

#include <stdexcept>
#include <string>

namespace brimble {

/// Input a script line, a tool call or a command asked for that cannot be sent: a key chord
/// naming a key or modifier that does not exist.
class InputError : public std::runtime_error {
 public:
  enum class Code { unknownKey, unknownModifier };

  static InputError unknownKey(const std::string& key, const std::string& chord) {
    return {Code::unknownKey, "Unknown key '" + key + "' in '" + chord + "'"};
  }
  static InputError unknownModifier(const std::string& modifier, const std::string& chord) {
    return {Code::unknownModifier, "Unknown modifier '" + modifier + "' in '" + chord + "'"};
  }

  Code code() const noexcept { return code_; }

 private:
  InputError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

}  // namespace brimble
