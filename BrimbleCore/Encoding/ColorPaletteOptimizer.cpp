#include "BrimbleCore/Encoding/ColorPaletteOptimizer.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <unordered_set>

#include "BrimbleCore/Encoding/MedianCutQuantizer.h"
#include "BrimbleCore/Encoding/SampledDifference.h"
#include "BrimbleCore/Support/ParallelFor.h"

namespace brimble::ColorPaletteOptimizer {
namespace {

constexpr int kSampledFrames = 20;
constexpr int kSamplesPerFrame = 500;
constexpr std::size_t kSharedPaletteColorLimit = 512;

/// `palette` applied to every frame in parallel; a frame that cannot be quantized keeps its
/// image. Each finished frame advances the reporter.
void applyPalette(std::span<ProcessedFrame> frames, const std::vector<RGBColor>& palette,
                  PaletteProgressReporter* reporter) {
  parallelFor(frames.size(), [&](std::size_t i) {
    if (auto quantized = MedianCutQuantizer::quantize(frames[i].image, palette)) {
      frames[i].image = std::move(*quantized);
    }
    if (reporter != nullptr) {
      reporter->advance(1);
    }
  });
}

/// Shares one palette across `frames` (a scene, or all of them). Returns whether it did.
bool sharePalette(std::span<ProcessedFrame> frames, bool limitDistinctColors,
                  PaletteProgressReporter* reporter) {
  const auto palette = sharedPalette(
      frames.size(), [&](std::size_t i) { return frames[i].image; }, limitDistinctColors);
  if (!palette) {
    if (reporter != nullptr) {
      reporter->advance(static_cast<int>(frames.size()));
    }
    return false;
  }
  applyPalette(frames, *palette, reporter);
  return true;
}

}  // namespace

std::vector<std::size_t> sampledFrames(std::size_t count) {
  std::vector<std::size_t> picked;
  if (count == 0) {
    return picked;
  }
  const std::size_t step = count / std::min<std::size_t>(count, kSampledFrames);
  for (std::size_t i = 0; i < count; i += step) {
    picked.push_back(i);
  }
  return picked;
}

bool isSceneChange(const Image& a, const Image& b) {
  if (a.width() != b.width() || a.height() != b.height()) {
    return true;
  }
  const auto first = a.bytes();
  const auto second = b.bytes();
  if (first.empty() || second.empty() || a.empty() || a.bitsPerPixel() < 24 ||
      b.bitsPerPixel() < 24) {
    return true;
  }
  const std::size_t pixelCount = static_cast<std::size_t>(a.width()) * a.height();
  // About 200 samples, a change once more than 50 of them moved by more than 30; tiny images
  // are compared pixel by pixel and change once more than a quarter of them did.
  const bool small = pixelCount < 200;
  const std::size_t stride = small ? 1 : pixelCount / 200;
  const std::size_t enough = small ? pixelCount / 4 + 1 : 51;
  return countDifferingSamples(a, b, stride, 30, enough) >= enough;
}

std::optional<std::vector<RGBColor>> sharedPalette(std::size_t count,
                                                   const std::function<Image(std::size_t)>& frameAt,
                                                   bool limitDistinctColors, int maxColors) {
  std::vector<RGBColor> pool;
  std::unordered_set<RGBColor> distinct;
  for (const std::size_t i : sampledFrames(count)) {
    const auto samples = MedianCutQuantizer::sampleColors(frameAt(i), kSamplesPerFrame);
    if (limitDistinctColors) {
      distinct.insert(samples.begin(), samples.end());
      if (distinct.size() > kSharedPaletteColorLimit) {
        return std::nullopt;
      }
    }
    pool.insert(pool.end(), samples.begin(), samples.end());
  }
  return MedianCutQuantizer::buildPalette(pool, maxColors);
}

std::vector<std::size_t> sceneStarts(std::span<const ProcessedFrame> frames) {
  std::vector<std::size_t> starts;
  if (frames.empty()) {
    return starts;
  }
  starts.push_back(0);
  for (std::size_t i = 1; i < frames.size(); ++i) {
    if (isSceneChange(frames[i - 1].image, frames[i].image)) {
      starts.push_back(i);
    }
  }
  return starts;
}

Result optimize(std::span<const ProcessedFrame> frames, PaletteStrategy strategy,
                const PaletteProgress& progress) {
  Result result{{frames.begin(), frames.end()}, false};
  if (strategy == PaletteStrategy::perFrame) {
    return result;
  }
  std::optional<PaletteProgressReporter> reporter;
  if (progress && !frames.empty()) {
    reporter.emplace(static_cast<int>(frames.size()), progress);
  }
  PaletteProgressReporter* report = reporter ? &*reporter : nullptr;
  if (strategy == PaletteStrategy::global) {
    sharePalette(result.frames, false, report);
    result.usedGlobal = true;
    return result;
  }
  if (frames.size() < 2) {
    return result;
  }
  const std::vector<std::size_t> starts = sceneStarts(frames);
  std::span<ProcessedFrame> all(result.frames);
  if (starts.size() == 1) {
    result.usedGlobal = sharePalette(all, true, report);
    return result;
  }
  for (std::size_t s = 0; s < starts.size(); ++s) {
    const std::size_t end = s + 1 < starts.size() ? starts[s + 1] : all.size();
    sharePalette(all.subspan(starts[s], end - starts[s]), true, report);
  }
  return result;
}

}  // namespace brimble::ColorPaletteOptimizer
