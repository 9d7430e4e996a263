#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace brimble {

/// The desktop application's library index: the captures it made, newest first, in a JSON file
/// ({"version": 1, "entries": [{"path", "filename", "createdAt", "fileSize"}]}) that the MCP
/// server's gif://library resource reads too. One thread at a time; each call reads or writes
/// the whole file, so two processes never see half of it.
class CaptureHistory {
 public:
  struct Entry {
    std::filesystem::path path;
    std::string filename;
    /// ISO 8601 in UTC, "2026-01-31T09:05:00Z".
    std::string createdAt;
    std::uintmax_t fileSize = 0;
    bool operator==(const Entry&) const = default;
  };

  static constexpr int kVersion = 1;
  /// Older entries beyond this are dropped from the index (their files stay).
  static constexpr std::size_t kMaxEntries = 200;

  /// $BRIMBLE_HISTORY_FILE, else $XDG_DATA_HOME/brimble/history.json, else
  /// ~/.local/share/brimble/history.json.
  static std::filesystem::path defaultPath();

  explicit CaptureHistory(std::filesystem::path file) : file_(std::move(file)) {}

  /// The entries, newest first; none when the file is missing. A damaged file reads as empty
  /// and is logged, so one bad write never locks the user out of the library.
  std::vector<Entry> entries() const;
  /// Puts `file` (which must exist) first, replacing an entry of the same path. Throws
  /// std::system_error when the index cannot be written.
  Entry add(const std::filesystem::path& file) const;
  /// Drops the entry of `path`; the file itself is the caller's business.
  void remove(const std::filesystem::path& path) const;

  const std::filesystem::path& file() const noexcept { return file_; }

 private:
  void write(const std::vector<Entry>& entries) const;

  std::filesystem::path file_;
};

}  // namespace brimble
