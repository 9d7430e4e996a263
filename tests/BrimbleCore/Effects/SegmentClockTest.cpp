#include "BrimbleCore/Effects/SegmentClock.h"

#include <set>

#include <gtest/gtest.h>

#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/Images.h"

namespace brimble {
namespace {

// 10 fps: 10 frames that each change, 40 that repeat the last (4 s of nothing), 10 that change.
RenderSegment segmentWithPause() {
  auto store = std::make_unique<InMemoryFrameStore>();
  for (int i = 0; i < 60; ++i) {
    const int shade = i < 10 ? i * 20 : (i < 50 ? 200 : (i - 50) * 20 + 5);
    store->frames.push_back(
        encodePNG(testing::solidImage(16, 16, {static_cast<std::uint8_t>(shade), 40, 90})));
  }
  RenderSegment segment;
  segment.frames = std::move(store);
  segment.fps = 10;
  return segment;
}

// Frame indices where the picture changes: 0-10 and 50-59.
std::set<int> changedFrames() {
  std::set<int> frames;
  for (int i = 0; i <= 10; ++i) {
    frames.insert(i);
  }
  for (int i = 50; i < 60; ++i) {
    frames.insert(i);
  }
  return frames;
}

TEST(SegmentClock, IdleStretchesAreGapsWithoutChangeOrInputLongerThanTheThreshold) {
  const std::vector<double> changes = {0, 1, 5};
  const std::vector<double> input = {5.5};
  EXPECT_EQ(SegmentClock::idleStretches(changes, input, 8, 2),
            (std::vector<TimeSpan>{{1, 5}, {5.5, 8}}));
  // Input inside the pause breaks it into parts no longer than the threshold.
  const std::vector<double> busy = {2.5, 3.5};
  EXPECT_EQ(SegmentClock::idleStretches(changes, busy, 5, 2), std::vector<TimeSpan>{});
}

TEST(SegmentClock, CutShortensEachIdleStretchToABeatAndRampKeepsEveryChange) {
  std::vector<RenderSegment> segments;
  segments.push_back(segmentWithPause());
  RenderSettings settings;
  settings.fps = 10;
  settings.idleThreshold = 2;
  const auto shown = [&](IdleStrategy strategy) {
    settings.idleStrategy = strategy;
    const FrameCompositor compositor(segments, settings);
    std::set<int> frames;
    double last = -1;
    bool monotone = true;
    for (const TimelineFrame& entry : compositor.timeline()) {
      frames.insert(entry.frame);
      monotone = monotone && entry.time >= last;
      last = entry.time;
    }
    EXPECT_TRUE(monotone);
    return std::make_pair(compositor.frameCount(), frames);
  };
  // The frames change until 1.0 s and again from 5.0 s: a 4 s stretch of which 0.5 s stays,
  // so 6 s play in 2.5 s.
  const auto [cutFrames, cutShown] = shown(IdleStrategy::cut);
  EXPECT_EQ(cutFrames, 25);
  // Under `ramp` the stretch plays at up to 8x, easing in and out, and every change shows.
  const auto [rampFrames, rampShown] = shown(IdleStrategy::ramp);
  EXPECT_EQ(rampFrames, 25);
  for (int frame : changedFrames()) {
    EXPECT_TRUE(rampShown.contains(frame)) << frame;
    EXPECT_TRUE(cutShown.contains(frame)) << frame;
  }
  // Without a strategy nothing is shortened.
  settings.idleStrategy.reset();
  EXPECT_EQ(FrameCompositor(segments, settings).frameCount(), 60);
}

TEST(SegmentClock, RampEasesFromRealTimeAndFadeDipsToBlackAtTheCut) {
  const std::vector<TimeSpan> stretch = {{1, 5}};
  const SegmentClock ramp = SegmentClock::remapped(6, stretch, IdleStrategy::ramp, {}, {});
  EXPECT_DOUBLE_EQ(ramp.length(), 2.5);
  // Real-time speed at the edges of the stretch, much faster in its middle.
  EXPECT_NEAR(ramp.sourceTime(1.001) - ramp.sourceTime(1.0), 0.001, 0.0001);
  EXPECT_NEAR(ramp.sourceTime(1.5) - ramp.sourceTime(1.499), 0.001, 0.0001);
  EXPECT_GT(ramp.sourceTime(1.26) - ramp.sourceTime(1.24), 0.15);
  EXPECT_NEAR(ramp.sourceTime(1.5), 5, 1e-9);

  const SegmentClock fade = SegmentClock::remapped(6, stretch, IdleStrategy::fade, {}, {});
  EXPECT_DOUBLE_EQ(fade.length(), 2.5);
  EXPECT_NEAR(fade.dip(1.25), 1, 1e-9);
  EXPECT_GT(fade.dip(1.2), 0.5);
  EXPECT_EQ(fade.dip(0.9), 0);
  EXPECT_EQ(fade.dip(1.6), 0);
  EXPECT_NEAR(fade.sourceTime(1.2), 1.2, 1e-9);
  EXPECT_NEAR(fade.sourceTime(1.3), 4.8, 1e-9);
}

TEST(SegmentClock, TypingBurstsLandAtAnEvenCadenceAndChordsAreNotTyping) {
  std::vector<InputEvent> events;
  const auto key = [&](double time, const std::string& name, InputEvent::Kind kind) {
    InputEvent event;
    event.kind = kind;
    event.timestamp = time;
    event.key = name;
    events.push_back(event);
  };
  for (double time : {1.0, 1.1, 1.5, 1.6}) {
    key(time, "a", InputEvent::Kind::keyDown);
    key(time + 0.02, "a", InputEvent::Kind::keyUp);
  }
  // Ctrl+C is a command, and a lone key far later no burst.
  key(1.8, "Control_L", InputEvent::Kind::keyDown);
  key(1.85, "c", InputEvent::Kind::keyDown);
  key(1.9, "Control_L", InputEvent::Kind::keyUp);
  key(4.0, "b", InputEvent::Kind::keyDown);
  const std::vector<double> keys = SegmentClock::typedKeyTimes(events);
  EXPECT_EQ(keys, (std::vector<double>{1.0, 1.1, 1.5, 1.6, 4.0}));
  const std::vector<TimeSpan> bursts = SegmentClock::typingBursts(keys);
  ASSERT_EQ(bursts, (std::vector<TimeSpan>{{1.0, 1.6}}));

  const SegmentClock clock = SegmentClock::remapped(5, {}, std::nullopt, bursts, keys);
  EXPECT_DOUBLE_EQ(clock.length(), 5);
  // The four keys now come 0.2 s apart.
  EXPECT_NEAR(clock.sourceTime(1.2), 1.1, 1e-9);
  EXPECT_NEAR(clock.sourceTime(1.4), 1.5, 1e-9);
  EXPECT_NEAR(clock.sourceTime(3), 3, 1e-9);
}

}  // namespace
}  // namespace brimble
