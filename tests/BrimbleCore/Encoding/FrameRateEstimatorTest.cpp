#include "BrimbleCore/Encoding/FrameRateEstimator.h"

#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/FrameRate.h"

namespace brimble {
namespace {

std::vector<ProcessedFrame> framesWithDelays(const std::vector<double>& delays) {
  std::vector<ProcessedFrame> frames;
  for (const double delay : delays) {
    frames.push_back({Image(), delay, std::nullopt});
  }
  return frames;
}

std::vector<TimestampedFrame> framesAt(const std::vector<double>& timestamps) {
  std::vector<TimestampedFrame> frames;
  for (const double timestamp : timestamps) {
    frames.emplace_back(Image(), timestamp);
  }
  return frames;
}

TEST(FrameRateEstimator, NominalRateOfProcessedFramesIsCountOverTotalDelay) {
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesWithDelays(std::vector<double>(10, 0.1)), 30), 10);
  // 3 frames over 0.2 s is 15 fps; 2 frames over 0.08 s is 25 fps.
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesWithDelays({0.05, 0.05, 0.1}), 30), 15);
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesWithDelays({0.04, 0.04}), 30), 25);
}

TEST(FrameRateEstimator, ClampsToOneAndOneHundredTwentyRoundingHalvesUp) {
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesWithDelays({0.002}), 30), 120);        // 500 fps
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesWithDelays({2.0}), 30), 1);            // 0.5 fps
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesWithDelays({0.5, 0.5, 1.0}), 30), 2);  // 1.5
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesWithDelays({1 / 12.4}), 30), 12);
}

TEST(FrameRateEstimator, FallsBackWhenThereIsNoTimeToMeasure) {
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesWithDelays({0, 0, 0}), 24), 24);
  EXPECT_EQ(FrameRateEstimator::nominalFPS(std::vector<ProcessedFrame>{}, 24), 24);
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesWithDelays({0}), 0), 1);
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesWithDelays({0}), -5), 1);
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesWithDelays({0}), 500), 120);
}

TEST(FrameRateEstimator, NominalRateOfCapturedFramesUsesTheTimestampSpan) {
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesAt({0, 0.1, 0.2, 0.3}), 60), 10);
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesAt({5.0, 5.5}), 60), 2);
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesAt({1.0}), 60), 60);
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesAt({2.0, 1.0}), 60), 60);  // negative span
  EXPECT_EQ(FrameRateEstimator::nominalFPS(framesAt({1.0, 1.0}), 0), 1);
}

TEST(FrameRateEstimator, ActiveRateIgnoresTheLongDelaysOfMergedFrames) {
  EXPECT_EQ(FrameRateEstimator::activeFrameFPS(framesWithDelays({0.05, 0.05, 2.0}), 30), 20);
  EXPECT_EQ(FrameRateEstimator::activeFrameFPS(framesWithDelays({2.0, 0.05, 0.05}), 30), 20);
  EXPECT_EQ(FrameRateEstimator::activeFrameFPS(framesWithDelays({0.04, 0.06}), 30), 20);
  EXPECT_EQ(FrameRateEstimator::activeFrameFPS(framesWithDelays({0, 0, 1}), 30), 30);
  EXPECT_EQ(FrameRateEstimator::activeFrameFPS(std::vector<ProcessedFrame>{}, 7), 7);
}

}  // namespace
}  // namespace brimble
