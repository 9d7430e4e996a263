#include "BrimbleCore/Encoding/GIFDecoder.h"

#include <vector>

#include <gif_lib.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Images.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::Pixel;
using testing::pixelAt;

/// One image block of a GIF written with giflib's own encoder.
struct Block {
  int left, top, width, height;
  std::vector<GifPixelType> indices;  // rows in file order
  int disposal = DISPOSE_DO_NOT;
  int transparent = NO_TRANSPARENT_COLOR;
  int delayCentiseconds = 10;
  bool interlaced = false;
};

/// A 4-colour GIF (black, red, green, blue) of `blocks`, without a loop block.
std::vector<std::uint8_t> craftGIF(int width, int height, const std::vector<Block>& blocks) {
  std::vector<std::uint8_t> bytes;
  int error = 0;
  GifFileType* gif = EGifOpen(
      &bytes,
      [](GifFileType* file, const GifByteType* data, int length) {
        auto* out = static_cast<std::vector<std::uint8_t>*>(file->UserData);
        out->insert(out->end(), data, data + length);
        return length;
      },
      &error);
  EXPECT_NE(gif, nullptr);
  const GifColorType colors[4] = {{0, 0, 0}, {255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
  ColorMapObject* map = GifMakeMapObject(4, colors);
  EGifSetGifVersion(gif, true);
  EXPECT_EQ(EGifPutScreenDesc(gif, width, height, 8, 0, map), GIF_OK);
  for (const Block& block : blocks) {
    GraphicsControlBlock control{block.disposal, false, block.delayCentiseconds, block.transparent};
    GifByteType extension[4];
    EGifGCBToExtension(&control, extension);
    EXPECT_EQ(EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, extension), GIF_OK);
    EXPECT_EQ(EGifPutImageDesc(gif, block.left, block.top, block.width, block.height,
                               block.interlaced, nullptr),
              GIF_OK);
    for (int y = 0; y < block.height; ++y) {
      EXPECT_EQ(EGifPutLine(gif,
                            const_cast<GifPixelType*>(
                                &block.indices[static_cast<std::size_t>(y) * block.width]),
                            block.width),
                GIF_OK);
    }
  }
  EGifCloseFile(gif, &error);
  GifFreeMapObject(map);
  return bytes;
}

std::array<int, 4> rgba(const Image& image, int x, int y) {
  const Pixel p = pixelAt(image, x, y);
  return {p.r, p.g, p.b, p.a};
}

constexpr std::array<int, 4> kClear = {0, 0, 0, 0};
constexpr std::array<int, 4> kRed = {255, 0, 0, 255};
constexpr std::array<int, 4> kGreen = {0, 255, 0, 255};
constexpr std::array<int, 4> kBlue = {0, 0, 255, 255};

TEST(GIFDecoder, DisposalMethodsAreAppliedBetweenFrames) {
  const auto bytes = craftGIF(
      4, 1,
      {
          {0, 0, 4, 1, {1, 1, 1, 1}, DISPOSE_BACKGROUND},                 // red, then cleared
          {1, 0, 1, 1, {2}, DISPOSE_PREVIOUS, NO_TRANSPARENT_COLOR, 25},  // green, then undone
          {2, 0, 2, 1, {3, 0}, DISPOSE_DO_NOT, 0},  // blue and a transparent pixel
          {2, 0, 2, 1, {0, 1}, DISPOSE_DO_NOT, 0},  // the blue shows through, then red
      });
  GIFDecoder decoder(bytes, "crafted.gif");
  EXPECT_EQ(decoder.size(), (ImageSize{4, 1}));
  EXPECT_EQ(decoder.frameCount(), 4);
  const auto frames = decoder.readAll();
  ASSERT_EQ(frames.size(), 4u);
  EXPECT_EQ(rgba(frames[0].image, 3, 0), kRed);
  EXPECT_EQ(rgba(frames[1].image, 0, 0), kClear);
  EXPECT_EQ(rgba(frames[1].image, 1, 0), kGreen);
  EXPECT_DOUBLE_EQ(frames[1].delay, 0.25);
  EXPECT_EQ(rgba(frames[2].image, 1, 0), kClear);
  EXPECT_EQ(rgba(frames[2].image, 2, 0), kBlue);
  EXPECT_EQ(rgba(frames[2].image, 3, 0), kClear);
  EXPECT_EQ(rgba(frames[3].image, 2, 0), kBlue);
  EXPECT_EQ(rgba(frames[3].image, 3, 0), kRed);
  EXPECT_EQ(decoder.loopCount(), 1);
}

TEST(GIFDecoder, TheLoopAndTheFrameCountAreKnownBeforeAnyFrameIsDecoded) {
  // A writer needs the loop count before the first frame goes in, and a progress bar the count.
  std::vector<ProcessedFrame> frames;
  for (const testing::Pixel colour :
       {testing::Pixel{200, 0, 0}, testing::Pixel{0, 200, 0}, testing::Pixel{0, 0, 200}}) {
    frames.push_back({testing::solidImage(6, 4, colour), 0.1, std::nullopt});
  }
  testing::TempDirectory directory;
  const auto file = directory / "three.gif";
  ClipEncoder::encode(frames, file, {.loopCount = 3});
  GIFDecoder decoder(file);
  EXPECT_EQ(decoder.loopCount(), 3);
  EXPECT_EQ(decoder.frameCount(), 3);
  EXPECT_EQ(decoder.position().read, 0);
  ASSERT_TRUE(decoder.next());
  EXPECT_EQ(decoder.position().read, 1);
  EXPECT_EQ(decoder.position().total, 3);
  EXPECT_EQ(decoder.readAll().size(), 2u);
  EXPECT_EQ(decoder.loopCount(), 3);
}

TEST(GIFDecoder, InterlacedRowsLandInTheirPlaces) {
  // Eight rows, each the colour of its row number mod 4, stored in interlaced order.
  const std::vector<int> fileOrder = {0, 4, 2, 6, 1, 3, 5, 7};
  std::vector<GifPixelType> indices;
  for (const int row : fileOrder) {
    indices.insert(indices.end(), 2, static_cast<GifPixelType>(row % 4));
  }
  Block block{0, 0, 2, 8, indices};
  block.interlaced = true;
  GIFDecoder decoder(craftGIF(2, 8, {block}), "interlaced.gif");
  const auto frame = decoder.next();
  ASSERT_TRUE(frame);
  EXPECT_EQ(rgba(frame->image, 1, 1), kRed);
  EXPECT_EQ(rgba(frame->image, 0, 6), kGreen);
  EXPECT_EQ(rgba(frame->image, 0, 7), kBlue);
  EXPECT_FALSE(decoder.next().has_value());
}

TEST(GIFDecoder, TheCanvasIsBoundedAndDamageIsAnErrorNamingTheFile) {
  // A header claiming a 65535x65535 screen (17 GB of canvas) over one red pixel.
  GIFDecoder claims(craftGIF(65535, 65535, {{0, 0, 1, 1, {1}}}), "claims.gif");
  EXPECT_EQ(claims.size(), (ImageSize{1, 1}));
  const auto frames = claims.readAll();
  ASSERT_EQ(frames.size(), 1u);
  EXPECT_EQ(rgba(frames[0].image, 0, 0), kRed);

  struct Case {
    std::vector<std::uint8_t> bytes;
    std::string error;
  };
  auto cut = craftGIF(4, 1, {{0, 0, 4, 1, {1, 2, 3, 1}}});
  cut.resize(cut.size() - 6);
  // An image descriptor claiming 65535x65535 pixels over the data of one.
  auto tall = craftGIF(4, 4, {{0, 0, 1, 1, {1}}});
  const std::size_t descriptor = 13 + 12 + 8;  // header, 4-colour table, control extension
  ASSERT_EQ(tall[descriptor], 0x2C);
  std::fill_n(tall.begin() + static_cast<std::ptrdiff_t>(descriptor + 5), 4, 0xFF);
  const std::vector<Case> cases = {
      {{'G', 'I', 'F', '8', '9', 'a', ' ', 'n', 'o', 't'},
       "cannot read far.gif: No screen descriptor detected"},
      {cut, "cannot read far.gif: Failed to read from given file"},
      {craftGIF(65535, 65535, {{8000, 5000, 1, 1, {1}}}),
       "cannot read far.gif: its images cover 8001x5001 pixels, more than the 33554432 a GIF may "
       "cover here"},
      {tall, "cannot read far.gif: Image EOF detected before image complete"},
      // Found by GIFDecoderFuzzer: an image descriptor cut short, for which giflib has no text.
      {{'G',  'I',  'F', '8', '9', 'a', 6, 0, 6,    0, 0xF0, 0, 0, 0, 0x80, 0, 0, 0,   0,
        0x21, 0xF9, 4,   1,   0,   0,   1, 0, 0x2C, 0, 0,    0, 0, 6, 0,    5, 0, 0x3B},
       "cannot read far.gif: damaged GIF (giflib error 0)"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(
        testing::errorText<ImageCodecError>([&] { GIFDecoder(c.bytes, "far.gif").readAll(); }),
        c.error);
  }

  // Found by GIFDecoderFuzzer: an image wholly right of a 6x6 canvas, disposed to the background,
  // covers nothing (clearing it once wrote a negative number of bytes).
  const std::vector<std::uint8_t> beyond = {
      'G', 'I', 'F', '8',  '9',  '/', 6,  0,    6,    0, 0xF0, 0,    0, 0, 0x80, 0,
      0,   0,   0,   0x21, 0xF9, 4,   10, 2,    0,    1, 0,    0x2C, 0, 8, 0,    0,
      6,   0,   6,   0,    0x3D, 2,   6,  0x8C, 0x8F, 8, 0xC9, 0x7D, 5, 0, 0x3B};
  GIFDecoder decoder(beyond, "beyond.gif");
  EXPECT_EQ(decoder.size(), (ImageSize{6, 6}));
  const auto nothing = decoder.readAll();
  ASSERT_EQ(nothing.size(), 1u);
  EXPECT_EQ(rgba(nothing[0].image, 5, 5)[3], 0);
}

}  // namespace
}  // namespace brimble
