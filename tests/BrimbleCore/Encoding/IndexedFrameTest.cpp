#include "BrimbleCore/Encoding/IndexedFrame.h"

#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/TestPattern.h"
#include "tests/Support/Images.h"

namespace brimble {
namespace {

using testing::imageOf;
using testing::Pixel;

/// The colour the indexed frame shows at image position (x, y), or no value when transparent or
/// outside the frame.
std::optional<RGBColor> shownAt(const IndexedFrame& frame, int x, int y) {
  if (x < frame.left || y < frame.top || x >= frame.left + frame.width ||
      y >= frame.top + frame.height) {
    return std::nullopt;
  }
  const std::uint8_t index =
      frame.indices[static_cast<std::size_t>(y - frame.top) * frame.width + (x - frame.left)];
  if (frame.transparentIndex == index) {
    return std::nullopt;
  }
  EXPECT_LT(index, frame.palette.size());
  return frame.palette[index];
}

/// How faithful the indexed frame is to the opaque source (PSNR over RGB).
double psnr(const IndexedFrame& frame, const Image& source) {
  const Image shown = imageOf(source.width(), source.height(), [&](int x, int y) {
    const RGBColor color = shownAt(frame, x, y).value_or(RGBColor{});
    return Pixel{color.r, color.g, color.b};
  });
  return testing::psnr(shown, source);
}

TEST(IndexedFrame, KeepsUpTo256ColoursExactly) {
  const Image image = imageOf(64, 8, [](int x, int y) {
    const int i = (y * 64 + x) % 256;
    return Pixel{static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(255 - i),
                 static_cast<std::uint8_t>(i * 7), 255};
  });
  const IndexedFrame frame = indexFrame(image);
  EXPECT_EQ(frame.palette.size(), 256u);
  EXPECT_FALSE(frame.transparentIndex);
  EXPECT_EQ(psnr(frame, image), 99);
}

TEST(IndexedFrame, ReducesMoreThan256ColoursWithSmallError) {
  // 257 colours: 256 reds and one green accent.
  const Image image = imageOf(257, 2, [](int x, int) {
    return x == 256 ? Pixel{0, 200, 0, 255} : Pixel{static_cast<std::uint8_t>(x), 0, 0, 255};
  });
  const IndexedFrame frame = indexFrame(image);
  ASSERT_LE(frame.palette.size(), 256u);
  for (int x = 0; x < 257; ++x) {
    const RGBColor shown = shownAt(frame, x, 0).value();
    const RGBColor expected =
        x == 256 ? RGBColor{0, 200, 0} : RGBColor{static_cast<std::uint8_t>(x), 0, 0};
    EXPECT_LE(std::abs(shown.r - expected.r) + std::abs(shown.g - expected.g) +
                  std::abs(shown.b - expected.b),
              3)
        << "pixel " << x;
  }
}

TEST(IndexedFrame, FullColourScreensKeepHighFidelityAndTheirAccents) {
  const Image image = testPatternFrame(40, 90, 400, 250);
  const IndexedFrame frame = indexFrame(image);
  EXPECT_GT(psnr(frame, image), 38.0);

  // A small pure-red cursor on a smooth gradient must stay pure red.
  const Image accent = imageOf(300, 200, [](int x, int y) {
    if (x >= 150 && x < 154 && y >= 100 && y < 106) {
      return Pixel{255, 0, 0, 255};
    }
    return Pixel{static_cast<std::uint8_t>(x * 255 / 299), static_cast<std::uint8_t>(y * 255 / 199),
                 static_cast<std::uint8_t>((x + y) / 2), 255};
  });
  const IndexedFrame accented = indexFrame(accent);
  EXPECT_EQ(shownAt(accented, 151, 102), (RGBColor{255, 0, 0}));
}

TEST(IndexedFrame, CropsToVisiblePixelsAndSetsAsideATransparentEntry) {
  const Image image = imageOf(40, 20, [](int x, int y) {
    const bool inside = x >= 10 && x < 20 && y >= 5 && y < 8 && !(x == 12 && y == 6);
    return inside ? Pixel{static_cast<std::uint8_t>(x), 50, 60, 255} : Pixel{0, 0, 0, 0};
  });
  const IndexedFrame frame = indexFrame(image);
  EXPECT_EQ(frame.left, 10);
  EXPECT_EQ(frame.top, 5);
  EXPECT_EQ(frame.width, 10);
  EXPECT_EQ(frame.height, 3);
  ASSERT_TRUE(frame.transparentIndex);
  EXPECT_EQ(*frame.transparentIndex, 10);  // right after the ten colours
  EXPECT_EQ(frame.palette.size(), 11u);
  EXPECT_FALSE(shownAt(frame, 12, 6).has_value());
  EXPECT_EQ(shownAt(frame, 13, 6), (RGBColor{13, 50, 60}));
}

TEST(IndexedFrame, ManyColoursWithTransparencyLeaveRoomForTheTransparentIndex) {
  const Image image = imageOf(32, 9, [](int x, int y) {
    if (y == 8) {
      return Pixel{0, 0, 0, 0};
    }
    const int i = y * 32 + x;  // 256 distinct colours above a transparent row
    return Pixel{static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(i / 2), 9, 255};
  });
  const IndexedFrame frame = indexFrame(image);
  ASSERT_TRUE(frame.transparentIndex);
  EXPECT_LE(frame.palette.size(), 256u);
  EXPECT_EQ(*frame.transparentIndex, frame.palette.size() - 1);
  std::set<std::uint8_t> used(frame.indices.begin(), frame.indices.end() - 32);
  EXPECT_FALSE(used.count(*frame.transparentIndex)) << "an opaque pixel became transparent";
  for (int x = 0; x < 32; ++x) {
    EXPECT_FALSE(shownAt(frame, x, 8).has_value());
  }
}

TEST(IndexedFrame, NothingVisibleIsOneTransparentPixel) {
  const IndexedFrame frame = indexFrame(imageOf(5, 5, [](int, int) { return Pixel{9, 9, 9, 0}; }));
  EXPECT_EQ(frame.width, 1);
  EXPECT_EQ(frame.height, 1);
  ASSERT_TRUE(frame.transparentIndex);
  EXPECT_EQ(frame.indices, std::vector<std::uint8_t>{*frame.transparentIndex});
}

}  // namespace
}  // namespace brimble
