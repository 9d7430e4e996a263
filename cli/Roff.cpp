#include "cli/Roff.h"

#include <cstdint>

#include <fmt/format.h>

namespace brimble::cli {
namespace {

// The code point of the UTF-8 sequence at `text[i]` and its length; a malformed byte stands for
// U+FFFD on its own, so a stray byte in a help text cannot derail the page.
std::pair<std::uint32_t, std::size_t> codePointAt(std::string_view text, std::size_t i) {
  const auto byte = static_cast<unsigned char>(text[i]);
  std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 0;
  std::uint32_t point = byte & (length == 4 ? 0x07 : length == 3 ? 0x0F : 0x1F);
  if (length == 0 || i + length > text.size()) {
    return {0xFFFD, 1};
  }
  for (std::size_t k = 1; k < length; ++k) {
    const auto next = static_cast<unsigned char>(text[i + k]);
    if ((next & 0xC0) != 0x80) {
      return {0xFFFD, 1};
    }
    point = (point << 6) | (next & 0x3F);
  }
  return {point, length};
}

}  // namespace

std::string roffText(std::string_view text) {
  std::string out;
  bool lineStart = true;
  for (std::size_t i = 0; i < text.size();) {
    const char c = text[i];
    if (lineStart && (c == '.' || c == '\'')) {
      out += "\\&";
    }
    lineStart = c == '\n';
    if (static_cast<unsigned char>(c) >= 0x80) {
      const auto [point, length] = codePointAt(text, i);
      out += fmt::format("\\[u{:04X}]", point);
      i += length;
      continue;
    }
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else if (c == '/') {
      out += "/\\:";  // a long address or path may break after a slash rather than overflow
    } else {
      out += c;
    }
    ++i;
  }
  return out;
}

std::string roffBold(std::string_view text) {
  return "\\fB" + roffText(text) + "\\fR";
}

std::string roffItalic(std::string_view text) {
  return "\\fI" + roffText(text) + "\\fR";
}

std::string roffQuoted(std::string_view text) {
  std::string out = "\"";
  for (const char c : roffText(text)) {
    out += c == '"' ? std::string("\\(dq") : std::string(1, c);
  }
  return out + "\"";
}

}  // namespace brimble::cli
