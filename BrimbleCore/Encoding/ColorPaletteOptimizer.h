#pragma once

#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "BrimbleCore/Encoding/Frame.h"
#include "BrimbleCore/Encoding/PaletteProgressReporter.h"
#include "BrimbleCore/Encoding/PaletteStrategy.h"
#include "BrimbleCore/Encoding/RGBColor.h"

namespace brimble {

/// Decides which frames share a palette and applies it. Shared palettes stop the colour flicker
/// of independent per-frame palettes and give unchanged pixels identical indices.
namespace ColorPaletteOptimizer {

struct Result {
  std::vector<ProcessedFrame> frames;
  /// True when one palette was applied to every frame.
  bool usedGlobal = false;
};

/// Frames with their images replaced according to `strategy`; order and delays never change.
/// Frames left alone keep their full-colour images (the GIF writer then picks their palettes
/// one by one). Quantizing runs on all cores; `progress`, when given, is called from worker
/// threads (not for `perFrame`).
Result optimize(std::span<const ProcessedFrame> frames, PaletteStrategy strategy,
                const PaletteProgress& progress = {});

/// Indices where a new scene starts: 0, then every frame that differs clearly from the one
/// before it (another size, or more than 50 of about 200 sampled pixels changed by more than 30
/// in some channel). Empty for no frames.
std::vector<std::size_t> sceneStarts(std::span<const ProcessedFrame> frames);

/// True when `b` starts a new scene after `a`.
bool isSceneChange(const Image& a, const Image& b);

/// Frames 0, step, 2 step, … of a run of `count`: at most 20, evenly spread.
std::vector<std::size_t> sampledFrames(std::size_t count);

/// The palette a run of `count` frames shares, built by median cut from 500 colours sampled in
/// each of at most 20 evenly spread frames (`frameAt(i)` gives frame i). With
/// `limitDistinctColors`, no palette when the sampled frames hold more than 512 distinct colours:
/// such a run looks better with a palette per frame. At most `maxColors` colours: 255 leaves room
/// for a transparent entry.
std::optional<std::vector<RGBColor>> sharedPalette(std::size_t count,
                                                   const std::function<Image(std::size_t)>& frameAt,
                                                   bool limitDistinctColors, int maxColors = 256);

}  // namespace ColorPaletteOptimizer
}  // namespace brimble
