#include "BrimbleCore/Scripting/ScriptScanner.h"

#include <charconv>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

bool isNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

}  // namespace

void ScriptScanner::skipWhitespace() noexcept {
  while (!atEnd() && isBlank(current())) {
    ++index_;
  }
}

int ScriptScanner::column() noexcept {
  for (; countedIndex_ < index_; ++countedIndex_) {
    // UTF-8 continuation bytes belong to the character before them.
    if ((static_cast<unsigned char>(line_[countedIndex_]) & 0xC0) != 0x80) {
      ++countedColumn_;
    }
  }
  return countedColumn_;
}

void ScriptScanner::fail(int lineNumber, int column, const std::string& message) const {
  throw ScriptError::annotated(ScriptError::parseError(lineNumber, message), column,
                               std::string(line_));
}

Token ScriptScanner::scanQuotedString(int lineNumber) {
  const int start = column();
  ++index_;  // the opening quote
  std::string text;
  std::vector<std::size_t> literalDollars;
  while (!atEnd()) {
    const char c = current();
    ++index_;
    if (c == '"') {
      return Token::string(std::move(text), std::move(literalDollars));
    }
    if (c != '\\') {
      text += c;
      continue;
    }
    if (atEnd()) {
      break;
    }
    const char escaped = current();
    ++index_;
    switch (escaped) {
      case 'n':
        text += '\n';
        break;
      case 't':
        text += '\t';
        break;
      case '$':
        // Text typed into a shell often holds its own `$HOME`.
        literalDollars.push_back(text.size());
        text += '$';
        break;
      default:
        // \" and \\ give the character itself, and so does any unknown escape.
        text += escaped;
        break;
    }
  }
  fail(lineNumber, start, "Unterminated string");
}

Token ScriptScanner::scanVariable(int lineNumber) {
  const int start = column();
  ++index_;  // the dollar sign
  const std::size_t nameStart = index_;
  while (!atEnd() && isNameCharacter(current())) {
    ++index_;
  }
  if (index_ == nameStart) {
    fail(lineNumber, start, "Expected variable name after $");
  }
  std::string name(line_.substr(nameStart, index_ - nameStart));
  if (atEnd() || current() != '[') {
    return Token::variable(std::move(name));
  }
  ++index_;  // the opening bracket
  const std::size_t digitsStart = index_;
  while (!atEnd() && current() >= '0' && current() <= '9') {
    ++index_;
  }
  int index = 0;
  const char* first = line_.data() + digitsStart;
  const char* last = line_.data() + index_;
  const auto [end, error] = std::from_chars(first, last, index);
  if (first == last || error != std::errc() || end != last) {
    fail(lineNumber, start, "Invalid array index");
  }
  if (atEnd() || current() != ']') {
    fail(lineNumber, start, "Expected ] in variable index");
  }
  ++index_;
  return Token::variableIndex(std::move(name), index);
}

Token ScriptScanner::scanWord() {
  const std::size_t start = index_;
  while (!atEnd() && !isBlank(current())) {
    ++index_;
  }
  const std::string_view word = line_.substr(start, index_ - start);
  if (const auto number = parseScriptNumber(word)) {
    return Token::number(*number);
  }
  return Token::word(std::string(word));
}

}  // namespace brimble
