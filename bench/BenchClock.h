#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

namespace brimble::bench {

using Clock = std::chrono::steady_clock;

inline double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// The middle of `values` (not empty).
inline double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace brimble::bench
