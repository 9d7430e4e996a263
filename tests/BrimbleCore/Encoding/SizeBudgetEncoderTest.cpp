#include "BrimbleCore/Encoding/SizeBudgetEncoder.h"

#include <cstdint>
#include <filesystem>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Support/GifReader.h"
#include "tests/Support/Images.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;

/// A gradient that drifts from frame to frame under grain: photographic enough that its colours
/// cost a GIF dearly.
Image grainyFrame(int index, int width, int height) {
  std::uint32_t seed = 2654435761u * static_cast<std::uint32_t>(index + 1);
  return testing::imageOf(width, height, [&](int x, int y) {
    seed = seed * 1664525u + 1013904223u;
    const int grain = static_cast<int>(seed >> 27) - 16;
    auto channel = [grain](int value) {
      return static_cast<std::uint8_t>(std::clamp(value + grain, 0, 255));
    };
    return testing::Pixel{channel((x + index * 7) % 256), channel((y * 2) % 256),
                          channel((x + y + index * 3) % 256)};
  });
}

TEST(SizeBudgetEncoder, AClipTooLargeAtFirstFitsAfterFurtherPasses) {
  testing::TempDirectory folder;
  const fs::path output = folder / "clip.gif";
  const int count = 8;
  const FrameSupplier frames = [](int index) -> std::optional<Image> {
    return grainyFrame(index, 480, 300);
  };
  SequenceOptions options;
  options.fps = 12;
  const std::uint64_t budget = 500 * 1024;

  const auto unbounded = SizeBudgetEncoder::encode(count, frames, output, options, 0);
  ASSERT_GT(unbounded.fileSize, budget) << "the test clip must start over budget";
  EXPECT_EQ(unbounded.passes, 1);

  std::vector<int> passes;
  const auto result = SizeBudgetEncoder::encode(count, frames, output, options, budget,
                                                [&](int pass) { passes.push_back(pass); });
  EXPECT_TRUE(result.fits);
  EXPECT_GT(result.passes, 1);
  EXPECT_LE(result.fileSize, budget);
  EXPECT_EQ(fs::file_size(output), result.fileSize);
  std::vector<int> expected;
  for (int pass = 1; pass <= result.passes; ++pass) {
    expected.push_back(pass);
  }
  EXPECT_EQ(passes, expected);

  // What giflib reads back is the reduction of the pass that fitted.
  const SizeReduction reduction = SizeBudgetEncoder::reductionForPass(result.passes);
  const auto gif = testing::decodeGIFFile(output);
  ASSERT_TRUE(gif);
  EXPECT_NEAR(gif->width, 480 * reduction.widthScale, 1);
  EXPECT_EQ(static_cast<int>(gif->frames.size()),
            (count + reduction.frameStep - 1) / reduction.frameStep);
  // The clip still lasts its two thirds of a second however many frames were dropped.
  int centiseconds = 0;
  for (int delay : gif->delaysCentiseconds) {
    centiseconds += delay;
  }
  EXPECT_NEAR(centiseconds, 67, 5);
}

TEST(SizeBudgetEncoder, AnImpossibleBudgetKeepsTheLastPassAndLogsIt) {
  testing::TempDirectory folder;
  testing::LogCapture log;
  const FrameSupplier frames = [](int index) -> std::optional<Image> {
    return grainyFrame(index, 120, 80);
  };
  SequenceOptions options;
  const auto result = SizeBudgetEncoder::encode(6, frames, folder / "clip.gif", options, 100);
  EXPECT_FALSE(result.fits);
  EXPECT_EQ(result.passes, SizeBudgetEncoder::kMaxPasses);
  EXPECT_TRUE(fs::exists(folder / "clip.gif"));
  EXPECT_THAT(log.lines(),
              Contains(fmt::format("BrimbleCore: file size {} KB exceeds budget 0 KB after 6 "
                                   "passes",
                                   result.fileSize / 1024)));
}

TEST(SizeBudgetEncoder, FewerColoursKeepsEachChannelOnItsLevels) {
  const Image image = testing::imageOf(256, 1, [](int x, int) {
    const auto v = static_cast<std::uint8_t>(x);
    return testing::Pixel{v, static_cast<std::uint8_t>(255 - x), v, 255};
  });
  const Image reduced = SizeBudgetEncoder::reduceColours(image, 4);
  const auto bytes = reduced.bytes();
  for (int x = 0; x < 256; ++x) {
    for (int c = 0; c < 3; ++c) {
      const int in = image.bytes()[static_cast<std::size_t>(x * 4 + c)];
      const int out = bytes[static_cast<std::size_t>(x * 4 + c)];
      // Four bits: 16 levels, 0, 17, 34, ... 255, each value on its nearest.
      EXPECT_EQ(out % 17, 0) << "x=" << x;
      EXPECT_LE(std::abs(out - in), 8) << "x=" << x;
    }
    EXPECT_EQ(bytes[static_cast<std::size_t>(x * 4 + 3)], 255);
  }
  EXPECT_TRUE(SizeBudgetEncoder::reduceColours(image, 8).hasSamePixels(image));
}

}  // namespace
}  // namespace brimble
