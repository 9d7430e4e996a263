#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace brimble {

/// One report the crash handler wrote.
struct CrashReport {
  std::filesystem::path path;
  std::string program;  // "brimble" or "brimble-app"
  std::string version;
  std::string command;  // the program, its subcommand and option names
  std::string signal;   // "SIGSEGV"
  std::chrono::system_clock::time_point time;
  /// The innermost functions of Brimble's own code on the crashed stack (at most three), or,
  /// where the report could not be symbolized, its innermost frames as module+offset.
  std::vector<std::string> topFrames;
  /// A short stable key of topFrames: the same crash gets the same signature in every run.
  std::string signature;
};

/// Reports of one crash: every report with the same signature.
struct CrashBucket {
  std::string signature;
  std::vector<std::string> topFrames;
  std::string program;
  std::string signal;
  std::size_t count = 0;
  std::chrono::system_clock::time_point firstTime;
  std::chrono::system_clock::time_point lastTime;
  std::filesystem::path newestReport;
};

/// The crash reports in a folder (by default $XDG_STATE_HOME/brimble/crashes), what `brimble
/// doctor`, `brimble report` and the app show of them. A report that cannot be read is left out
/// with one log line; a missing folder holds none. Not thread-safe for `markSeen` against itself
/// in other processes beyond what atomic replacement gives (the last writer wins).
class CrashReports {
 public:
  /// At most this many reports are kept; `prune` deletes the oldest beyond it.
  static constexpr std::size_t kKeptReports = 50;

  explicit CrashReports(std::filesystem::path folder = defaultFolder());

  static std::filesystem::path defaultFolder();
  const std::filesystem::path& folder() const noexcept { return folder_; }

  /// Every readable report, oldest first.
  std::vector<CrashReport> list() const;
  /// The reports grouped by signature, the bucket with the newest report first.
  std::vector<CrashBucket> buckets() const;
  /// The reports written since `markSeen` last ran, oldest first.
  std::vector<CrashReport> unseen() const;
  /// Remembers every report there now as seen, in a marker file beside them. Throws
  /// std::system_error when it cannot be written.
  void markSeen() const;
  /// Deletes the oldest reports beyond kKeptReports; never throws.
  void prune() const noexcept;

  /// Reads one report. No value (and one log line) when it is not a crash report.
  static std::optional<CrashReport> read(const std::filesystem::path& path);

 private:
  std::vector<std::filesystem::path> reportFiles() const;

  std::filesystem::path folder_;
};

}  // namespace brimble
