#pragma once

#include <span>
#include <vector>

#include "BrimbleCore/Effects/RenderSettings.h"
#include "BrimbleCore/Encoding/Frame.h"

namespace brimble {

/// Idle handling for finished animations (a GIF to post-process), where nothing but the
/// pictures is known: a stretch is idle when the picture stays the same for longer than the
/// threshold. `cut` shortens it to SegmentClock::kIdleBeat, `ramp` plays it at up to
/// SegmentClock::kRampSpeed times (which for an unchanging picture means a shorter hold, never
/// under the beat), `fade` cuts it and dips to black across the cut. Every change of picture is
/// kept. Pure; any thread.
namespace IdleTrimmer {

/// `frames` with their idle stretches handled by `strategy`. Throws EffectsError::invalidSetting
/// for a negative `threshold`.
std::vector<ProcessedFrame> apply(std::span<const ProcessedFrame> frames, IdleStrategy strategy,
                                  double threshold);

}  // namespace IdleTrimmer
}  // namespace brimble
