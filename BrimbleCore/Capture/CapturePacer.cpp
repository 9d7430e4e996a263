#include "BrimbleCore/Capture/CapturePacer.h"

#include <stdexcept>
#include <string>

namespace brimble {

CapturePacer::CapturePacer(Clock& clock, int fps) : clock_(clock), fps_(fps) {
  if (fps < 1) {
    throw std::invalid_argument("a capture needs at least 1 frame per second (got " +
                                std::to_string(fps) + ")");
  }
}

Clock::TimePoint CapturePacer::tickTime(std::int64_t index) const {
  // Each tick from the start rather than by adding 1/fps repeatedly, so rounding never drifts.
  const auto offset = std::chrono::duration_cast<Clock::Duration>(
      std::chrono::nanoseconds(index * 1'000'000'000 / fps_));
  return start_ + offset;
}

void CapturePacer::waitForNextTick() {
  if (ticks_ == 0) {
    start_ = clock_.now();
    next_ = 1;
    ++ticks_;
    return;
  }
  const Clock::TimePoint now = clock_.now();
  if (now > tickTime(next_)) {
    // Late: skip to the first tick still ahead.
    const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(now - start_);
    const std::int64_t ahead = elapsed.count() * fps_ / 1'000'000'000 + 1;
    skipped_ += ahead - next_;
    next_ = ahead;
  }
  clock_.sleepUntil(tickTime(next_));
  ++next_;
  ++ticks_;
}

}  // namespace brimble
