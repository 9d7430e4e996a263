#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>

#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {

/// One program's log file (`<folder>/<name>.log`), shared by every process of that program that
/// runs at the same time (an MCP server beside a `brimble run`). Each line is appended whole and
/// the file is rotated by size (`<name>.log.1`, `.2`, ...), both under a lock on a file beside it
/// that every process takes, so no line is torn and none is lost to another's rotation. The
/// folder and file are created with the first line, so a program that logs nothing leaves
/// nothing behind. Thread-safe.
class LogFile {
 public:
  struct Limits {
    std::uint64_t maxBytes = 1024 * 1024;  // a file is rotated before it would pass this
    int keptOldFiles = 2;                  // rotated files kept besides the current one
  };

  LogFile(std::filesystem::path folder, std::string name, Limits limits);
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  /// Appends `line` and a newline (lines longer than 8 KiB are cut). Throws std::system_error
  /// naming the file or folder that cannot be written.
  void append(std::string_view line);

  /// The current file.
  std::filesystem::path path() const { return folder_ / (name_ + ".log"); }

 private:
  void openFiles();
  void reopenIfReplaced();
  void rotate();

  const std::filesystem::path folder_;
  const std::string name_;
  const Limits limits_;
  std::mutex fileMutex_;  // guards the descriptors below; the lock file orders processes
  UniqueFd lock_;
  UniqueFd file_;
};

}  // namespace brimble
