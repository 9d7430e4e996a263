#include "BrimbleCore/Encoding/FrameRateEstimator.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace brimble::FrameRateEstimator {
namespace {

int clampRate(double rate) {
  if (!(rate >= minimumFPS)) {  // also catches NaN
    return minimumFPS;
  }
  return static_cast<int>(std::round(std::min(rate, double{maximumFPS})));
}

}  // namespace

int nominalFPS(std::span<const ProcessedFrame> frames, int fallback) {
  double total = 0;
  for (const ProcessedFrame& frame : frames) {
    total += frame.delay;
  }
  if (!frames.empty() && total > 0) {
    return clampRate(static_cast<double>(frames.size()) / total);
  }
  return clampRate(fallback);
}

int nominalFPS(std::span<const TimestampedFrame> frames, int fallback) {
  if (frames.size() >= 2) {
    const double span = frames.back().timestamp - frames.front().timestamp;
    if (span > 0) {
      return clampRate(static_cast<double>(frames.size() - 1) / span);
    }
  }
  return clampRate(fallback);
}

int activeFrameFPS(std::span<const ProcessedFrame> frames, int fallback) {
  if (frames.empty()) {
    return clampRate(fallback);
  }
  std::vector<double> delays;
  delays.reserve(frames.size());
  for (const ProcessedFrame& frame : frames) {
    delays.push_back(frame.delay);
  }
  std::sort(delays.begin(), delays.end());
  const std::size_t middle = delays.size() / 2;
  const double median =
      delays.size() % 2 == 1 ? delays[middle] : (delays[middle - 1] + delays[middle]) / 2;
  if (median > 0) {
    return clampRate(1 / median);
  }
  return clampRate(fallback);
}

}  // namespace brimble::FrameRateEstimator
