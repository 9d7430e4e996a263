#include "BrimbleCore/Support/XID.h"

#include <charconv>

#include <fmt/format.h>

namespace brimble {

std::optional<std::uint32_t> parseXID(std::string_view text) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
    base = 16;
  } else if (text.size() > 1 && text[0] == '0') {
    return std::nullopt;
  }
  std::uint32_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id, base);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return id;
}

std::string formatXID(std::uint32_t id) {
  return fmt::format("{:#x}", id);
}

}  // namespace brimble
