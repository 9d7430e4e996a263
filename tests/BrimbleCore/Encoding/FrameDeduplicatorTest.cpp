#include "BrimbleCore/Encoding/FrameDeduplicator.h"

#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "tests/Support/Images.h"

namespace brimble {
namespace {

using testing::imageOf;
using testing::Pixel;
using testing::solidImage;

/// 10x10 (100 pixels, each one a sample) with the first `changed` pixels moved by `by`.
Image withChanges(int changed, int by) {
  return imageOf(10, 10, [=](int x, int y) {
    return y * 10 + x < changed ? Pixel{static_cast<std::uint8_t>(100 + by), 100, 100}
                                : Pixel{100, 100, 100};
  });
}

TEST(ClipEncoderSimilarity, FiveOfAHundredSamplesMayDifferButNotSix) {
  const Image base = withChanges(0, 0);
  EXPECT_TRUE(FrameComparison::compressedFramesAreSimilar(base, withChanges(5, 50)));
  EXPECT_FALSE(FrameComparison::compressedFramesAreSimilar(base, withChanges(6, 50)));
  EXPECT_TRUE(
      FrameComparison::compressedFramesAreSimilar(base, withChanges(100, 10)));  // JPEG noise
  EXPECT_FALSE(FrameComparison::compressedFramesAreSimilar(base, withChanges(100, 11)));
  EXPECT_FALSE(
      FrameComparison::compressedFramesAreSimilar(base, solidImage(10, 9, {100, 100, 100})));
}

TEST(ClipEncoderSimilarity, TinyImagesAllowTheSameShareOfChanges) {
  // 81 pixels: 81 * 205 / 4096 = 4 may differ.
  const auto tiny = [](int changed) {
    return imageOf(9, 9, [changed](int x, int y) {
      return y * 9 + x < changed ? Pixel{0, 200, 0} : Pixel{};
    });
  };
  EXPECT_TRUE(FrameComparison::compressedFramesAreSimilar(tiny(0), tiny(4)));
  EXPECT_FALSE(FrameComparison::compressedFramesAreSimilar(tiny(0), tiny(5)));
}

TEST(ClipEncoderSimilarity, EveryPixelMatchingSeesASingleChangedPixel) {
  const Image base = solidImage(200, 100, {50, 60, 70});
  const Image typed = imageOf(200, 100, [](int x, int y) {
    return x == 133 && y == 77 ? Pixel{250, 60, 70} : Pixel{50, 60, 70};
  });
  EXPECT_TRUE(FrameComparison::compressedFramesAreSimilar(base, typed)) << "sampling misses it";
  EXPECT_FALSE(FrameComparison::framesMatchEveryPixel(base, typed, 10));
  EXPECT_TRUE(FrameComparison::framesMatchEveryPixel(base, solidImage(200, 100, {60, 50, 80}), 10));
  EXPECT_FALSE(
      FrameComparison::framesMatchEveryPixel(base, solidImage(200, 100, {61, 60, 70}), 10));
  // Alpha does not count.
  EXPECT_TRUE(
      FrameComparison::framesMatchEveryPixel(base, solidImage(200, 100, {50, 60, 70, 0}), 0));
}

std::vector<TimestampedFrame> framesAt(const std::vector<Image>& images, double interval) {
  std::vector<TimestampedFrame> frames;
  for (std::size_t i = 0; i < images.size(); ++i) {
    frames.emplace_back(images[i], i * interval, 100 + i * interval);
  }
  return frames;
}

TEST(FrameDeduplicator, KeepsChangesAndRepeatsTheLastInterval) {
  const Image a = withChanges(0, 0);
  const Image b = withChanges(50, 100);
  const auto frames = framesAt({a, a, b, b, b, a}, 0.05);
  const auto merged = FrameDeduplicator::process(frames, 20);
  ASSERT_EQ(merged.size(), 3u);
  EXPECT_NEAR(merged[0].delay, 0.10, 1e-9);
  EXPECT_NEAR(merged[1].delay, 0.15, 1e-9);
  EXPECT_NEAR(merged[2].delay, 0.05, 1e-9);  // the last frame repeats the gap before it
  // Each kept frame carries the date of the first of its run.
  EXPECT_NEAR(*merged[0].sourceTimestamp, 100.0, 1e-9);
  EXPECT_NEAR(*merged[1].sourceTimestamp, 100.10, 1e-9);
}

TEST(FrameDeduplicator, ASlowFadeIsCutWhereItDriftsFromTheKeptFrame) {
  // Every frame moves 4 levels from the one before: each is similar to its neighbour, but the
  // third step is 12 levels from the kept frame.
  std::vector<Image> fade;
  for (int i = 0; i < 7; ++i) {
    fade.push_back(withChanges(100, 4 * i));
  }
  const auto merged = FrameDeduplicator::process(framesAt(fade, 0.1), 10);
  ASSERT_EQ(merged.size(), 3u);  // frames 0-2, 3-5, 6
  EXPECT_NEAR(merged[0].delay, 0.3, 1e-9);
  EXPECT_NEAR(merged[1].delay, 0.3, 1e-9);
}

TEST(FrameDeduplicator, ASingleFrameShowsForItsDurationOrOneFrameTime) {
  const std::vector<TimestampedFrame> timed = {
      TimestampedFrame(withChanges(0, 0), 2.0, std::nullopt, 0.75)};
  EXPECT_NEAR(FrameDeduplicator::process(timed, 30)[0].delay, 0.75, 1e-9);
  const std::vector<TimestampedFrame> untimed = {TimestampedFrame(withChanges(0, 0), 2.0)};
  EXPECT_NEAR(FrameDeduplicator::process(untimed, 25)[0].delay, 0.04, 1e-9);
  EXPECT_TRUE(FrameDeduplicator::process({}, 25).empty());
}

TEST(FrameDeduplicator, MergingProcessedFramesAddsTheirDelays) {
  const Image a = withChanges(0, 0);
  const Image b = withChanges(60, 90);
  const std::vector<ProcessedFrame> frames = {
      {a, 0.1, {}}, {a, 0.2, {}}, {b, 0.3, {}}, {a, 0.4, {}}};
  const auto merged = FrameDeduplicator::merge(frames, DedupRule::sampled);
  ASSERT_EQ(merged.size(), 3u);
  EXPECT_NEAR(merged[0].delay, 0.3, 1e-9);
  EXPECT_NEAR(merged[1].delay, 0.3, 1e-9);
  EXPECT_NEAR(merged[2].delay, 0.4, 1e-9);
  // By default every pixel counts: five changed pixels are a change.
  const std::vector<ProcessedFrame> subtle = {{a, 0.1, {}}, {withChanges(5, 90), 0.1, {}}};
  EXPECT_EQ(FrameDeduplicator::merge(subtle).size(), 2u);
  EXPECT_EQ(FrameDeduplicator::merge(subtle, DedupRule::sampled).size(), 1u);
}

}  // namespace
}  // namespace brimble
