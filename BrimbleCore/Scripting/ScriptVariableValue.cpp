#include "BrimbleCore/Scripting/ScriptVariableValue.h"

#include <string_view>

namespace brimble {

std::string ScriptVariableValue::stringValue() const {
  if (const auto* text = std::get_if<std::string>(&value_)) {
    return *text;
  }
  if (const auto* lines = std::get_if<std::vector<std::string>>(&value_)) {
    std::string joined;
    for (std::size_t i = 0; i < lines->size(); ++i) {
      if (i > 0) {
        joined += '\n';
      }
      joined += (*lines)[i];
    }
    return joined;
  }
  return std::to_string(std::get<std::uint32_t>(value_));
}

std::optional<std::string> ScriptVariableValue::lineAt(long index) const {
  if (index < 0) {
    return std::nullopt;
  }
  const auto wanted = static_cast<std::size_t>(index);
  if (const auto* text = std::get_if<std::string>(&value_)) {
    std::string_view rest = *text;
    for (std::size_t line = 0;; ++line) {
      const std::size_t end = rest.find('\n');
      if (line == wanted) {
        return std::string(rest.substr(0, end));
      }
      if (end == std::string_view::npos) {
        return std::nullopt;
      }
      rest.remove_prefix(end + 1);
    }
  }
  if (const auto* lines = std::get_if<std::vector<std::string>>(&value_)) {
    if (wanted >= lines->size()) {
      return std::nullopt;
    }
    return (*lines)[wanted];
  }
  if (wanted != 0) {
    return std::nullopt;
  }
  return std::to_string(std::get<std::uint32_t>(value_));
}

}  // namespace brimble
