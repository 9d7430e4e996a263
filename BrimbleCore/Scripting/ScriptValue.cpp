#include "BrimbleCore/Scripting/ScriptValue.h"

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

}  // namespace brimble
