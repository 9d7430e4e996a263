#include "BrimbleCore/Scripting/ParsedScript.h"

namespace brimble {

std::vector<std::string> ParsedScript::lines() const {
  std::vector<std::string> result = warnings;
  result.push_back("Valid: " + std::to_string(instructionCount) + " instructions");
  if (explicitRender) {
    result.push_back("  Explicit render: yes");
  }
  return result;
}

}  // namespace brimble
