#pragma once

#include <array>
#include <optional>

namespace brimble {

/// The frame rates a recording can be made at.
enum class FrameRate : int { twelve = 12, twentyFour = 24, thirty = 30, sixty = 60 };

inline constexpr std::array<FrameRate, 4> kAllFrameRates = {
    FrameRate::twelve, FrameRate::twentyFour, FrameRate::thirty, FrameRate::sixty};

constexpr int rawValue(FrameRate rate) noexcept {
  return static_cast<int>(rate);
}

constexpr std::optional<FrameRate> frameRateFromRawValue(int value) noexcept {
  for (const FrameRate rate : kAllFrameRates) {
    if (rawValue(rate) == value) {
      return rate;
    }
  }
  return std::nullopt;
}

/// How many times an animation plays; `infinite` repeats forever.
enum class LoopCount : int { infinite = 0, once = 1, three = 3 };

constexpr int rawValue(LoopCount count) noexcept {
  return static_cast<int>(count);
}

/// The loop count for a raw number of plays; no value for anything but 0, 1 and 3.
constexpr std::optional<LoopCount> loopCountFromRawValue(int value) noexcept {
  switch (value) {
    case 0:
      return LoopCount::infinite;
    case 1:
      return LoopCount::once;
    case 3:
      return LoopCount::three;
    default:
      return std::nullopt;
  }
}

}  // namespace brimble
