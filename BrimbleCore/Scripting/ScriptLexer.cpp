#include "BrimbleCore/Scripting/ScriptLexer.h"

#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Scripting/ScriptScanner.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

constexpr std::string_view kBlanks = " \t";

// The length of the line separator at `i`, or 0. Besides LF and CR these are the other
// characters that count as line ends: VT, FF, and in UTF-8 NEL (U+0085), LINE SEPARATOR
// (U+2028) and PARAGRAPH SEPARATOR (U+2029).
std::size_t separatorLength(std::string_view source, std::size_t i) {
  const auto byte = static_cast<unsigned char>(source[i]);
  if (byte == '\n' || byte == '\r' || byte == '\v' || byte == '\f') {
    return 1;
  }
  if (byte == 0xC2 && i + 1 < source.size() && static_cast<unsigned char>(source[i + 1]) == 0x85) {
    return 2;
  }
  if (byte == 0xE2 && i + 2 < source.size() && static_cast<unsigned char>(source[i + 1]) == 0x80) {
    const auto last = static_cast<unsigned char>(source[i + 2]);
    if (last == 0xA8 || last == 0xA9) {
      return 3;
    }
  }
  return 0;
}

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace

std::string Token::description() const {
  switch (kind) {
    case Kind::word:
    case Kind::string:
      return text;
    case Kind::number:
      return formatScriptNumber(value);
    case Kind::variable:
      return "$" + text;
    case Kind::variableIndex:
      return "$" + text + "[" + std::to_string(index) + "]";
    case Kind::newline:
      break;
  }
  return "newline";
}

std::vector<Token> ScriptLexer::tokenize(std::string_view source) {
  LexResult result = tokenizeLocated(source);
  std::vector<Token> tokens;
  tokens.reserve(result.tokens.size());
  for (LocatedToken& located : result.tokens) {
    tokens.push_back(std::move(located.token));
  }
  return tokens;
}

LexResult ScriptLexer::tokenizeLocated(std::string_view source) {
  // Editors on some systems start UTF-8 files with a byte-order mark; it is not part of the
  // first command.
  if (source.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    source.remove_prefix(kByteOrderMark.size());
  }
  LexResult result;
  // Scripts average well over six bytes a token; growing the vector would move every token.
  result.tokens.reserve(source.size() / 6 + 1);
  int lineNumber = 1;
  std::size_t lineStart = 0;
  for (std::size_t i = 0;; ++i) {
    const std::size_t separator = i < source.size() ? separatorLength(source, i) : 0;
    if (i < source.size() && separator == 0) {
      continue;
    }
    const std::string_view line = trimmed(source.substr(lineStart, i - lineStart), kBlanks);
    if (!line.empty() && line.front() != '#') {
      std::string stripped = stripInlineComment(line);
      if (!stripped.empty()) {
        result.tokens.push_back({Token::newline(), lineNumber, 1});
        tokenizeLine(stripped, lineNumber, result.tokens);
        result.lineTexts.emplace_hint(result.lineTexts.end(), lineNumber, std::move(stripped));
      }
    }
    if (i >= source.size()) {
      break;
    }
    ++lineNumber;
    i += separator - 1;
    lineStart = i + 1;
  }
  return result;
}

std::string ScriptLexer::stripInlineComment(std::string_view line) {
  bool inQuotes = false;
  std::size_t end = line.size();
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '"' && (i == 0 || line[i - 1] != '\\')) {
      inQuotes = !inQuotes;
    } else if (c == '#' && !inQuotes && (i == 0 || isBlank(line[i - 1]))) {
      end = i;
      break;
    }
  }
  return std::string(trimmed(line.substr(0, end), kBlanks));
}

void ScriptLexer::tokenizeLine(std::string_view line, int lineNumber,
                               std::vector<LocatedToken>& tokens) {
  ScriptScanner scanner(line);
  for (;;) {
    scanner.skipWhitespace();
    if (scanner.atEnd()) {
      return;
    }
    const int column = scanner.column();
    switch (scanner.current()) {
      case '"':
        tokens.push_back({scanner.scanQuotedString(lineNumber), lineNumber, column});
        break;
      case '$':
        tokens.push_back({scanner.scanVariable(lineNumber), lineNumber, column});
        break;
      default:
        tokens.push_back({scanner.scanWord(), lineNumber, column});
        break;
    }
  }
}

}  // namespace brimble
