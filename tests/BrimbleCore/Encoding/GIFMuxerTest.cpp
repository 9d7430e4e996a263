#include "BrimbleCore/Encoding/GIFMuxer.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/TestPattern.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/Images.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::decodeGIF;
using testing::TempDirectory;

Bytes muxToMemory(const std::vector<Image>& frames, const std::vector<double>& delays,
                  int loopCount, bool frameDiffing) {
  auto sink = std::make_unique<MemoryByteSink>();
  MemoryByteSink* memory = sink.get();
  GIFMuxer muxer(std::move(sink), loopCount, frameDiffing);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    muxer.append(frames[i], delays[i % delays.size()]);
  }
  muxer.finish();
  return memory->data;
}

/// Frames of at most 256 colours: a 16-colour backdrop with a square moving over it.
std::vector<Image> movingSquareFrames(int count, int width, int height) {
  std::vector<RGBColor> palette;
  for (int i = 0; i < 16; ++i) {
    palette.push_back({static_cast<std::uint8_t>(i * 16), static_cast<std::uint8_t>(255 - i * 9),
                       static_cast<std::uint8_t>(i * 5)});
  }
  palette.push_back({255, 255, 255});
  std::vector<Image> frames;
  for (int f = 0; f < count; ++f) {
    PixelBuffer indices;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const bool square = x >= f * 3 && x < f * 3 + 8 && y >= 4 && y < 12;
        indices.push_back(square ? 16 : static_cast<std::uint8_t>((x / 4 + y / 4) % 16));
      }
    }
    frames.push_back(Image::indexed8(width, height, indices, palette).toBGRA8());
  }
  return frames;
}

TEST(GIFMuxer, ASingleFrameFileIsHeaderLoopControlDescriptorTablesAndTrailer) {
  const Image image = Image::indexed8(2, 2, {0, 1, 2, 0}, {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}});
  const Bytes file = muxToMemory({image}, {0.1}, 0, false);

  const Bytes table = {255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0};  // padded to 4 entries
  Bytes expected = {'G', 'I', 'F', '8', '9', 'a', 2, 0, 2, 0, 0xF1, 0, 0};
  expected.insert(expected.end(), table.begin(), table.end());
  const Bytes loop = {0x21, 0xFF, 0x0B, 'N', 'E',  'T',  'S',  'C',  'A', 'P',
                      'E',  '2',  '.',  '0', 0x03, 0x01, 0x00, 0x00, 0x00};
  const Bytes control = {0x21, 0xF9, 0x04, 0x04, 10, 0, 0, 0x00};
  const Bytes descriptor = {0x2C, 0, 0, 0, 0, 2, 0, 2, 0, 0x81};
  for (const Bytes* part : {&loop, &control, &descriptor, &table}) {
    expected.insert(expected.end(), part->begin(), part->end());
  }
  ASSERT_GT(file.size(), expected.size() + 3);
  EXPECT_EQ(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(expected.size())),
            expected);
  EXPECT_EQ(file[expected.size()], 2) << "LZW minimum code size";
  EXPECT_EQ(file[file.size() - 2], 0x00) << "closing empty sub-block";
  EXPECT_EQ(file.back(), 0x3B) << "trailer";

  const auto decoded = decodeGIF(file);
  ASSERT_TRUE(decoded);
  ASSERT_EQ(decoded->frames.size(), 1u);
  EXPECT_TRUE(decoded->frames[0].hasSamePixels(image));
  EXPECT_EQ(decoded->plays, 0);
}

TEST(GIFMuxer, FramesOfFewColoursDecodeExactlyWithAndWithoutDiffing) {
  const auto frames = movingSquareFrames(8, 48, 20);
  const std::vector<double> delays = {0.1, 0.05, 1.0, 0.033};
  for (const bool diffing : {false, true}) {
    const auto decoded = decodeGIF(muxToMemory(frames, delays, 3, diffing));
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->frames.size(), frames.size());
    EXPECT_EQ(decoded->width, 48);
    EXPECT_EQ(decoded->height, 20);
    for (std::size_t i = 0; i < frames.size(); ++i) {
      EXPECT_TRUE(decoded->frames[i].hasSamePixels(frames[i]))
          << "frame " << i << " diffing " << diffing;
    }
    EXPECT_EQ(decoded->delaysCentiseconds, (std::vector<int>{10, 5, 100, 3, 10, 5, 100, 3}));
    EXPECT_EQ(decoded->plays, 3);
  }
}

