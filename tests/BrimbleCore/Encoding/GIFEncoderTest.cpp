#include "BrimbleCore/Encoding/GIFEncoder.h"

#include <array>
#include <vector>

#include <gtest/gtest.h>

namespace brimble {
namespace {

Image onePixelRow(const std::vector<std::array<std::uint8_t, 3>>& bgr) {
  PixelBuffer pixels;
  for (const auto& p : bgr) {
    pixels.insert(pixels.end(), {p[0], p[1], p[2], 255});
  }
  return Image::bgra8(static_cast<int>(bgr.size()), 1, pixels);
}

TEST(GIFEncoder, DiffFrameKeepsOnlyPixelsBeyondTheTolerance) {
  const Image previous =
      onePixelRow({{100, 100, 100}, {100, 100, 100}, {100, 100, 100}, {7, 8, 9}});
  const Image current = onePixelRow({{103, 100, 97}, {100, 104, 100}, {100, 100, 100}, {7, 8, 9}});
  const auto tolerant = GIFEncoder::createDiffFrame(current, previous, 3);
  ASSERT_TRUE(tolerant);
  EXPECT_EQ(std::vector<std::uint8_t>(tolerant->bytes().begin(), tolerant->bytes().end()),
            (std::vector<std::uint8_t>{0, 0, 0, 0, 100, 104, 100, 255, 0, 0, 0, 0, 0, 0, 0, 0}));

  const auto exact = GIFEncoder::createDiffFrame(current, previous, 0);
  ASSERT_TRUE(exact);
  EXPECT_EQ(
      std::vector<std::uint8_t>(exact->bytes().begin(), exact->bytes().end()),
      (std::vector<std::uint8_t>{103, 100, 97, 255, 100, 104, 100, 255, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(GIFEncoder, DiffFrameComparesIndexedImagesByColour) {
  const Image previous = Image::indexed8(2, 1, {0, 1}, {{10, 20, 30}, {40, 50, 60}});
  // Same colours under different indices: nothing changed.
  const Image reordered = Image::indexed8(2, 1, {1, 0}, {{40, 50, 60}, {10, 20, 30}});
  const auto same = GIFEncoder::createDiffFrame(reordered, previous, 0);
  ASSERT_TRUE(same);
  EXPECT_EQ(std::vector<std::uint8_t>(same->bytes().begin(), same->bytes().end()),
            std::vector<std::uint8_t>(8, 0));
}

TEST(GIFEncoder, DiffFrameOfDifferentSizesIsNothing) {
  const Image a = onePixelRow({{1, 2, 3}, {4, 5, 6}});
  const Image b = onePixelRow({{1, 2, 3}});
  EXPECT_FALSE(GIFEncoder::createDiffFrame(a, b, 0).has_value());
}

}  // namespace
}  // namespace brimble
