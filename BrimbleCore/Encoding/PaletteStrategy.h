#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace brimble {

/// Whether frames share colour palettes.
enum class PaletteStrategy {
  /// ("auto", a keyword in C++.) Shared palettes per scene where a scene has few enough colours;
  /// per-frame palettes elsewhere.
  automatic,
  /// One palette for the whole animation.
  global,
  /// Every frame gets its own palette.
  perFrame,
};

inline constexpr std::array<PaletteStrategy, 3> kAllPaletteStrategies = {
    PaletteStrategy::automatic, PaletteStrategy::global, PaletteStrategy::perFrame};

/// "auto", "global" or "per-frame".
constexpr std::string_view rawValue(PaletteStrategy strategy) noexcept {
  switch (strategy) {
    case PaletteStrategy::automatic:
      return "auto";
    case PaletteStrategy::global:
      return "global";
    case PaletteStrategy::perFrame:
      return "per-frame";
  }
  return "auto";
}

/// The strategy for a raw value; no value for any other text.
constexpr std::optional<PaletteStrategy> paletteStrategyFromRawValue(
    std::string_view text) noexcept {
  for (const PaletteStrategy strategy : kAllPaletteStrategies) {
    if (rawValue(strategy) == text) {
      return strategy;
    }
  }
  return std::nullopt;
}

/// The strategy as scripts, tool arguments and the command line spell it: "auto", "global" and
/// "perFrame"; the raw "per-frame" is accepted too.
constexpr std::optional<PaletteStrategy> paletteStrategyFromArgument(
    std::string_view text) noexcept {
  if (text == "perFrame") {
    return PaletteStrategy::perFrame;
  }
  return paletteStrategyFromRawValue(text);
}

}  // namespace brimble
