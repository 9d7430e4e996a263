#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace brimble {

/// Failures to read a script from the user's script folder.
class ScriptLibraryError : public std::runtime_error {
 public:
  enum class Code { invalidName, notFound, readFailed };

  /// "Invalid script name: <name>".
  static ScriptLibraryError invalidName(const std::string& name);
  /// "Script '<name>' not found. Available: <names joined by ", ">", or "Script '<name>' not
  /// found. No scripts in <directory>" when there are none.
  static ScriptLibraryError notFound(const std::string& name,
                                     const std::vector<std::string>& available,
                                     const std::filesystem::path& directory);
  /// "Failed to read script '<name>': <description>".
  static ScriptLibraryError readFailed(const std::string& name, const std::string& description);

  Code code() const noexcept { return code_; }

 private:
  ScriptLibraryError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// The user's folder of `.brim` scripts. Reads the file system on every call and holds no
/// other state; callable from any thread.
class ScriptLibrary {
 public:
  struct Entry {
    /// The file name without ".brim", as `read` takes it.
    std::string name;
    std::filesystem::path path;
    std::uintmax_t sizeBytes = 0;
    std::filesystem::file_time_type modifiedAt;
  };

  /// The folder `defaultDirectory()` names.
  ScriptLibrary();
  explicit ScriptLibrary(std::filesystem::path directory) : directory_(std::move(directory)) {}

  /// $BRIMBLE_SCRIPT_DIR when set and not empty (a leading "~/" meaning the home folder), else
  /// ~/.brimble/scripts.
  static std::filesystem::path defaultDirectory();

  const std::filesystem::path& directory() const noexcept { return directory_; }

  /// The text of script `name` (".brim" appended unless it ends so), exactly as stored. A name
  /// that is empty or contains "/" or ".." is refused. Throws ScriptLibraryError.
  std::string read(const std::string& name) const;

  /// The `.brim` files of the folder, sorted by name; none when the folder does not exist.
  std::vector<Entry> list() const;

 private:
  std::filesystem::path directory_;
};

}  // namespace brimble
