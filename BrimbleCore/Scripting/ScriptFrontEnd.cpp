#include "BrimbleCore/Scripting/ScriptFrontEnd.h"

#include "BrimbleCore/Scripting/ScriptParser.h"
#include "BrimbleCore/Scripting/TapeParser.h"

namespace brimble {

ParsedSource parseScriptSource(std::string_view source, const std::filesystem::path& file,
                               bool included) {
  if (isTapeFile(file)) {
    TapeScript tape =
        TapeParser::parse(source, included ? TapeParser::Role::sourced : TapeParser::Role::whole);
    return {std::move(tape.instructions), std::move(tape.warnings)};
  }
  return {ScriptParser::parse(source), {}};
}

}  // namespace brimble
