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

TEST(MedianCutQuantizer, BuildsPalettesByMedianCut) {
  const struct {
    std::vector<RGBColor> colors;
    int maxColors;
    std::vector<RGBColor> palette;
  } cases[] = {
      {{}, 256, {}},
      // Few colours are kept as they are, duplicates once (sorted here: the order is open).
      {{{1, 2, 3}, {200, 0, 0}, {1, 2, 3}, {0, 0, 255}},
       256,
       {{0, 0, 255}, {1, 2, 3}, {200, 0, 0}}},
      // Boxes of one colour are still split.
      {std::vector<RGBColor>(1000, RGBColor{10, 20, 30}), 4,
       std::vector<RGBColor>(4, {10, 20, 30})},
      // One box: the truncated mean.
      {{{0, 0, 0}, {1, 1, 1}, {255, 100, 3}}, 1, {{85, 33, 1}}},
      // Red and green both span 100: red wins, and the stable sort by red gives A D | C B.
      {{{0, 100, 0}, {100, 0, 0}, {50, 50, 0}, {0, 0, 0}}, 2, {{0, 50, 0}, {75, 25, 0}}},
      // Blue (200) is split first; its upper half (green 90) next, appended last.
      {{{0, 0, 0}, {0, 0, 10}, {0, 0, 200}, {0, 90, 200}},
       3,
       {{0, 0, 5}, {0, 0, 200}, {0, 90, 200}}},
  };
  for (const auto& example : cases) {
    auto palette = MedianCutQuantizer::buildPalette(example.colors, example.maxColors);
    if (example.maxColors == 256) {
      std::sort(palette.begin(), palette.end(),
                [](auto a, auto b) { return a.packed() < b.packed(); });
    }
    EXPECT_EQ(palette, example.palette) << example.colors.size() << " colours";
  }
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

TEST(MedianCutQuantizer, ManyColoursMapAsEachAloneWould) {
  // More distinct colours than the colour cache starts with; a pixel alone skips the cache.
  const Image image = imageOf(128, 64, [](int x, int y) {
    return Pixel{static_cast<std::uint8_t>(x * 2), static_cast<std::uint8_t>(y * 4),
                 static_cast<std::uint8_t>((x + y) % 256)};
  });
  const auto palette =
      MedianCutQuantizer::buildPalette(MedianCutQuantizer::sampleColors(image, 500), 16);
  const auto quantized = MedianCutQuantizer::quantize(image, palette);
  for (int i = 0; i < 128 * 64; i += 37) {
    const Image alone = testing::solidImage(1, 1, testing::pixelAt(image, i % 128, i / 128));
    EXPECT_EQ(quantized->bytes()[static_cast<std::size_t>(i)],
              MedianCutQuantizer::quantize(alone, palette)->bytes()[0])
        << i;
  }
}

}  // namespace
}  // namespace brimble
