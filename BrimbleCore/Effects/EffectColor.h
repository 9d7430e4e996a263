#pragma once

#include <optional>
#include <string_view>

namespace brimble {

/// A colour of the effects, channels 0...1, straight (not premultiplied) alpha.
struct EffectColor {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;

  /// "#rrggbb", "rrggbb", "#rgb" or "#rrggbbaa" (case-insensitive, spaces around ignored); no
  /// value for anything else.
  static std::optional<EffectColor> parse(std::string_view text);
  /// Relative luminance (Rec. 709 weights on these channels), 0 black ... 1 white.
  double luminance() const noexcept { return 0.2126 * red + 0.7152 * green + 0.0722 * blue; }
  /// This colour `amount` of the way to `other`.
  EffectColor mixed(const EffectColor& other, double amount) const noexcept;
};

}  // namespace brimble
