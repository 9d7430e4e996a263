#pragma once

#include <filesystem>
#include <string>

#include "BrimbleCore/Scripting/ParsedScript.h"

namespace brimble {

/// `require "program"`: throws ScriptError "Line N: '<program>' is required but is not on PATH"
/// unless `program` (a name looked for on PATH, or a path) can be run.
void requireProgram(const std::string& program, int line);

/// `screenshot "file.png"`: throws ScriptError "Line N: <why>" unless `file` is a .png that can
/// be written where it is asked for (the rule of every output).
void checkScreenshotFile(const std::filesystem::path& file, int line);

/// Checks what a script needs before it opens or records anything, in script order: each
/// `require` and `screenshot` whose argument is written out. One a variable names is checked
/// when its line runs. Throws ScriptError at the first that fails.
void checkBeforeRunning(const ParsedScript& script);

}  // namespace brimble
