#pragma once

#include <filesystem>
#include <string_view>

#include "BrimbleCore/Scripting/ParsedScript.h"

namespace brimble {

/// Lexes and parses `source` (throwing the first error as an annotated ScriptError), then walks
/// the instructions once. A setting that does not exist, a literal value the engine would ignore
/// and a key or modifier that names none are errors too, thrown the same way with the nearest
/// known name ("did you mean 'output'?"), since the script would otherwise run other than it
/// says. It collects warnings: an unknown pace preset, the first instruction after a `render`
/// (unreachable), variables read before anything sets them (also `$name` inside strings, except
/// the environment's in `run` commands), commands this platform cannot run (the iOS Simulator,
/// Safari), and a script without any `record`. The result is what the engine runs, so a script is
/// parsed once however many of its callers look at it. The lines of the scripts it `include`s
/// take the place of their `include` (see expandIncludes; `scriptFile` is where the script was
/// read from, empty when it was not read from a file), so they are checked as part of it.
/// Stateless; callable from any thread.
ParsedScript validate(std::string_view source, const std::filesystem::path& scriptFile = {});

}  // namespace brimble
