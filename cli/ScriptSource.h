#pragma once

#include <filesystem>
#include <string>

namespace brimble::cli {

/// A script as the command line names it, and where it came from.
struct ScriptSource {
  std::string text;
  /// The file it was read from; empty for standard input.
  std::filesystem::path file;
};

/// Reads the script `argument` names: "-" is standard input; a path to a file (anything with a
/// "/", or a file that exists) is read as it is; any other name comes from the user's script
/// library ($BRIMBLE_SCRIPT_DIR, else ~/.brimble/scripts), ".brim" appended unless it ends so.
/// Throws ScriptError::fileNotFound, ScriptLibraryError, or std::system_error.
ScriptSource readScriptSource(const std::string& argument);

}  // namespace brimble::cli
