#pragma once

#include <span>

#include "BrimbleCore/Encoding/Frame.h"

namespace brimble::FrameRateEstimator {

inline constexpr int minimumFPS = 1;
inline constexpr int maximumFPS = 120;

/// Frames per second from the frames' total display time; `fallback` when the delays sum to
/// nothing. Every result, the fallback included, is clamped to 1...120.
int nominalFPS(std::span<const ProcessedFrame> frames, int fallback);

/// Frames per second from the capture timestamps of the first and last frame; `fallback` for
/// fewer than two frames or a span that is not positive.
int nominalFPS(std::span<const TimestampedFrame> frames, int fallback);

/// Frames per second from the median delay, which ignores the long delays of merged duplicate
/// frames and so reflects the rate of frames that change.
int activeFrameFPS(std::span<const ProcessedFrame> frames, int fallback);

}  // namespace brimble::FrameRateEstimator
