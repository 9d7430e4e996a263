#include "BrimbleCore/Encoding/MuxTiming.h"

#include <limits>

#include <gtest/gtest.h>

namespace brimble {
namespace {

TEST(MuxTiming, GifDelaysRoundHalvesAwayFromZeroAndClamp) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(MuxTiming::gifDelayCentiseconds(0.0), 0);
  EXPECT_EQ(MuxTiming::gifDelayCentiseconds(-1), 0);
  EXPECT_EQ(MuxTiming::gifDelayCentiseconds(std::numeric_limits<double>::quiet_NaN()), 0);
  EXPECT_EQ(MuxTiming::gifDelayCentiseconds(kInfinity), 0);
  EXPECT_EQ(MuxTiming::gifDelayCentiseconds(-kInfinity), 0);
  EXPECT_EQ(MuxTiming::gifDelayCentiseconds(0.015), 2);
  EXPECT_EQ(MuxTiming::gifDelayCentiseconds(0.004), 0);  // no minimum
  EXPECT_EQ(MuxTiming::gifDelayCentiseconds(0.005), 1);
  EXPECT_EQ(MuxTiming::gifDelayCentiseconds(1.0 / 30), 3);
  EXPECT_EQ(MuxTiming::gifDelayCentiseconds(655.35), 65535);
  EXPECT_EQ(MuxTiming::gifDelayCentiseconds(1000), 65535);
}

TEST(MuxTiming, NetscapeRepetitionsFollowTheLoopCountRules) {
  EXPECT_EQ(MuxTiming::netscapeRepetitions(0), 0);
  EXPECT_EQ(MuxTiming::netscapeRepetitions(1), std::nullopt);
  EXPECT_EQ(MuxTiming::netscapeRepetitions(2), 1);
  EXPECT_EQ(MuxTiming::netscapeRepetitions(3), 2);
  EXPECT_EQ(MuxTiming::netscapeRepetitions(65534), 65533);
  EXPECT_EQ(MuxTiming::netscapeRepetitions(65535), std::nullopt);
  EXPECT_EQ(MuxTiming::netscapeRepetitions(65536), 65535);
  EXPECT_EQ(MuxTiming::netscapeRepetitions(65537), 0);  // wraps to forever
  EXPECT_EQ(MuxTiming::netscapeRepetitions(-1), std::nullopt);
  EXPECT_EQ(MuxTiming::netscapeRepetitions(std::numeric_limits<int>::min()), std::nullopt);
}

TEST(MuxTiming, ApngDelaysAreReducedFractions) {
  using D = MuxTiming::APNGDelay;
  EXPECT_EQ(MuxTiming::apngRational(0.1), (D{1, 10}));
  EXPECT_EQ(MuxTiming::apngRational(1.0 / 30), (D{33, 1000}));
  EXPECT_EQ(MuxTiming::apngRational(0.04), (D{1, 25}));
  EXPECT_EQ(MuxTiming::apngRational(2.5), (D{5, 2}));
  EXPECT_EQ(MuxTiming::apngRational(65.536), (D{3277, 50}));  // 65536 ms does not fit in 16 bits
  EXPECT_EQ(MuxTiming::apngRational(100000), (D{65535, 1}));
  EXPECT_EQ(MuxTiming::apngRational(0), (D{0, 1}));
  EXPECT_EQ(MuxTiming::apngRational(-3), (D{0, 1}));
  EXPECT_EQ(MuxTiming::apngRational(std::numeric_limits<double>::quiet_NaN()), (D{0, 1}));
  EXPECT_EQ(MuxTiming::apngRational(0.0001), (D{0, 1}));
}

}  // namespace
}  // namespace brimble
