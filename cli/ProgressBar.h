#pragma once

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>

namespace brimble::cli {

/// A one-line progress bar on standard error, drawn only when it is a terminal. Thread-safe:
/// encoders report from worker threads.
class ProgressBar {
 public:
  explicit ProgressBar(std::FILE* out = stderr);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  ~ProgressBar();

  /// Shows `done` of `total` items of `phase`, with the rate since the phase began. Redraws at
  /// most 20 times a second, and always for the last item.
  void update(std::string_view phase, int done, int total);
  /// Clears the bar so the next line starts clean.
  void finish();

  bool enabled() const noexcept { return enabled_; }

 private:
  using Clock = std::chrono::steady_clock;

  std::FILE* out_;
  const bool enabled_;
  std::mutex drawMutex_;  // guards the fields below and drawing
  std::string phase_;
  Clock::time_point phaseStart_;
  Clock::time_point lastDraw_;
  bool drawn_ = false;
};

}  // namespace brimble::cli
