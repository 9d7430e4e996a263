#include "BrimbleCore/Effects/EffectColor.h"

#include <array>
#include <cctype>

namespace brimble {
namespace {

std::optional<int> hexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  const char lower = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (lower >= 'a' && lower <= 'f') {
    return lower - 'a' + 10;
  }
  return std::nullopt;
}

}  // namespace

std::optional<EffectColor> EffectColor::parse(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
    text.remove_prefix(1);
  }
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
    text.remove_suffix(1);
  }
  if (!text.empty() && text.front() == '#') {
    text.remove_prefix(1);
  }
  std::array<int, 8> digits{};
  if (text.size() != 3 && text.size() != 6 && text.size() != 8) {
    return std::nullopt;
  }
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto digit = hexDigit(text[i]);
    if (!digit) {
      return std::nullopt;
    }
    digits[i] = *digit;
  }
  const auto channel = [&](std::size_t index) {
    if (text.size() == 3) {
      return digits[index] * 17 / 255.0;
    }
    return (digits[2 * index] * 16 + digits[2 * index + 1]) / 255.0;
  };
  return EffectColor{channel(0), channel(1), channel(2), text.size() == 8 ? channel(3) : 1.0};
}

EffectColor EffectColor::mixed(const EffectColor& other, double amount) const noexcept {
  const auto mix = [amount](double a, double b) { return a + (b - a) * amount; };
  return {mix(red, other.red), mix(green, other.green), mix(blue, other.blue),
          mix(alpha, other.alpha)};
}

}  // namespace brimble
