#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brimble {

/// Blanks as the C locale knows them: space, tab, line feed, carriage return, vertical tab and
/// form feed.
inline constexpr std::string_view kASCIIWhitespace = " \t\n\r\v\f";

/// `text` with ASCII letters lower-cased; every other byte (UTF-8 included) unchanged.
std::string lowercased(std::string_view text);

/// `text` without the leading and trailing characters that are in `blanks`.
std::string_view trimmed(std::string_view text, std::string_view blanks = kASCIIWhitespace);

/// The first UTF-8 character of `text` and its length in bytes, or no value when `text` is
/// empty or does not start with a well-formed one (an overlong form, a surrogate, a code point
/// past U+10FFFF, a cut-off sequence).
struct DecodedCharacter {
  char32_t codePoint;
  std::size_t length;
};
std::optional<DecodedCharacter> decodeUTF8Character(std::string_view text) noexcept;

/// The code points of UTF-8 `text`; each byte that does not start a well-formed character
/// becomes U+FFFD.
std::vector<char32_t> decodeUTF8(std::string_view text);

/// A space or a tab: what separates words on a line.
inline bool isBlank(char c) noexcept {
  return c == ' ' || c == '\t';
}

/// Whether `bytes` is well-formed UTF-8 throughout.
bool isValidUTF8(std::string_view bytes) noexcept;

/// The items as a sentence lists them: "a", "a and b", "a, b and c".
std::string listedInWords(const std::vector<std::string>& items);

}  // namespace brimble
