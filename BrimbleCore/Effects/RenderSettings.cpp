#include "BrimbleCore/Effects/RenderSettings.h"

#include <cctype>

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

}  // namespace brimble
