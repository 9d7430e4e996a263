#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "BrimbleCore/Scripting/ScriptInstruction.h"

namespace brimble {

/// A script's instructions by its format: a `.tape` file through TapeParser, anything else as
/// `.brim`. The one place a format is told from another.
struct ParsedSource {
  std::vector<LocatedInstruction> instructions;
  /// What the format's front end warns of, "Warning: line N: ..." each.
  std::vector<std::string> warnings;
};

/// Parses `source`, read from `file` (empty when it was not read from a file: `.brim` then).
/// `included` says another script reads it (`include`, a tape's `Source`), which takes only its
/// commands. Throws the first error as an annotated ScriptError.
ParsedSource parseScriptSource(std::string_view source, const std::filesystem::path& file,
                               bool included = false);

}  // namespace brimble
