#include "BrimbleCore/Scripting/TapeLexer.h"

#include "BrimbleCore/Scripting/ScriptError.h"

namespace brimble {
namespace {

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}

class TapeScanner {
 public:
  explicit TapeScanner(std::string_view source) : source_(source) {}

  std::vector<TapeToken> tokens() {
    std::vector<TapeToken> tokens;
    while (position_ < source_.size()) {
      const char c = source_[position_];
      if (c == '\n') {
        advance();
      } else if (isSpace(c)) {
        advance();
      } else if (c == '#') {
        while (position_ < source_.size() && source_[position_] != '\n') {
          advance();
        }
      } else {
        tokens.push_back(token());
      }
    }
    return tokens;
  }

 private:
  TapeToken token() {
    TapeToken token{TapeToken::Kind::word, {}, line_, column_};
    const char c = source_[position_];
    if (c == '"' || c == '\'' || c == '`') {
      token.kind = TapeToken::Kind::string;
      advance();
      token.text = until(c, token, "quote");
    } else if (c == '/') {
      token.kind = TapeToken::Kind::regex;
      advance();
      token.text = until('/', token, "regular expression");
    } else if (c == '{') {
      token.kind = TapeToken::Kind::json;
      token.text = braces(token);
    } else {
      while (position_ < source_.size() && !isSpace(source_[position_]) &&
             source_[position_] != '\n') {
        token.text += source_[position_];
        advance();
      }
    }
    return token;
  }

  // The text up to `close` on the same line; `\close` stands for `close` in a regular expression,
  // whose other escapes stay for the pattern to read.
  std::string until(char close, const TapeToken& token, const std::string& what) {
    std::string text;
    while (position_ < source_.size() && source_[position_] != '\n') {
      const char c = source_[position_];
      if (c == close) {
        advance();
        return text;
      }
      if (close == '/' && c == '\\' && position_ + 1 < source_.size() &&
          source_[position_ + 1] == '/') {
        advance();
        text += '/';
        advance();
        continue;
      }
      text += c;
      advance();
    }
    throw unclosed(token, "This " + what + " is not closed on its line");
  }

  // A JSON object: to the brace that balances the first, over lines if it must, minding strings.
  std::string braces(const TapeToken& token) {
    std::string text;
    int depth = 0;
    bool inString = false;
    while (position_ < source_.size()) {
      const char c = source_[position_];
      text += c;
      advance();
      if (inString) {
        if (c == '\\' && position_ < source_.size()) {
          text += source_[position_];
          advance();
        } else if (c == '"') {
          inString = false;
        }
      } else if (c == '"') {
        inString = true;
      } else if (c == '{') {
        ++depth;
      } else if (c == '}' && --depth == 0) {
        return text;
      }
    }
    throw unclosed(token, "This '{' is never closed");
  }

  ScriptError unclosed(const TapeToken& token, const std::string& message) const {
    return ScriptError::annotated(ScriptError::parseError(token.line, message), token.column,
                                  tapeLine(source_, token.line));
  }

  void advance() {
    if (source_[position_] == '\n') {
      ++line_;
      column_ = 1;
    } else {
      ++column_;
    }
    ++position_;
  }

  std::string_view source_;
  std::size_t position_ = 0;
  int line_ = 1;
  int column_ = 1;
};

}  // namespace

std::vector<TapeToken> lexTape(std::string_view source) {
  return TapeScanner(source).tokens();
}

std::string tapeLine(std::string_view source, int number) {
  std::size_t start = 0;
  for (int line = 1; line < number; ++line) {
    start = source.find('\n', start);
    if (start == std::string_view::npos) {
      return {};
    }
    ++start;
  }
  std::string_view rest = source.substr(start);
  rest = rest.substr(0, rest.find('\n'));
  if (!rest.empty() && rest.back() == '\r') {
    rest.remove_suffix(1);
  }
  return std::string(rest);
}

}  // namespace brimble
