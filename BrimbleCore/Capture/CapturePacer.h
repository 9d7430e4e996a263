#pragma once

#include <cstdint>

#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// The beat of a capture thread: ticks fall every 1/fps on `clock`, counted from the first call
/// to `waitForNextTick`. A tick that has already passed when the previous frame's work ends is
/// skipped, never queued: a slow frame costs frames, not a burst of catch-up grabs that would
/// bunch frames together in time. One thread at a time; `clock` must outlive the pacer.
class CapturePacer {
 public:
  /// `fps` must be at least 1 (std::invalid_argument).
  CapturePacer(Clock& clock, int fps);

  /// Returns at the next tick that has not passed yet: at once the first time, then sleeping
  /// until the tick after the one last returned, or past every tick already missed.
  void waitForNextTick();

  /// Ticks returned so far.
  std::int64_t ticks() const noexcept { return ticks_; }
  /// Ticks that passed while the caller was still busy, and so were not returned.
  std::int64_t skippedTicks() const noexcept { return skipped_; }

 private:
  Clock::TimePoint tickTime(std::int64_t index) const;

  Clock& clock_;
  const int fps_;
  Clock::TimePoint start_{};
  std::int64_t next_ = 0;  // index of the next tick, counted from start_
  std::int64_t ticks_ = 0;
  std::int64_t skipped_ = 0;
};

}  // namespace brimble
