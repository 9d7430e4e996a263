#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace brimble {

/// What Brimble has done on this machine since `since`: only counts, never names of files,
/// scripts or anything typed.
struct UsageCounts {
  /// The day counting started, "2026-11-26" (UTC); empty before anything was counted.
  std::string since;
  std::uint64_t runs = 0;
  std::uint64_t recordings = 0;
  std::uint64_t renders = 0;
  /// Renders by output format ("gif", "webp", "apng", "mp4", "frames").
  std::map<std::string, std::uint64_t> formats;
  /// Failures by the command or tool that ended in error ("run", "mcp execute_script").
  std::map<std::string, std::uint64_t> failures;
  bool operator==(const UsageCounts&) const = default;
};

/// What one command, tool call or clip did, added to the counts in one step.
struct UsageEvent {
  std::uint64_t runs = 0;
  std::uint64_t recordings = 0;
  /// One format name for each output that was encoded.
  std::vector<std::string> renders;
  /// The command or tool, when it ended in error.
  std::optional<std::string> failure;

  bool empty() const noexcept {
    return runs == 0 && recordings == 0 && renders.empty() && !failure;
  }
};

/// The local usage counts in `folder`/statistics.json, switched off by `folder`/statistics.off.
/// Nothing here sends anything anywhere. Several processes may count at once: each change holds
/// an exclusive lock on statistics.json.lock while it reads the file and renames a new one over
/// it, so no count is lost. A file that cannot be read as counts is set aside once, as
/// statistics.json.corrupt (replacing an earlier one), with one line in the log, and counting
/// starts again. Thread-safe.
class UsageStatistics {
 public:
  /// Failure kinds beyond this many are counted under "other", so a stream of odd names cannot
  /// grow the file without bound.
  static constexpr std::size_t kMaxNamedKinds = 64;

  explicit UsageStatistics(std::filesystem::path folder) : folder_(std::move(folder)) {}
  /// The counts of this user: $XDG_STATE_HOME/brimble.
  static UsageStatistics forUser();

  /// False once switched off.
  bool enabled() const;
  /// Switches counting on or off. Off, nothing is counted and nothing is written. Throws
  /// std::system_error when the switch cannot be stored.
  void setEnabled(bool on) const;

  /// The counts as the file holds them; empty ones when there is none or it is unreadable.
  UsageCounts counts() const;
  /// Adds `event`, when counting is on. Never throws: counting must not make what it counts
  /// fail, so a problem is one line in the log and the event is dropped.
  void record(const UsageEvent& event) const noexcept;
  /// Forgets every count; the next one starts them again, from its day. Throws
  /// std::system_error.
  void reset() const;

  std::filesystem::path file() const { return folder_ / "statistics.json"; }

 private:
  std::filesystem::path folder_;
};

/// The counts as JSON, the same shape the file keeps them in.
std::string usageCountsJSON(const UsageCounts& counts);

}  // namespace brimble