TEST(GIFMuxer, FullColourFramesStayFaithfulAndDiffingShrinksTheFile) {
  std::vector<Image> frames;
  for (int i = 0; i < 12; ++i) {
    frames.push_back(testPatternFrame(i, 12, 320, 200));
  }
  const Bytes plain = muxToMemory(frames, {1.0 / 30}, 0, false);
  const Bytes diffed = muxToMemory(frames, {1.0 / 30}, 0, true);
  EXPECT_LT(diffed.size() * 2, plain.size())
      << "diffing should at least halve a mostly static clip";
  for (const Bytes* file : {&plain, &diffed}) {
    const auto decoded = decodeGIF(*file);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->frames.size(), frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
      EXPECT_GT(testing::psnr(decoded->frames[i], frames[i]), 36.0) << "frame " << i;
    }
  }
  // An unchanged frame with diffing costs one transparent pixel.
  const Bytes again = muxToMemory({frames[0], frames[0]}, {0.1}, 0, true);
  EXPECT_LT(again.size() - muxToMemory({frames[0]}, {0.1}, 0, true).size(), 40u);
}

TEST(GIFMuxer, TransparentSourcePixelsAreMarkedInTheControlExtension) {
  const Image image = Image::bgra8(2, 1, {10, 20, 30, 255, 0, 0, 0, 0});
  const Bytes file = muxToMemory({image}, {0.2}, 1, false);
  // Loop count 1 writes no loop block, so the control extension follows the global table.
  const std::size_t tableLength = std::size_t{3} << ((file[10] & 7) + 1);
  const std::size_t gce = 13 + tableLength;
  ASSERT_GT(file.size(), gce + 8);
  EXPECT_EQ(file[gce], 0x21);
  EXPECT_EQ(file[gce + 1], 0xF9);
  EXPECT_EQ(file[gce + 3], 0x05) << "do not dispose, transparent";
  EXPECT_EQ(file[gce + 4], 20);
  const std::uint8_t transparentIndex = file[gce + 6];
  EXPECT_EQ(file[13 + 3 * transparentIndex], 0);
  const auto decoded = decodeGIF(file);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->delaysCentiseconds, std::vector<int>{20});
}

TEST(GIFMuxer, MisuseIsRefusedAndWritesNothing) {
  auto sink = std::make_unique<MemoryByteSink>();
  MemoryByteSink* memory = sink.get();
  GIFMuxer muxer(std::move(sink), 0, true);
  EXPECT_THROW(muxer.finish(), MuxError) << "no frames";
  EXPECT_TRUE(memory->data.empty());
  muxer.append(testPatternFrame(0, 2, 40, 30), 0.1);
  const std::size_t written = memory->offset();
  for (const auto& [width, height] : {std::pair{39, 30}, std::pair{40, 31}}) {
    EXPECT_EQ(testing::errorText<MuxError>(
                  [&] { muxer.append(testPatternFrame(1, 2, width, height), 0.1); }),
              MuxError::inconsistentCanvas().what());
  }
  EXPECT_EQ(memory->offset(), written);
}

TEST(GIFMuxer, ImageMagickAgreesOnDelaysAndLoops) {
  TempDirectory directory;
  const auto path = directory / "clip.gif";
  auto sink = std::make_unique<FileByteSink>(path);
  GIFMuxer muxer(std::move(sink), 3, true);
  const std::vector<double> delays = {0.04, 0.1, 0.5, 0.04, 0.04, 2.0};
  for (std::size_t i = 0; i < delays.size(); ++i) {
    muxer.append(testPatternFrame(static_cast<int>(i), 6, 160, 100), delays[i]);
  }
  muxer.finish();

  const auto identify =
      testing::runCommand("identify -format '%T ' " + testing::shellQuote(path.string()) + " 2>&1");
  EXPECT_EQ(identify.output, "4 10 50 4 4 200 ");
  const auto verbose = testing::runCommand(
      "identify -verbose " + testing::shellQuote(path.string()) + " | grep -m1 Iterations");
  EXPECT_EQ(verbose.output, "  Iterations: 3\n");
}

}  // namespace
}  // namespace brimble
