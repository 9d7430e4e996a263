#include "BrimbleCore/Effects/RenderSettings.h"

#include <cctype>
#include <charconv>
#include <cmath>

#include "BrimbleCore/Support/Text.h"

namespace brimble {

std::optional<IdleStrategy> idleStrategyFromArgument(std::string_view text) {
  std::string lower;
  for (char c : text) {
    lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  if (lower == "cut") {
    return IdleStrategy::cut;
  }
  if (lower == "ramp") {
    return IdleStrategy::ramp;
  }
  if (lower == "fade") {
    return IdleStrategy::fade;
  }
  return std::nullopt;
}

std::optional<LoopOffset> LoopOffset::parse(std::string_view text) {
  text = trimmed(text);
  const bool percent = text.ends_with('%');
  if (percent) {
    text.remove_suffix(1);
  }
  if (text.empty() || text.size() > 12 ||
      text.find_first_not_of(percent ? "0123456789." : "0123456789") != std::string_view::npos) {
    return std::nullopt;
  }
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || (percent && value > 100)) {
    return std::nullopt;
  }
  return LoopOffset{percent ? Unit::percent : Unit::frame, value};
}

int LoopOffset::firstFrame(int count) const {
  if (count <= 0) {
    return 0;
  }
  const double frame = unit == Unit::percent ? std::floor(count * value / 100 + 1e-9) : value;
  return static_cast<int>(std::fmod(frame, count));
}

}  // namespace brimble
