#pragma once

#include <string_view>

#include "BrimbleCore/Scripting/ParsedScript.h"

namespace brimble {

/// Lexes and parses `source` (throwing the first error as an annotated ScriptError), then walks
/// the instructions once and collects warnings: an unknown pace preset, the first instruction
/// after a `render` (unreachable), a setting that does not exist or a literal value the engine
/// would ignore, commands this platform cannot run (the iOS Simulator, Safari), and a script
/// without any `record`. The result is what the engine runs, so a script is parsed once however
/// many of its callers look at it. Stateless; callable from any thread.
ParsedScript validate(std::string_view source);

}  // namespace brimble
