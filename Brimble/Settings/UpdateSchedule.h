#pragma once

#include <chrono>
#include <filesystem>
#include <string>

namespace brimble {

/// When the app last read the release feed and which release it last told of, kept in a small
/// file of its own ({"lastCheck": seconds since 1970, "announced": "1.4.0"}), so that the check
/// at start runs at most once a day and each release is told of once. A file that cannot be
/// read counts as no check yet. Main thread only.
class UpdateSchedule {
 public:
  static constexpr std::chrono::hours kInterval{24};

  explicit UpdateSchedule(std::filesystem::path file) : file_(std::move(file)) {}
  /// $XDG_STATE_HOME/brimble/update-check.json.
  static std::filesystem::path defaultPath();

  /// Whether a day has passed since the last check (or the clock was set back by as much), or
  /// there was none.
  bool due(std::chrono::system_clock::time_point now) const;
  /// Remembers a check made at `now`, whatever it found: an unreachable feed is not asked again
  /// at every start. Never throws; a file that cannot be written is one line in the log.
  void checked(std::chrono::system_clock::time_point now) const noexcept;
  /// True the first time it is asked about `version`, which it then remembers.
  bool firstNoticeOf(const std::string& version) const noexcept;

 private:
  std::filesystem::path file_;
};

}  // namespace brimble
