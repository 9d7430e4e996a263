#pragma once

#include <filesystem>
#include <vector>

#include "BrimbleCore/Scripting/ScriptInstruction.h"

namespace brimble {

/// The largest script `include` reads: far more than any script, and a bound on what a mistaken
/// name (a log file, a disk image) can cost.
inline constexpr std::uintmax_t kMaxIncludedScriptBytes = 1024 * 1024;

/// Replaces each `include "file"` among `instructions` by the lines of that script, which are
/// parsed here and whose own includes are expanded the same way. A file is looked for beside the
/// script that includes it: `scriptFile`'s folder for the script itself (the working directory
/// when it has none, as for standard input). The lines keep their own line numbers and name
/// their file (LocatedInstruction::file). Throws ScriptError: the included script's own parse
/// errors, placed in that file (ScriptError::inIncludedFile); at the `include` line, a file that
/// is missing, no regular file, larger than kMaxIncludedScriptBytes or unreadable, and a script
/// that includes itself, directly or through others.
std::vector<LocatedInstruction> expandIncludes(std::vector<LocatedInstruction> instructions,
                                               const std::filesystem::path& scriptFile);

}  // namespace brimble
