#include "BrimbleCore/Effects/SegmentRenderer.h"

#include <numeric>

#include <gtest/gtest.h>

#include "BrimbleCore/Effects/RenderTimeline.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/Images.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::Pixel;

RenderSegment segmentOf(const std::vector<Image>& images, int fps) {
  auto store = std::make_unique<InMemoryFrameStore>();
  for (const Image& image : images) {
    store->frames.push_back(encodeJPEG(image, 95));
  }
  RenderSegment segment;
  segment.frames = std::move(store);
  segment.fps = fps;
  return segment;
}

TEST(RenderTimeline, EachOutputTimeShowsTheLatestCapturedFrameAndSegmentsOverlapByTheFade) {
  std::vector<RenderSegment> segments;
  // Frames captured at 0, 0.05 and 0.3 s of a segment that ran 0.4 s.
  segments.push_back(segmentOf(std::vector<Image>(3, testing::solidImage(4, 4, {})), 10));
  segments[0].frameTimes = {0, 0.05, 0.3};
  segments[0].duration = 0.4;
  segments.push_back(RenderSegment{});  // captured nothing: left out
  segments.push_back(segmentOf(std::vector<Image>(4, testing::solidImage(4, 4, {})), 10));

  const auto described = [&](double transition) {
    std::vector<std::string> lines;
    for (const TimelineFrame& entry : RenderTimeline::build(segments, 10, transition)) {
      lines.push_back(std::to_string(entry.segment) + ":" + std::to_string(entry.frame));
      if (entry.nextSegment >= 0) {
        lines.back() += " " + std::to_string(entry.nextSegment) + ":" +
                        std::to_string(entry.nextFrame) + " " +
                        std::to_string(std::lround(entry.blend * 100)) + "%";
      }
    }
    return lines;
  };
  using Lines = std::vector<std::string>;
  EXPECT_EQ(described(0), (Lines{"0:0", "0:1", "0:1", "0:2", "2:0", "2:1", "2:2", "2:3"}));
  // A 0.2 s fade: the second segment starts at 0.2 s and is fully in at 0.4 s.
  EXPECT_EQ(described(0.2), (Lines{"0:0", "0:1", "0:1 2:0 0%", "0:2 2:1 50%", "2:2", "2:3"}));
  // The fade never takes more than half of the shorter neighbour.
  EXPECT_DOUBLE_EQ(RenderTimeline::crossfadeLength(std::vector<double>{0.4, 0.4}, 5), 0.2);
}

TEST(SegmentRenderer, SegmentsCrossfadeOnOneCanvasAndKeepTheirTime) {
  const Pixel red{220, 20, 20};
  const Pixel blue{20, 20, 220};
  std::vector<RenderSegment> segments;
  segments.push_back(segmentOf(std::vector<Image>(10, testing::solidImage(80, 40, red)), 10));
  // The red one is scaled to 60x30, the blue one fits as it is: both centred on 60x40.
  segments.push_back(segmentOf(std::vector<Image>(10, testing::solidImage(40, 40, blue)), 10));
  RenderSettings settings;
  settings.fps = 10;
  settings.maxWidth = 60;
  settings.transition = 0.4;
  testing::TempDirectory directory;
  const auto summary = SegmentRenderer::render(segments, settings, directory / "out.gif");

  const auto gif = testing::decodeGIFFile(directory / "out.gif");
  ASSERT_TRUE(gif);
  EXPECT_EQ(summary.frames, static_cast<int>(gif->frames.size()));
  EXPECT_EQ(gif->width, 60);
  EXPECT_EQ(gif->height, 40);
  // 1 s + 1 s - 0.4 s of fade.
  EXPECT_EQ(std::accumulate(gif->delaysCentiseconds.begin(), gif->delaysCentiseconds.end(), 0),
            160);
  const auto channels = [](const Image& image, int x, int y) {
    return testing::pixelAt(image, x, y);
  };
  const Pixel first = channels(gif->frames.front(), 30, 20);
  EXPECT_GT(first.r, 180);
  EXPECT_LT(first.b, 60);
  const Pixel last = channels(gif->frames.back(), 30, 20);
  EXPECT_GT(last.b, 180);
  EXPECT_LT(last.r, 60);
  // Black bands above and below the red frames, beside the blue ones.
  EXPECT_LT(channels(gif->frames.front(), 30, 2).r, 30);
  EXPECT_GT(channels(gif->frames.front(), 30, 7).r, 180);
  EXPECT_LT(channels(gif->frames.back(), 5, 20).b, 30);
  EXPECT_GT(channels(gif->frames.back(), 12, 20).b, 180);
  // Somewhere in the fade both colours show at once.
  const bool mixed = std::any_of(gif->frames.begin(), gif->frames.end(), [&](const Image& frame) {
    const Pixel p = channels(frame, 30, 20);
    return p.r > 70 && p.r < 170 && p.b > 70 && p.b < 170;
  });
  EXPECT_TRUE(mixed);
}

TEST(SegmentRenderer, CardsAddTheirTimeAndAnIdleCutTakesItsPauseOutOfTheFile) {
  // 1 s of change, a 3 s pause, 1 s of change, at 10 fps.
  std::vector<Image> images;
  for (int i = 0; i < 50; ++i) {
    const int shade = i < 10 ? i * 20 : (i < 40 ? 200 : 10 + (i - 40) * 20);
    images.push_back(testing::solidImage(60, 40, {static_cast<std::uint8_t>(shade), 80, 120}));
  }
  std::vector<RenderSegment> segments;
  segments.push_back(segmentOf(images, 10));
  RenderSettings settings;
  settings.fps = 10;
  testing::TempDirectory directory;
  const auto playTime = [&](const RenderSettings& chosen) {
    const auto out = directory / "out.gif";
    const EncodeSummary summary = SegmentRenderer::render(segments, chosen, out);
    const auto gif = testing::decodeGIFFile(out);
    EXPECT_TRUE(gif);
    const int total =
        gif ? std::accumulate(gif->delaysCentiseconds.begin(), gif->delaysCentiseconds.end(), 0)
            : 0;
    EXPECT_NEAR(summary.duration * 100, total, 1);
    return total;
  };
  EXPECT_EQ(playTime(settings), 500);
  // An intro of 1 s and the outro's default 2.5 s, each crossfading 0.5 s with the recording.
  RenderSettings cards = settings;
  cards.intro = TitleCard{"Intro", "", 1.0};
  cards.outro = TitleCard{"Outro", "", std::nullopt};
  EXPECT_EQ(playTime(cards), 500 + 100 + 250 - 50 - 50);
  // The 3 s pause (from 1.0 s to 4.0 s) keeps half a second.
  RenderSettings cut = settings;
  cut.idleStrategy = IdleStrategy::cut;
  EXPECT_EQ(playTime(cut), 500 - 250);
  cut.idleThreshold = 3.5;
  EXPECT_EQ(playTime(cut), 500);
}

}  // namespace
}  // namespace brimble
