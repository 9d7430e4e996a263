#include "BrimbleCore/Encoding/ImageCodec.h"

#include <array>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/TestPattern.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Images.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::imageOf;
using testing::Pixel;

TEST(ImageCodec, PNGRoundTripsExactlyIncludingTranslucency) {
  const Image opaque = testPatternFrame(3, 10, 64, 40);
  const auto png = encodePNG(opaque);
  const auto decoded = decodeImage(png);
  ASSERT_TRUE(decoded);
  EXPECT_TRUE(decoded->hasSamePixels(opaque));
  EXPECT_EQ(imageSize(png), (ImageSize{64, 40}));

  // Premultiplied in memory, straight in the file: a half-transparent white survives as such.
  const Image translucent = imageOf(2, 1, [](int x, int) {
    return x == 0 ? Pixel{128, 128, 128, 128} : Pixel{0, 0, 0, 0};
  });
  const auto back = decodeImage(encodePNG(translucent));
  ASSERT_TRUE(back);
  EXPECT_TRUE(back->hasSamePixels(translucent));
}

TEST(ImageCodec, PNGFilesFromAnotherEncoderDecode) {
  testing::TempDirectory directory;
  const auto file = directory / "frame.png";
  const auto made =
      testing::runCommand("convert -size 7x5 xc:'#336699' " + testing::shellQuote(file.string()));
  ASSERT_EQ(made.exitCode, 0);
  const auto decoded = decodeImage(readFileBytes(file));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->width(), 7);
  EXPECT_EQ(decoded->height(), 5);
  const Pixel p = testing::pixelAt(*decoded, 6, 4);
  EXPECT_EQ((std::array<int, 4>{p.r, p.g, p.b, p.a}), (std::array<int, 4>{0x33, 0x66, 0x99, 255}));
}

TEST(ImageCodec, JPEGRoundTripsCloselyAndReportsItsSize) {
  const Image frame = testPatternFrame(5, 10, 320, 200);
  const auto jpeg = encodeJPEG(frame, 85);
  EXPECT_EQ(imageSize(jpeg), (ImageSize{320, 200}));
  const auto decoded = decodeImage(jpeg);
  ASSERT_TRUE(decoded);
  EXPECT_GT(testing::psnr(*decoded, frame), 30.0);
  EXPECT_EQ(testing::pixelAt(*decoded, 0, 0).a, 255);
  // The same image compresses to the same bytes, so a static screen repeats exactly.
  EXPECT_EQ(encodeJPEG(frame, 85), jpeg);
}

TEST(ImageCodec, DamagedOrUnknownDataDecodesToNothing) {
  const auto jpeg = encodeJPEG(testPatternFrame(0, 1, 64, 64), 85);
  const std::vector<std::uint8_t> truncated(jpeg.begin(), jpeg.begin() + 20);
  EXPECT_FALSE(decodeImage(truncated).has_value());
  const auto png = encodePNG(testPatternFrame(0, 1, 16, 16));
  std::vector<std::uint8_t> broken = png;
  broken.resize(broken.size() / 2);
  EXPECT_FALSE(decodeImage(broken).has_value());
  const std::vector<std::uint8_t> text = {'h', 'e', 'l', 'l', 'o'};
  EXPECT_FALSE(decodeImage(text).has_value());
  EXPECT_FALSE(imageSize(text).has_value());
  EXPECT_FALSE(decodeImage({}).has_value());
}

TEST(ImageCodec, UnreadableFilesNameThemselves) {
  EXPECT_EQ(testing::errorText<ImageCodecError>([] { readFileBytes("/nonexistent/frame.png"); }),
            "cannot read /nonexistent/frame.png: No such file or directory");
}

}  // namespace
}  // namespace brimble
