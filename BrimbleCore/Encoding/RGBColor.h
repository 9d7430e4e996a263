#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace brimble {

/// One palette colour, 8 bits per channel.
struct RGBColor {
  std::uint8_t r = 0;
  std::uint8_t g = 0;
  std::uint8_t b = 0;

  bool operator==(const RGBColor&) const = default;

  /// The colour packed as 0xRRGGBB, a convenient key for tables.
  constexpr std::uint32_t packed() const noexcept {
    return (std::uint32_t{r} << 16) | (std::uint32_t{g} << 8) | std::uint32_t{b};
  }
};

}  // namespace brimble

template <>
struct std::hash<brimble::RGBColor> {
  std::size_t operator()(const brimble::RGBColor& color) const noexcept {
    return std::hash<std::uint32_t>{}(color.packed());
  }
};
