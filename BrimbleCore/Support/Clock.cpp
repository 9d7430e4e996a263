#include "BrimbleCore/Support/Clock.h"

#include <thread>

namespace brimble {

void SteadyClock::sleepFor(Duration duration) {
  if (duration > Duration::zero()) {
    std::this_thread::sleep_for(duration);
  }
}

void SteadyClock::sleepUntil(TimePoint time) {
  std::this_thread::sleep_until(time);
}

SteadyClock& steadyClock() {
  static SteadyClock clock;
  return clock;
}

}  // namespace brimble
