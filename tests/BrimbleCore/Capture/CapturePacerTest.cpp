#include "BrimbleCore/Capture/CapturePacer.h"

#include <chrono>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/FakeClock.h"

namespace brimble {
namespace {

using std::chrono::milliseconds;
using testing::FakeClock;

/// When each of `frames` ticks fell, in ms from the first, with `work` spent after each tick.
std::vector<long> tickTimes(int fps, const std::vector<int>& workMilliseconds,
                            std::int64_t* skipped = nullptr) {
  FakeClock clock;
  CapturePacer pacer(clock, fps);
  const auto start = clock.now();
  std::vector<long> times;
  for (const int work : workMilliseconds) {
    pacer.waitForNextTick();
    times.push_back(
        static_cast<long>(std::chrono::duration_cast<milliseconds>(clock.now() - start).count()));
    clock.advance(milliseconds(work));
  }
  if (skipped != nullptr) {
    *skipped = pacer.skippedTicks();
  }
  return times;
}

TEST(CapturePacer, TicksStayOnTheGridAndLateTicksAreSkippedNotQueued) {
  std::int64_t skipped = -1;
  // Quick frames at 25 fps: one tick every 40 ms.
  EXPECT_EQ(tickTimes(25, {5, 39, 0, 10}, &skipped), (std::vector<long>{0, 40, 80, 120}));
  EXPECT_EQ(skipped, 0);
  // A frame that takes 100 ms misses the ticks at 40 and 80: the next frame comes at 120, and
  // the one after keeps to the grid instead of catching up.
  EXPECT_EQ(tickTimes(25, {100, 5, 5}, &skipped), (std::vector<long>{0, 120, 160}));
  EXPECT_EQ(skipped, 2);
  // 60 fps does not drift: tick 60 falls exactly one second after the first.
  const auto sixty = tickTimes(60, std::vector<int>(61, 0));
  EXPECT_EQ(sixty[1], 16);
  EXPECT_EQ(sixty[60], 1000);
}

TEST(CapturePacer, RefusesFewerThanOneFramePerSecond) {
  FakeClock clock;
  EXPECT_THROW(CapturePacer(clock, 0), std::invalid_argument);
}

}  // namespace
}  // namespace brimble
