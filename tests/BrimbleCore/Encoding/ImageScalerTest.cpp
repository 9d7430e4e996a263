#include "BrimbleCore/Encoding/ImageScaler.h"

#include <array>

#include <gtest/gtest.h>

#include "tests/Support/Images.h"

namespace brimble {
namespace {

using testing::imageOf;
using testing::Pixel;
using testing::pixelAt;

TEST(ImageScaler, KeepsTheAspectRatioWithAnEvenHeight) {
  EXPECT_EQ(ImageScaler::scaledSize(1280, 720, 800), (ImageSize{800, 450}));
  EXPECT_EQ(ImageScaler::scaledSize(1000, 333, 800), (ImageSize{800, 266}));  // 266.4
  EXPECT_EQ(ImageScaler::scaledSize(1000, 335, 800), (ImageSize{800, 268}));  // 268.0
  EXPECT_EQ(ImageScaler::scaledSize(3000, 1, 800), (ImageSize{800, 2}));
  EXPECT_EQ(ImageScaler::scaledSize(640, 480, 800), (ImageSize{640, 480})) << "never enlarged";
  EXPECT_EQ(ImageScaler::scaledSize(640, 481, 0), (ImageSize{640, 481}));
}

TEST(ImageScaler, FlatColourStaysExactlyFlat) {
  const Image flat = imageOf(1280, 720, [](int, int) { return Pixel{17, 200, 99}; });
  const Image scaled = ImageScaler::scaleToMaxWidth(flat, 800);
  ASSERT_EQ(scaled.width(), 800);
  ASSERT_EQ(scaled.height(), 450);
  for (const auto& [x, y] :
       {std::pair{0, 0}, std::pair{799, 449}, std::pair{400, 225}, std::pair{0, 449}}) {
    const Pixel p = pixelAt(scaled, x, y);
    EXPECT_EQ((std::array<int, 4>{p.r, p.g, p.b, p.a}), (std::array<int, 4>{17, 200, 99, 255}))
        << x << "," << y;
  }
}

TEST(ImageScaler, HalvingACheckerboardAveragesIt) {
  const Image checker = imageOf(200, 100, [](int x, int y) {
    return (x + y) % 2 == 0 ? Pixel{255, 255, 255} : Pixel{0, 0, 0};
  });
  const Image scaled = ImageScaler::resize(checker, {100, 50});
  for (int y = 5; y < 45; y += 7) {
    for (int x = 5; x < 95; x += 9) {
      EXPECT_NEAR(pixelAt(scaled, x, y).g, 128, 3) << x << "," << y;
    }
  }
}

TEST(ImageScaler, EdgesStaySharpAndInPlace) {
  // A vertical black/white edge at a third of the width stays at a third, without ringing into
  // far pixels.
  const Image edge = imageOf(1200, 60, [](int x, int) {
    return x < 400 ? Pixel{0, 0, 0} : Pixel{255, 255, 255};
  });
  const Image scaled = ImageScaler::scaleToMaxWidth(edge, 600);
  EXPECT_EQ(pixelAt(scaled, 190, 15).r, 0);
  EXPECT_EQ(pixelAt(scaled, 210, 15).r, 255);
  EXPECT_LT(pixelAt(scaled, 198, 15).r, 128);
  EXPECT_GT(pixelAt(scaled, 201, 15).r, 128);
}

TEST(ImageScaler, IndexedImagesScaleLikeTheirColours) {
  const Image indexed =
      Image::indexed8(4, 2, {0, 0, 1, 1, 0, 0, 1, 1}, {{10, 20, 30}, {10, 20, 30}});
  const Image scaled = ImageScaler::resize(indexed, {2, 1});
  EXPECT_EQ(scaled.format(), PixelFormat::bgra8);
  EXPECT_EQ(pixelAt(scaled, 1, 0).b, 30);
}

}  // namespace
}  // namespace brimble
