// The per-frame pixel work of an encode, each step alone on a real screen frame size: scaling
// 1280x720 to 800 wide, mapping to a shared palette, indexing for a GIF, PNG decoding.

#include <vector>

#include <benchmark/benchmark.h>

#include "BrimbleCore/Encoding/HistogramQuantizer.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"
#include "BrimbleCore/Encoding/IndexedFrame.h"
#include "BrimbleCore/Encoding/MedianCutQuantizer.h"
#include "BrimbleCore/Encoding/TestPattern.h"

namespace brimble {
namespace {

const Image& wideFrame() {
  static const Image frame = testPatternFrame(20, 60, 1280, 720);
  return frame;
}

void BM_ScaleTo800(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(ImageScaler::scaleToMaxWidth(wideFrame(), 800));
  }
}
BENCHMARK(BM_ScaleTo800)->Unit(benchmark::kMillisecond);

void BM_QuantizeToSharedPalette(benchmark::State& state) {
  const Image frame = ImageScaler::scaleToMaxWidth(wideFrame(), 800);
  const std::vector<Image> samples = {frame};
  const auto palette = HistogramQuantizer::paletteFor(samples, 255);
  for (auto _ : state) {
    benchmark::DoNotOptimize(MedianCutQuantizer::quantize(frame, palette.colors));
  }
}
BENCHMARK(BM_QuantizeToSharedPalette)->Unit(benchmark::kMillisecond);

void BM_IndexFullColourFrame(benchmark::State& state) {
  const Image frame = ImageScaler::scaleToMaxWidth(wideFrame(), 800);
  for (auto _ : state) {
    benchmark::DoNotOptimize(indexFrame(frame));
  }
}
BENCHMARK(BM_IndexFullColourFrame)->Unit(benchmark::kMillisecond);

void BM_DecodePNG(benchmark::State& state) {
  const std::vector<std::uint8_t> png = encodePNG(wideFrame());
  for (auto _ : state) {
    benchmark::DoNotOptimize(decodeImage(png));
  }
}
BENCHMARK(BM_DecodePNG)->Unit(benchmark::kMillisecond);

void BM_DecodeJPEG(benchmark::State& state) {
  const std::vector<std::uint8_t> jpeg = encodeJPEG(wideFrame(), 85);
  for (auto _ : state) {
    benchmark::DoNotOptimize(decodeImage(jpeg));
  }
}
BENCHMARK(BM_DecodeJPEG)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace brimble
