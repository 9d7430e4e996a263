#include "BrimbleCore/Scripting/ScriptClock.h"

#include <algorithm>
#include <chrono>

namespace brimble {

void ScriptClock::wait(double seconds) {
  const Clock::TimePoint end = after(seconds);
  while (!shouldStop()) {
    const double left = secondsBetween(now(), end);
    if (left <= 0) {
      return;
    }
    sleep(std::min(left, kWaitSlice));
  }
}

Clock::Duration ScriptClock::duration(double seconds) {
  return std::chrono::duration_cast<Clock::Duration>(
      std::chrono::duration<double>(std::max(seconds, 0.0)));
}

double ScriptClock::secondsBetween(Clock::TimePoint from, Clock::TimePoint to) {
  return std::chrono::duration<double>(to - from).count();
}

}  // namespace brimble
