// GIFMuxer::append on 800x500 screen frames. Each iteration also times the platform step alone
// (palette choice and giflib's encode of the same image the muxer encodes), so the "overhead"
// counter is the writer's own share: diffing, parsing the single-image file and writing.

#include "BrimbleCore/Encoding/GIFMuxer.h"

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include <benchmark/benchmark.h>

#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/IndexedFrame.h"
#include "BrimbleCore/Encoding/TestPattern.h"

namespace brimble {
namespace {

constexpr int kWidth = 800;
constexpr int kHeight = 500;
constexpr int kFrames = 30;

/// The test pattern reduced to at most 256 colours, still as bgra8 like a capture.
Image fewColours(const Image& image) {
  const IndexedFrame frame = indexFrame(image);
  return Image::indexed8(frame.width, frame.height,
                         PixelBuffer(frame.indices.begin(), frame.indices.end()), frame.palette)
      .toBGRA8();
}

const std::vector<Image>& frames(bool fullColour) {
  static const auto make = [](bool full) {
    std::vector<Image> result;
    for (int i = 0; i < kFrames; ++i) {
      const Image frame = testPatternFrame(i, kFrames, kWidth, kHeight);
      result.push_back(full ? frame : fewColours(frame));
    }
    return result;
  };
  static const std::vector<Image> full = make(true);
  static const std::vector<Image> few = make(false);
  return fullColour ? full : few;
}

void BM_GIFMuxerAppend(benchmark::State& state) {
  const bool fullColour = state.range(0) != 0;
  const bool diffing = state.range(1) != 0;
  const auto& images = frames(fullColour);
  using Clock = std::chrono::steady_clock;
  double appendSeconds = 0;
  double platformSeconds = 0;
  std::int64_t appended = 0;
  std::unique_ptr<GIFMuxer> muxer;
  int index = 0;
  for (auto _ : state) {
    if (index % kFrames == 0) {
      muxer = std::make_unique<GIFMuxer>(std::make_unique<MemoryByteSink>(), 0, diffing);
    }
    const Image& image = images[static_cast<std::size_t>(index % kFrames)];
    state.PauseTiming();
    std::optional<Image> encoded;
    if (diffing && index % kFrames != 0) {
      encoded = FrameComparison::createDiffFrame(
          image, images[static_cast<std::size_t>(index % kFrames - 1)], 0);
    }
    const auto platformStart = Clock::now();
    benchmark::DoNotOptimize(GIFMuxer::encodeStandalone(encoded ? *encoded : image));
    platformSeconds += std::chrono::duration<double>(Clock::now() - platformStart).count();
    state.ResumeTiming();

    const auto appendStart = Clock::now();
    muxer->append(image, 1.0 / 30);
    appendSeconds += std::chrono::duration<double>(Clock::now() - appendStart).count();
    ++appended;
    ++index;
  }
  state.counters["append_ms"] = 1000 * appendSeconds / static_cast<double>(appended);
  state.counters["platform_ms"] = 1000 * platformSeconds / static_cast<double>(appended);
  state.counters["overhead_pct"] = 100 * (appendSeconds - platformSeconds) / appendSeconds;
}
BENCHMARK(BM_GIFMuxerAppend)
    ->ArgNames({"fullColour", "diffing"})
    ->Args({0, 0})
    ->Args({0, 1})
    ->Args({1, 0})
    ->Args({1, 1})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3 * kFrames);

}  // namespace
}  // namespace brimble
