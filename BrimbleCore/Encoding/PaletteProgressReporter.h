#pragma once

#include <functional>
#include <mutex>
#include <optional>

namespace brimble {

/// Frames done and total, reported while palettes are applied.
using PaletteProgress = std::function<void(int done, int total)>;

/// Counts finished frames from many threads and reports each whole-percent step, in order.
/// Thread-safe. The callback runs on a reporting worker thread, one report at a time and never
/// under the reporter's lock; steps reached while another thread is reporting are folded into
/// that thread's next report, so a slow callback sees fewer reports, never older ones.
class PaletteProgressReporter {
 public:
  PaletteProgressReporter(int total, PaletteProgress callback)
      : total_(total), callback_(std::move(callback)) {}

  /// Rethrows what the callback throws.
  void advance(int by);

 private:
  const int total_;
  const PaletteProgress callback_;
  std::mutex countMutex_;  // guards the count and the report waiting below
  int done_ = 0;
  int lastReportedPercent_ = -1;
  /// Frames done at the latest step that is not reported yet.
  std::optional<int> pending_;
  /// A thread is calling the callback; the others leave their steps to it.
  bool reporting_ = false;
};

}  // namespace brimble
