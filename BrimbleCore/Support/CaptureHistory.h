#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
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
  /// A capture drops the oldest entries beyond this from the index (their files stay), but never
  /// leaves fewer entries than it read.
  static constexpr std::size_t kMaxEntries = 200;

  /// $BRIMBLE_HISTORY_FILE, else $XDG_DATA_HOME/brimble/history.json, else
  /// ~/.local/share/brimble/history.json.
  static std::filesystem::path defaultPath();

  explicit CaptureHistory(std::filesystem::path file) : file_(std::move(file)) {}

  /// The entries, newest first; none when the file is missing. An entry with a bad field is
  /// repaired as it is read (a size given as text, or taken from the file) and one without a path
  /// is left out; a file that is not an index at all reads as empty. Each is logged.
  std::vector<Entry> entries() const;
  /// Puts `file` (which must exist) first, replacing an entry of the same path. Entries that could
  /// not be read are written back as they were, and an index that needed repair is first copied
  /// beside itself ("history.json.bak", "history.json.bak2", ...). Throws std::system_error when
  /// the index cannot be written.
  Entry add(const std::filesystem::path& file) const;
  /// Drops the entry of `path`; the file itself is the caller's business.
  void remove(const std::filesystem::path& path) const;

  const std::filesystem::path& file() const noexcept { return file_; }

 private:
  /// Reads the index, lets `change` edit its readable entries and writes the result back.
  void update(const std::function<void(std::vector<Entry>&)>& change) const;

  std::filesystem::path file_;
};

}  // namespace brimble
