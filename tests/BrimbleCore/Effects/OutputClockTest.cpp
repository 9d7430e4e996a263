#include "BrimbleCore/Effects/OutputClock.h"

#include <filesystem>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Effects/EffectsError.h"
#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Effects/SegmentSound.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/Images.h"
#include "tests/Support/TempDirectory.h"

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

TEST(OutputClock, APlaybackSpeedDividesTheOutputsTimesAndSkipsFramesAboveOne) {
  constexpr Pixel grey{128, 128, 128};
  constexpr Pixel kRed{220, 30, 30};
  constexpr Pixel kBlue{30, 30, 220};
  constexpr Pixel kGreen{30, 200, 30};
  std::vector<RenderSegment> segments;
  segments.push_back(switchingSegment(grey, kRed, 2.0, 4.0));
  segments.push_back(switchingSegment(kBlue, kGreen, 1.0, 2.0));
  RenderSettings settings;
  settings.fps = 10;
  settings.transition = 0.5;
  settings.intro = TitleCard{"Intro", "", 1.0};
  const FrameCompositor natural(segments, settings);
  settings.playbackSpeed = 2;
  const FrameCompositor fast(segments, settings);

  // Cards, crossfades and recordings all play twice as fast; the frame rate stays.
  EXPECT_EQ(natural.frameCount(), 2 * fast.frameCount());
  EXPECT_DOUBLE_EQ(fast.outputClock().length(), natural.outputClock().length() / 2);
  for (const Pixel colour : {kRed, kBlue, kGreen}) {
    EXPECT_NEAR(firstShown(fast, colour, 10), firstShown(natural, colour, 10) / 2, 0.1 + 1e-9);
  }
  EXPECT_NEAR(firstShown(fast, kRed, 10), *fast.outputClock().outputTime(0, 2.0), 0.1 + 1e-9);
  EXPECT_DOUBLE_EQ(*fast.outputClock().segmentStart(1), *natural.outputClock().segmentStart(1) / 2);
  EXPECT_DOUBLE_EQ(*fast.outputClock().segmentEnd(1), *natural.outputClock().segmentEnd(1) / 2);
  EXPECT_DOUBLE_EQ(*fast.outputClock().outputTime(1, 1.5),
                   *natural.outputClock().outputTime(1, 1.5) / 2);

  // At four times the pace each output frame shows the moment of every fourth recorded one;
  // slower, frames are shown for longer.
  std::vector<RenderSegment> one;
  one.push_back(switchingSegment(grey, kRed, 2.0, 4.0));
  RenderSettings plain;
  plain.fps = 10;
  plain.playbackSpeed = 4;
  const FrameCompositor quick(one, plain);
  ASSERT_EQ(quick.frameCount(), 10);
  for (int k = 0; k < quick.frameCount(); ++k) {
    EXPECT_NEAR(quick.timeline()[static_cast<std::size_t>(k)].time, 0.4 * k, 1e-9);
  }
  plain.playbackSpeed = 0.25;
  EXPECT_EQ(FrameCompositor(one, plain).frameCount(), 160);
  plain.playbackSpeed = 0;
  EXPECT_THROW(FrameCompositor(one, plain), EffectsError);
}

TEST(OutputClock, TheSoundOfAFasterOutputKeepsInStepWithItsPictures) {
  // One channel at 1000 samples a second, each sample its own index / 4000: a ramp over 4 s.
  testing::TempDirectory directory;
  const std::filesystem::path recorded = directory / "recorded.f32";
  std::vector<float> ramp(4000);
  for (std::size_t i = 0; i < ramp.size(); ++i) {
    ramp[i] = static_cast<float>(i) / 4000;
  }
  std::ofstream(recorded, std::ios::binary)
      .write(reinterpret_cast<const char*>(ramp.data()),
             static_cast<std::streamsize>(ramp.size() * sizeof(float)));
  std::vector<RenderSegment> segments;
  segments.push_back(switchingSegment({0, 0, 0}, {255, 255, 255}, 2.0, 4.0));
  segments[0].sound = AudioTrack{recorded, 1000, 1, 0};
  RenderSettings settings;
  settings.fps = 10;
  settings.playbackSpeed = 2;
  const FrameCompositor compositor(segments, settings);
  const std::filesystem::path composed = directory / "composed.f32";
  ASSERT_TRUE(SegmentSound::compose(compositor, segments, 10, composed, 2));
  // Two seconds of output carry the four recorded, each moment under the frame that shows it.
  std::vector<float> played(std::filesystem::file_size(composed) / sizeof(float));
  std::ifstream(composed, std::ios::binary)
      .read(reinterpret_cast<char*>(played.data()),
            static_cast<std::streamsize>(played.size() * sizeof(float)));
  ASSERT_EQ(played.size(), 2000u);
  for (const std::size_t i : {0u, 1u, 700u, 1234u, 1999u}) {
    EXPECT_FLOAT_EQ(played[i], static_cast<float>(2 * i) / 4000) << i;
  }
}

}  // namespace
}  // namespace brimble
