#include "BrimbleCore/Effects/IdleTrimmer.h"

#include <numeric>

#include <gtest/gtest.h>

#include "BrimbleCore/Effects/EffectsError.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Images.h"

namespace brimble {
namespace {

// 0.4 s of A, 8 s of B in four frames, 0.3 s of C, 1 s of D.
std::vector<ProcessedFrame> pausedClip() {
  const auto frame = [](std::uint8_t shade, double delay) {
    return ProcessedFrame{testing::solidImage(8, 8, {shade, shade, shade}), delay, std::nullopt};
  };
  return {frame(10, 0.2), frame(10, 0.2), frame(120, 2),   frame(120, 2),
          frame(120, 2),  frame(120, 2),  frame(200, 0.3), frame(250, 1)};
}

double total(const std::vector<ProcessedFrame>& frames) {
  return std::accumulate(frames.begin(), frames.end(), 0.0,
                         [](double sum, const ProcessedFrame& f) { return sum + f.delay; });
}

// The shades shown, in order, with repeats and dips (darkened copies) left out.
std::vector<int> pictures(const std::vector<ProcessedFrame>& frames) {
  std::vector<int> shades;
  for (const ProcessedFrame& frame : frames) {
    const int shade = testing::pixelAt(frame.image, 0, 0).r;
    if (shade == 10 || shade == 120 || shade == 200 || shade == 250) {
      if (shades.empty() || shades.back() != shade) {
        shades.push_back(shade);
      }
    }
  }
  return shades;
}

TEST(IdleTrimmer, PausesLongerThanTheThresholdShrinkAndEveryPictureStays) {
  const auto clip = pausedClip();
  ASSERT_DOUBLE_EQ(total(clip), 9.7);
  const std::vector<int> all = {10, 120, 200, 250};
  // cut: the 8 s pause becomes 0.5 s; D's 1 s is under the threshold of 1.5 s.
  const auto cut = IdleTrimmer::apply(clip, IdleStrategy::cut, 1.5);
  EXPECT_NEAR(total(cut), 9.7 - 7.5, 1e-9);
  EXPECT_EQ(pictures(cut), all);
  // ramp: played at 8x, 1 s.
  const auto ramp = IdleTrimmer::apply(clip, IdleStrategy::ramp, 1.5);
  EXPECT_NEAR(total(ramp), 9.7 - 7, 1e-9);
  EXPECT_EQ(pictures(ramp), all);
  // fade: as long as cut, with darker frames across the cut that go nearly black.
  const auto fade = IdleTrimmer::apply(clip, IdleStrategy::fade, 1.5);
  EXPECT_NEAR(total(fade), total(cut), 1e-9);
  EXPECT_EQ(pictures(fade), all);
  int darkest = 255;
  for (const ProcessedFrame& frame : fade) {
    darkest = std::min<int>(darkest, testing::pixelAt(frame.image, 0, 0).r);
  }
  EXPECT_LT(darkest, 10);
  // A threshold above every pause changes nothing.
  EXPECT_NEAR(total(IdleTrimmer::apply(clip, IdleStrategy::cut, 20)), 9.7, 1e-9);
  EXPECT_EQ(
      testing::errorText<EffectsError>([&] { IdleTrimmer::apply(clip, IdleStrategy::cut, -1); }),
      "Invalid value '-1' for 'idle-threshold': expected a number of seconds, 0 or more");
}

}  // namespace
}  // namespace brimble
