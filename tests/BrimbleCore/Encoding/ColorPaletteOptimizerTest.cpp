#include "BrimbleCore/Encoding/ColorPaletteOptimizer.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/TestPattern.h"
#include "tests/Support/Images.h"

namespace brimble {
namespace {

using testing::imageOf;
using testing::Pixel;

/// 25x20 = 500 pixels, so 500 samples read every pixel. Pixel i has a distinct colour; the
/// first `extra` pixels get colours of their own that stay within 30 of the original (no scene
/// change).
Image distinctColours(int extra) {
  return imageOf(25, 20, [extra](int x, int y) {
    const int i = y * 25 + x;
    const auto base =
        Pixel{static_cast<std::uint8_t>(i % 250), static_cast<std::uint8_t>(i / 250 * 20), 0};
    return i < extra ? Pixel{base.r, base.g, 10} : base;
  });
}

std::vector<ProcessedFrame> framesOf(const std::vector<Image>& images) {
  std::vector<ProcessedFrame> frames;
  for (const Image& image : images) {
    frames.push_back({image, 0.1, std::nullopt});
  }
  return frames;
}

struct ProgressLog {
  std::mutex mutex;
  std::vector<std::pair<int, int>> calls;
  PaletteProgress callback() {
    return [this](int done, int total) {
      std::scoped_lock lock(mutex);
      calls.emplace_back(done, total);
    };
  }
};

TEST(ColorPaletteOptimizer, GlobalGivesEveryFrameOnePaletteAndPerFrameNone) {
  std::vector<Image> images;
  for (int i = 0; i < 12; ++i) {
    images.push_back(testPatternFrame(i, 12, 120, 80));
  }
  const auto frames = framesOf(images);
  ProgressLog log;
  const auto result =
      ColorPaletteOptimizer::optimize(frames, PaletteStrategy::global, log.callback());
  EXPECT_TRUE(result.usedGlobal);
  for (std::size_t i = 0; i < images.size(); ++i) {
    ASSERT_EQ(result.frames[i].image.format(), PixelFormat::indexed8);
    EXPECT_TRUE(
        std::ranges::equal(result.frames[i].image.palette(), result.frames[0].image.palette()));
    EXPECT_GT(testing::psnr(result.frames[i].image, images[i]), 30) << "frame " << i;
    EXPECT_EQ(result.frames[i].delay, 0.1);
  }
  EXPECT_EQ(log.calls.back(), (std::pair{12, 12}));

  ProgressLog none;
  const auto alone =
      ColorPaletteOptimizer::optimize(frames, PaletteStrategy::perFrame, none.callback());
  EXPECT_FALSE(alone.usedGlobal);
  EXPECT_EQ(alone.frames[1].image.bytes().data(), frames[1].image.bytes().data());
  EXPECT_TRUE(none.calls.empty());
}

TEST(ColorPaletteOptimizer, AutoSharesAPaletteUpTo512SampledColours) {
  // 500 colours in the first frame, 12 (or 13) more in the second: 512 shares, 513 does not.
  const auto shared = ColorPaletteOptimizer::optimize(
      framesOf({distinctColours(0), distinctColours(12)}), PaletteStrategy::automatic);
  EXPECT_TRUE(shared.usedGlobal);
  EXPECT_EQ(shared.frames[0].image.format(), PixelFormat::indexed8);

  const auto frames = framesOf({distinctColours(0), distinctColours(13)});
  const auto separate = ColorPaletteOptimizer::optimize(frames, PaletteStrategy::automatic);
  EXPECT_FALSE(separate.usedGlobal);
  EXPECT_EQ(separate.frames[0].image.bytes().data(), frames[0].image.bytes().data());
  EXPECT_EQ(separate.frames[1].image.format(), PixelFormat::bgra8);
}

TEST(ColorPaletteOptimizer, AutoDecidesEachSceneOnItsOwn) {
  // A flat scene, then a resized many-coloured one: the first shares a palette, the second not.
  const Image flat = imageOf(25, 20, [](int x, int) {
    return Pixel{static_cast<std::uint8_t>(x), 0, 0};
  });
  const Image busy = imageOf(30, 20, [](int x, int y) {
    return Pixel{static_cast<std::uint8_t>(x * 8), static_cast<std::uint8_t>(y * 12),
                 static_cast<std::uint8_t>(x + y)};
  });
  const auto frames = framesOf({flat, flat, busy, busy});
  EXPECT_EQ(ColorPaletteOptimizer::sceneStarts(frames), (std::vector<std::size_t>{0, 2}));
  ProgressLog log;
  const auto result =
      ColorPaletteOptimizer::optimize(frames, PaletteStrategy::automatic, log.callback());
  EXPECT_FALSE(result.usedGlobal);
  EXPECT_EQ(result.frames[0].image.format(), PixelFormat::indexed8);
  EXPECT_EQ(result.frames[1].image.format(), PixelFormat::indexed8);
  EXPECT_EQ(result.frames[2].image.format(), PixelFormat::bgra8);
  EXPECT_EQ(log.calls.back(), (std::pair{4, 4}));
  // Fewer than two frames are left alone.
  EXPECT_EQ(ColorPaletteOptimizer::optimize(framesOf({flat}), PaletteStrategy::automatic)
                .frames[0]
                .image.format(),
            PixelFormat::bgra8);
}

TEST(ColorPaletteOptimizer, SceneChangesNeedMoreThanFiftyClearlyChangedSamples) {
  // 100x100: samples every 50th pixel, 200 of them. Rows of 100 pixels hold 2 samples each.
  const auto withChangedRows = [](int rows, int by) {
    return imageOf(100, 100, [rows, by](int, int y) {
      return y < rows ? Pixel{static_cast<std::uint8_t>(100 + by), 100, 100} : Pixel{100, 100, 100};
    });
  };
  const Image base = withChangedRows(0, 0);
  EXPECT_FALSE(ColorPaletteOptimizer::isSceneChange(base, withChangedRows(25, 31)));  // 50 samples
  EXPECT_TRUE(ColorPaletteOptimizer::isSceneChange(base, withChangedRows(26, 31)));   // 52 samples
  EXPECT_FALSE(
      ColorPaletteOptimizer::isSceneChange(base, withChangedRows(100, 30)));  // not beyond 30
  EXPECT_TRUE(ColorPaletteOptimizer::isSceneChange(
      base, imageOf(100, 99, [](int, int) { return Pixel{}; })));
  EXPECT_TRUE(ColorPaletteOptimizer::isSceneChange(Image::indexed8(1, 1, {0}, {{1, 2, 3}}),
                                                   Image::indexed8(1, 1, {0}, {{1, 2, 3}})));
  // Under 200 pixels every pixel is a sample and a quarter of them must change.
  const auto tiny = [](int changed) {
    return imageOf(10, 10, [changed](int x, int y) {
      return y * 10 + x < changed ? Pixel{200, 0, 0} : Pixel{};
    });
  };
  EXPECT_FALSE(ColorPaletteOptimizer::isSceneChange(tiny(0), tiny(25)));
  EXPECT_TRUE(ColorPaletteOptimizer::isSceneChange(tiny(0), tiny(26)));
}

TEST(PaletteProgressReporter, ReportsEachPercentOnceAndInOrder) {
  std::vector<std::pair<int, int>> calls;
  PaletteProgressReporter reporter(1000,
                                   [&](int done, int total) { calls.emplace_back(done, total); });
  for (int i = 0; i < 1000; ++i) {
    reporter.advance(1);
  }
  ASSERT_EQ(calls.size(), 101u);  // 0 % through 100 %
  EXPECT_EQ(calls.front(), (std::pair{1, 1000}));
  EXPECT_EQ(calls[50], (std::pair{500, 1000}));
  EXPECT_EQ(calls.back(), (std::pair{1000, 1000}));

  std::vector<std::pair<int, int>> empty;
  PaletteProgressReporter none(0, [&](int done, int total) { empty.emplace_back(done, total); });
  none.advance(3);
  none.advance(2);
  EXPECT_EQ(empty, (std::vector<std::pair<int, int>>{{3, 0}}));  // always 100 %
}

TEST(PaletteProgressReporter, ReportsWithoutHoldingItsLockSoOtherWorkersGoOnMeanwhile) {
  std::vector<int> reported;
  std::optional<PaletteProgressReporter> reporter;
  reporter.emplace(100, [&](int done, int) {
    reported.push_back(done);
    if (done == 1) {
      // Another worker finishes the other frames while this report is made; were the lock held
      // here, it could never count them and the join would wait for ever.
      std::thread other([&] {
        for (int i = 0; i < 99; ++i) {
          reporter->advance(1);
        }
      });
      other.join();
    }
  });
  reporter->advance(1);
  // The steps the other worker reached meanwhile arrive as one report, after the first.
  EXPECT_EQ(reported, (std::vector<int>{1, 100}));
}

}  // namespace
}  // namespace brimble
