#include "BrimbleCore/Encoding/Image.h"

#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

namespace brimble {
namespace {

TEST(Image, RowsSkipThePaddingOfWideStrides) {
  // 2x2 pixels, rows 12 bytes apart: 8 bytes of pixels and 4 of padding each.
  PixelBuffer padded = {1, 2, 3, 255, 4,  5,  6,  255, 9, 9, 9, 9,
                        7, 8, 9, 255, 10, 11, 12, 255, 9, 9, 9, 9};
  const Image image = Image::bgra8(2, 2, padded, 12);
  EXPECT_EQ(image.bytesPerRow(), 12u);
  EXPECT_EQ(std::vector<std::uint8_t>(image.row(1).begin(), image.row(1).end()),
            (std::vector<std::uint8_t>{7, 8, 9, 255, 10, 11, 12, 255}));
  EXPECT_TRUE(image.row(2).empty());

  const Image packed =
      Image::bgra8(2, 2, {1, 2, 3, 255, 4, 5, 6, 255, 7, 8, 9, 255, 10, 11, 12, 255});
  EXPECT_TRUE(image.hasSamePixels(packed));
  const Image different =
      Image::bgra8(2, 2, {1, 2, 3, 255, 4, 5, 6, 255, 7, 8, 9, 255, 10, 11, 13, 255});
  EXPECT_FALSE(image.hasSamePixels(different));
}

TEST(Image, RejectsBuffersThatDoNotFitTheSize) {
  EXPECT_THROW(Image::bgra8(2, 2, PixelBuffer(15)), std::invalid_argument);
  EXPECT_THROW(Image::bgra8(2, 2, PixelBuffer(16), 7), std::invalid_argument);
  EXPECT_THROW(Image::bgra8(-1, 2, {}), std::invalid_argument);
  EXPECT_THROW(Image::indexed8(2, 1, {0}, {RGBColor{}}), std::invalid_argument);
  EXPECT_THROW(Image::indexed8(2, 1, {0, 1}, {RGBColor{}}), std::invalid_argument);
  EXPECT_THROW(Image::indexed8(1, 1, {0}, {}), std::invalid_argument);
  EXPECT_THROW(Image::indexed8(1, 1, {0}, std::vector<RGBColor>(257)), std::invalid_argument);
}

TEST(Image, IndexedImagesConvertToOpaqueBGRA) {
  const Image indexed = Image::indexed8(3, 1, {2, 0, 1}, {{255, 0, 0}, {0, 128, 0}, {1, 2, 3}});
  EXPECT_EQ(indexed.bitsPerPixel(), 8);
  const Image bgra = indexed.toBGRA8();
  EXPECT_EQ(bgra.format(), PixelFormat::bgra8);
  EXPECT_EQ(std::vector<std::uint8_t>(bgra.bytes().begin(), bgra.bytes().end()),
            (std::vector<std::uint8_t>{3, 2, 1, 255, 0, 0, 255, 255, 0, 128, 0, 255}));
  EXPECT_TRUE(indexed.hasSamePixels(bgra));
}

}  // namespace
}  // namespace brimble
