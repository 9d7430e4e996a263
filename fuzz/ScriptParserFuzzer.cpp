// Any text at all: the lexer and the parser either produce instructions in line order or throw
// one annotated ScriptError pointing at a real line and column; they never crash, hang or throw
// anything else. The static check runs on whatever parses.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptLexer.h"
#include "BrimbleCore/Scripting/ScriptParser.h"
#include "BrimbleCore/Scripting/ScriptValidation.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace brimble;
  const std::string_view source(reinterpret_cast<const char*>(data), size);

  bool lexed = false;
  try {
    const LexResult result = ScriptLexer::tokenizeLocated(source);
    lexed = true;
    for (const LocatedToken& token : result.tokens) {
      if (token.line < 1 || token.column < 1 || !result.lineTexts.contains(token.line)) {
        std::abort();
      }
    }
  } catch (const ScriptError& error) {
    if (error.code() != ScriptError::Code::annotated || error.line() < 1 || error.column() < 1) {
      std::abort();
    }
  }

  try {
    const auto instructions = ScriptParser::parse(source);
    int previous = 0;
    for (const LocatedInstruction& instruction : instructions) {
      if (instruction.line <= previous || instruction.source.empty()) {
        std::abort();
      }
      previous = instruction.line;
    }
    if (!lexed || validate(source).instructionCount != static_cast<int>(instructions.size())) {
      std::abort();
    }
  } catch (const ScriptError& error) {
    // what() is a C string, so it stops at a NUL byte of the script; the parts are checked.
    const std::string_view description = error.what();
    if (error.code() != ScriptError::Code::annotated || error.inner() == nullptr ||
        description.substr(0, 5) != "Line " || error.line() < 1 || error.column() < 1 ||
        error.bareMessage().empty()) {
      std::abort();
    }
  }
  return 0;
}
