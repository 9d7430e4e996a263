#include "BrimbleCore/Scripting/ScriptValue.h"

#include <algorithm>

#include "BrimbleCore/Scripting/ScriptNumber.h"

namespace brimble {

std::string ScriptValue::description() const {
  switch (kind) {
    case Kind::string:
      return text;
    case Kind::number:
      return formatScriptNumber(value);
    case Kind::variable:
      return "$" + text;
    case Kind::variableIndex:
      break;
  }
  return "$" + text + "[" + std::to_string(index) + "]";
}

std::vector<std::string> ScriptValue::namesInText() const {
  std::vector<std::string> names;
  if (kind != Kind::string) {
    return names;
  }
  for (std::size_t dollar = text.find('$'); dollar != std::string::npos;
       dollar = text.find('$', dollar + 1)) {
    if (std::find(literalDollars.begin(), literalDollars.end(), dollar) != literalDollars.end()) {
      continue;
    }
    std::size_t end = dollar + 1;
    while (end < text.size() && isVariableNameCharacter(text[end])) {
      ++end;
    }
    std::string name = text.substr(dollar + 1, end - dollar - 1);
    if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
      names.push_back(std::move(name));
    }
  }
  return names;
}

bool isVariableNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

}  // namespace brimble
