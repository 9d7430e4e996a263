#pragma once

#include <functional>
#include <mutex>

namespace brimble {

/// Frames done and total, reported while palettes are applied.
using PaletteProgress = std::function<void(int done, int total)>;

/// Counts finished frames from many threads and reports each whole-percent step once.
/// Thread-safe; the callback runs on the reporting worker thread, under the reporter's lock, so
/// reports arrive in order.
class PaletteProgressReporter {
 public:
  PaletteProgressReporter(int total, PaletteProgress callback)
      : total_(total), callback_(std::move(callback)) {}

  void advance(int by);

 private:
  const int total_;
  const PaletteProgress callback_;
  std::mutex mutex_;  // guards the fields below and orders the callbacks
  int done_ = 0;
  int lastReportedPercent_ = -1;
};

}  // namespace brimble
