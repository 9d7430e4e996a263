#include "BrimbleCore/Effects/OutputClock.h"

#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/Images.h"

namespace brimble {
namespace {

using testing::Pixel;

// A 10 fps segment showing `first` until `switchAt` seconds, then `second`, `seconds` long.
RenderSegment switchingSegment(Pixel first, Pixel second, double switchAt, double seconds) {
  auto store = std::make_unique<InMemoryFrameStore>();
  const auto before = encodePNG(testing::solidImage(160, 100, first));
  const auto after = encodePNG(testing::solidImage(160, 100, second));
  for (int i = 0; i < static_cast<int>(seconds * 10); ++i) {
    store->frames.push_back(i < static_cast<int>(switchAt * 10) ? before : after);
  }
  RenderSegment segment;
  segment.frames = std::move(store);
  segment.fps = 10;
  segment.duration = seconds;
  segment.windowFrame = {0, 0, 160, 100};
  return segment;
}

// The first output frame whose centre shows `colour`, in seconds of the output.
double firstShown(const FrameCompositor& compositor, Pixel colour, int fps) {
  for (int k = 0; k < compositor.frameCount(); ++k) {
    const Image frame = *compositor.frame(k);
    const Pixel p = testing::pixelAt(frame, frame.width() / 2, frame.height() / 2);
    if (std::abs(p.r - colour.r) < 20 && std::abs(p.g - colour.g) < 20 &&
        std::abs(p.b - colour.b) < 20) {
      return static_cast<double>(k) / fps;
    }
  }
  return -1;
}

TEST(OutputClock, MomentsLandWhereTheOutputShowsThemAfterCardsCutsAndCrossfades) {
  constexpr Pixel grey{128, 128, 128};
  constexpr Pixel kRed{220, 30, 30};
  constexpr Pixel kBlue{30, 30, 220};
  constexpr Pixel kGreen{30, 200, 30};
  std::vector<RenderSegment> segments;
  // Five still seconds before the picture turns red: an idle stretch that `cut` shortens.
  segments.push_back(switchingSegment(grey, kRed, 5.0, 6.0));
  segments.push_back(switchingSegment(kBlue, kGreen, 1.0, 3.0));
  RenderSettings settings;
  settings.fps = 10;
  settings.transition = 0.3;
  settings.idleStrategy = IdleStrategy::cut;
  settings.idleThreshold = 2;
  settings.intro = TitleCard{"Intro", "", 1.5};
  const FrameCompositor compositor(segments, settings);
  const OutputClock& clock = compositor.outputClock();

  ASSERT_EQ(clock.segmentCount(), 2);
  EXPECT_DOUBLE_EQ(clock.length(), compositor.frameCount() / 10.0);
  const double red = firstShown(compositor, kRed, 10);
  const double green = firstShown(compositor, kGreen, 10);
  ASSERT_GT(red, 0);
  ASSERT_GT(green, red);
  // The red picture comes well before 5 s of recording plus the card: the pause was cut.
  EXPECT_LT(red, 3.0);
  EXPECT_NEAR(*clock.outputTime(0, 5.0), red, 0.1 + 1e-9);
  EXPECT_NEAR(*clock.outputTime(1, 1.0), green, 0.1 + 1e-9);
  // The second segment begins as the first fades into it, and ends the output.
  EXPECT_NEAR(*clock.segmentStart(1), *clock.segmentEnd(0) - 0.3, 1e-9);
  EXPECT_NEAR(*clock.segmentEnd(1), clock.length(), 0.1 + 1e-9);
  EXPECT_FALSE(clock.outputTime(2, 0).has_value());
}

TEST(OutputClock, ASegmentWithoutFramesDoesNotPlay) {
  std::vector<RenderSegment> segments;
  segments.push_back(switchingSegment({0, 0, 0}, {255, 255, 255}, 1, 2));
  segments.emplace_back();  // captured nothing
  segments.push_back(switchingSegment({0, 0, 0}, {255, 255, 255}, 1, 2));
  RenderSettings settings;
  settings.fps = 10;
  settings.transition = 0;
  const FrameCompositor compositor(segments, settings);
  const OutputClock& clock = compositor.outputClock();
  EXPECT_FALSE(clock.segmentStart(1).has_value());
  EXPECT_DOUBLE_EQ(*clock.segmentStart(2), 2.0);
  EXPECT_DOUBLE_EQ(*clock.outputTime(2, 1.5), 3.5);
}

}  // namespace
}  // namespace brimble
