#include "BrimbleCore/Encoding/MedianCutQuantizer.h"

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/Images.h"

namespace brimble {
namespace {

using testing::imageOf;
using testing::Pixel;

TEST(MedianCutQuantizer, SamplesAtAnEvenStrideRowByRow) {
  // 10x10 pixels whose red is their index: 30 samples means a stride of 100 / 30 = 3.
  const Image image = imageOf(10, 10, [](int x, int y) {
    return Pixel{static_cast<std::uint8_t>(y * 10 + x), 7, 9};
  });
  const auto samples = MedianCutQuantizer::sampleColors(image, 30);
  ASSERT_EQ(samples.size(), 34u);  // indices 0, 3, ..., 99
  for (std::size_t i = 0; i < samples.size(); ++i) {
    EXPECT_EQ(samples[i], (RGBColor{static_cast<std::uint8_t>(3 * i), 7, 9}));
  }
  EXPECT_EQ(MedianCutQuantizer::sampleColors(image, 500).size(), 100u);
}

TEST(MedianCutQuantizer, SamplingHonoursRowPaddingAndRefusesWhatItCannotRead) {
  // Two pixels per row, rows 12 bytes apart.
  const Image padded = Image::bgra8(2, 2, {1, 2, 3, 255, 4,  5,  6,  255, 0, 0, 0, 0,  //
                                           7, 8, 9, 255, 10, 11, 12, 255, 0, 0, 0, 0},
                                    12);
  EXPECT_EQ(MedianCutQuantizer::sampleColors(padded, 4),
            (std::vector<RGBColor>{{3, 2, 1}, {6, 5, 4}, {9, 8, 7}, {12, 11, 10}}));
  EXPECT_TRUE(MedianCutQuantizer::sampleColors(Image(), 10).empty());
  EXPECT_TRUE(
      MedianCutQuantizer::sampleColors(Image::indexed8(1, 1, {0}, {{1, 2, 3}}), 10).empty());
  EXPECT_TRUE(MedianCutQuantizer::sampleColors(padded, 0).empty());
}

TEST(MedianCutQuantizer, FewColoursAreKeptAsTheyAre) {
  const std::vector<RGBColor> colors = {{1, 2, 3}, {200, 0, 0}, {1, 2, 3}, {0, 0, 255}};
  auto palette = MedianCutQuantizer::buildPalette(colors, 256);
  std::sort(palette.begin(), palette.end(), [](auto a, auto b) { return a.packed() < b.packed(); });
  EXPECT_EQ(palette, (std::vector<RGBColor>{{0, 0, 255}, {1, 2, 3}, {200, 0, 0}}));
  EXPECT_TRUE(MedianCutQuantizer::buildPalette({}, 256).empty());
}

TEST(MedianCutQuantizer, BoxesOfOneColourAreStillSplit) {
  const std::vector<RGBColor> same(1000, RGBColor{10, 20, 30});
  EXPECT_EQ(MedianCutQuantizer::buildPalette(same, 4),
            std::vector<RGBColor>(4, RGBColor{10, 20, 30}));
}

TEST(MedianCutQuantizer, OneColourIsTheTruncatedMean) {
  const std::vector<RGBColor> colors = {{0, 0, 0}, {1, 1, 1}, {255, 100, 3}};
  EXPECT_EQ(MedianCutQuantizer::buildPalette(colors, 1), (std::vector<RGBColor>{{85, 33, 1}}));
}

TEST(MedianCutQuantizer, RedWinsATieOfChannelRangesAndTheCutIsStable) {
  // Red and green both span 100. Sorting by red (stably) gives A D | C B; by green it would give
  // B D | C A, with other means.
  const RGBColor a{0, 100, 0};
  const RGBColor b{100, 0, 0};
  const RGBColor c{50, 50, 0};
  const RGBColor d{0, 0, 0};
  EXPECT_EQ(MedianCutQuantizer::buildPalette(std::vector<RGBColor>{a, b, c, d}, 2),
            (std::vector<RGBColor>{{0, 50, 0}, {75, 25, 0}}));
}

TEST(MedianCutQuantizer, TheWidestBoxIsSplitFirstAndTheNewHalfGoesLast) {
  // Blue spans 200 and is split first; its upper half is then the widest (green 90) and is split.
  std::vector<RGBColor> colors = {{0, 0, 0}, {0, 0, 10}, {0, 0, 200}, {0, 90, 200}};
  EXPECT_EQ(MedianCutQuantizer::buildPalette(colors, 3),
            (std::vector<RGBColor>{{0, 0, 5}, {0, 0, 200}, {0, 90, 200}}));
}

TEST(MedianCutQuantizer, MapsToTheNearestColourAndTiesToTheLowerIndex) {
  std::vector<RGBColor> palette(8, RGBColor{255, 255, 0});
  palette[3] = {90, 100, 100};
  palette[7] = {110, 100, 100};
  palette[5] = {0, 0, 250};
  const Image image = imageOf(3, 1, [](int x, int) {
    return x == 0 ? Pixel{100, 100, 100} : (x == 1 ? Pixel{105, 100, 100} : Pixel{0, 10, 240});
  });
  const auto quantized = MedianCutQuantizer::quantize(image, palette);
  ASSERT_TRUE(quantized);
  EXPECT_EQ(quantized->format(), PixelFormat::indexed8);
  EXPECT_EQ(std::vector<std::uint8_t>(quantized->bytes().begin(), quantized->bytes().end()),
            (std::vector<std::uint8_t>{3, 7, 5}));
  EXPECT_EQ(std::vector<RGBColor>(quantized->palette().begin(), quantized->palette().end()),
            palette);
}

TEST(MedianCutQuantizer, NothingToMapGivesNoImage) {
  const Image image = imageOf(2, 2, [](int, int) { return Pixel{1, 2, 3}; });
  EXPECT_FALSE(MedianCutQuantizer::quantize(image, {}).has_value());
  EXPECT_FALSE(MedianCutQuantizer::quantize(Image(), std::vector<RGBColor>{{1, 2, 3}}).has_value());
  EXPECT_FALSE(MedianCutQuantizer::quantize(Image::indexed8(1, 1, {0}, {{1, 2, 3}}),
                                            std::vector<RGBColor>{{1, 2, 3}})
                   .has_value());
}

TEST(MedianCutQuantizer, ManyColoursMapConsistentlyThroughTheCache) {
  // More distinct colours than the cache's initial size; each must map as a fresh search would.
  const Image image = imageOf(128, 64, [](int x, int y) {
    return Pixel{static_cast<std::uint8_t>(x * 2), static_cast<std::uint8_t>(y * 4),
                 static_cast<std::uint8_t>((x + y) % 256)};
  });
  const auto palette =
      MedianCutQuantizer::buildPalette(MedianCutQuantizer::sampleColors(image, 500), 16);
  const auto quantized = MedianCutQuantizer::quantize(image, palette);
  ASSERT_TRUE(quantized);
  for (int y = 0; y < 64; y += 7) {
    for (int x = 0; x < 128; x += 5) {
      const auto p = testing::pixelAt(image, x, y);
      int best = 0;
      int bestDistance = 1 << 30;
      for (std::size_t i = 0; i < palette.size(); ++i) {
        const int d = (palette[i].r - p.r) * (palette[i].r - p.r) +
                      (palette[i].g - p.g) * (palette[i].g - p.g) +
                      (palette[i].b - p.b) * (palette[i].b - p.b);
        if (d < bestDistance) {
          bestDistance = d;
          best = static_cast<int>(i);
        }
      }
      EXPECT_EQ(quantized->bytes()[static_cast<std::size_t>(y) * 128 + x], best) << x << "," << y;
    }
  }
}

}  // namespace
}  // namespace brimble
