#include "BrimbleCore/Scripting/ScriptNumber.h"

#include <array>
#include <charconv>
#include <cmath>

namespace brimble {
namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// The decimal grammar is checked here because std::from_chars also takes "inf", "nan" and
// "infinity", which are words in a script, and refuses a leading '+'.
bool isDecimalNumber(std::string_view text) {
  std::size_t i = 0;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    ++i;
  }
  std::size_t digits = 0;
  while (i < text.size() && isDigit(text[i])) {
    ++i;
    ++digits;
  }
  if (i < text.size() && text[i] == '.') {
    ++i;
    while (i < text.size() && isDigit(text[i])) {
      ++i;
      ++digits;
    }
  }
  if (digits == 0) {
    return false;
  }
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
      ++i;
    }
    std::size_t exponentDigits = 0;
    while (i < text.size() && isDigit(text[i])) {
      ++i;
      ++exponentDigits;
    }
    if (exponentDigits == 0) {
      return false;
    }
  }
  return i == text.size();
}

}  // namespace

std::optional<double> parseScriptNumber(std::string_view text) {
  if (text.empty() || !isDecimalNumber(text)) {
    return std::nullopt;
  }
  if (text.front() == '+') {
    text.remove_prefix(1);
  }
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

std::string formatScriptNumber(double value) {
  constexpr double kExactIntegerLimit = 9007199254740992.0;  // 2^53
  if (value == std::floor(value) && std::fabs(value) < kExactIntegerLimit) {
    return std::to_string(static_cast<long long>(value));
  }
  // Fixed notation never needs more than about 1100 characters for a finite double.
  std::array<char, 1200> buffer{};
  const auto result =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed);
  return std::string(buffer.data(), result.ptr);
}

}  // namespace brimble
