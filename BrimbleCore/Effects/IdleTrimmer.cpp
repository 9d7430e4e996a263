#include "BrimbleCore/Effects/IdleTrimmer.h"

#include <algorithm>
#include <array>
#include <string>

#include <cairo.h>

#include "BrimbleCore/Effects/CairoHandles.h"
#include "BrimbleCore/Effects/EffectsError.h"
#include "BrimbleCore/Effects/SegmentClock.h"

namespace brimble {
namespace IdleTrimmer {
namespace {

Image darkened(const Image& image, double amount) {
  DrawingSurface surface(image);
  CairoPtr cairo = surface.context();
  cairo_set_source_rgb(cairo.get(), 0, 0, 0);
  cairo_paint_with_alpha(cairo.get(), amount);
  cairo.reset();
  return std::move(surface).release();
}

// The steps of a dip, as fractions of its half and how dark each is.
constexpr std::array<std::pair<double, double>, 3> kDipOut = {
    {{0.4, 0.3}, {0.3, 0.7}, {0.3, 0.95}}};

}  // namespace

std::vector<ProcessedFrame> apply(std::span<const ProcessedFrame> frames, IdleStrategy strategy,
                                  double threshold) {
  if (!(threshold >= 0)) {
    throw EffectsError::invalidSetting("idle-threshold", threshold,
                                       "a number of seconds, 0 or more");
  }
  std::vector<ProcessedFrame> result;
  bool dipIn = false;  // the frame after a `fade` cut rises out of the dip
  std::size_t i = 0;
  while (i < frames.size()) {
    // A run of frames showing one picture.
    std::size_t end = i + 1;
    double length = frames[i].delay;
    while (end < frames.size() && frames[end].image.hasSamePixels(frames[i].image)) {
      length += frames[end].delay;
      ++end;
    }
    ProcessedFrame held = frames[i];
    held.delay = length;
    const bool idle = length > threshold;
    const double beat = std::min(SegmentClock::kIdleBeat, length);
    if (dipIn) {
      // Up out of the dark over the first half beat (or the whole frame when shorter).
      const double half = std::min(SegmentClock::kIdleBeat / 2, held.delay / 2);
      for (auto step = kDipOut.rbegin(); step != kDipOut.rend(); ++step) {
        result.push_back(
            {darkened(held.image, step->second), half * step->first, held.sourceTimestamp});
      }
      held.delay -= half;
      dipIn = false;
    }
    if (!idle) {
      result.push_back(held);
    } else if (strategy == IdleStrategy::ramp) {
      held.delay = std::max(beat, length / SegmentClock::kRampSpeed);
      result.push_back(held);
    } else if (strategy == IdleStrategy::cut || end == frames.size()) {
      held.delay = beat;
      result.push_back(held);
    } else {
      held.delay = beat / 2;
      result.push_back(held);
      for (const auto& [share, darkness] : kDipOut) {
        result.push_back({darkened(held.image, darkness), beat / 2 * share, held.sourceTimestamp});
      }
      dipIn = true;
    }
    i = end;
  }
  return result;
}

}  // namespace IdleTrimmer
}  // namespace brimble
