#include "BrimbleCore/Support/Text.h"

namespace brimble {

std::string lowercased(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return result;
}

std::string_view trimmed(std::string_view text, std::string_view blanks) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::optional<DecodedCharacter> decodeUTF8Character(std::string_view text) noexcept {
  if (text.empty()) {
    return std::nullopt;
  }
  const auto lead = static_cast<unsigned char>(text.front());
  std::size_t length = 0;
  char32_t value = 0;
  char32_t minimum = 0;
  if (lead < 0x80) {
    return DecodedCharacter{lead, 1};
  }
  if ((lead & 0xE0) == 0xC0) {
    length = 2;
    value = lead & 0x1F;
    minimum = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3;
    value = lead & 0x0F;
    minimum = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4;
    value = lead & 0x07;
    minimum = 0x10000;
  } else {
    return std::nullopt;
  }
  if (text.size() < length) {
    return std::nullopt;
  }
  for (std::size_t k = 1; k < length; ++k) {
    const auto next = static_cast<unsigned char>(text[k]);
    if ((next & 0xC0) != 0x80) {
      return std::nullopt;
    }
    value = (value << 6) | (next & 0x3F);
  }
  // Overlong forms, surrogates and values past U+10FFFF are not characters.
  if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
    return std::nullopt;
  }
  return DecodedCharacter{value, length};
}

std::vector<char32_t> decodeUTF8(std::string_view text) {
  constexpr char32_t kReplacement = 0xFFFD;
  std::vector<char32_t> characters;
  while (!text.empty()) {
    const auto character = decodeUTF8Character(text);
    characters.push_back(character ? character->codePoint : kReplacement);
    text.remove_prefix(character ? character->length : 1);
  }
  return characters;
}

bool isValidUTF8(std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const auto character = decodeUTF8Character(bytes);
    if (!character) {
      return false;
    }
    bytes.remove_prefix(character->length);
  }
  return true;
}

std::string listedInWords(const std::vector<std::string>& items) {
  std::string text;
  for (std::size_t i = 0; i < items.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == items.size() ? " and " : ", ") + items[i];
  }
  return text;
}

}  // namespace brimble
