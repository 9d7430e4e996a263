#pragma once

#include <string>
#include <vector>

namespace brimble {

/// Where a script's time went: how long each instruction ran (its own waits included) and the
/// steps after the last one (the render, the clean-up). One thread at a time.
class ScriptProfiler {
 public:
  struct Entry {
    /// The script line, or 0 for a step that belongs to no line ("render", "clean-up").
    int line = 0;
    std::string label;
    double seconds = 0;
  };

  void record(int line, std::string label, double seconds);

  const std::vector<Entry>& entries() const noexcept { return entries_; }
  double totalSeconds() const;

  /// The report `--profile` prints: one line per entry in the order they ran, with its share of
  /// the total, then the total and the slowest line.
  std::vector<std::string> report() const;

 private:
  std::vector<Entry> entries_;
};

}  // namespace brimble
