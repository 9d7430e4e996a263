#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace brimble {

/// One lexical unit of a `.brim` line.
struct Token {
  enum class Kind { word, string, number, variable, variableIndex, newline };

  Kind kind = Kind::newline;
  /// The text of a word or string (escapes resolved, quotes removed); a variable's name.
  std::string text;
  /// A number's value.
  double value = 0;
  /// The index of a `variableIndex`.
  int index = 0;
  /// Where a string's text holds a `$` written `\$`: a dollar sign that names no variable.
  std::vector<std::size_t> literalDollars{};

  static Token word(std::string text) { return {Kind::word, std::move(text), 0, 0, {}}; }
  static Token string(std::string text, std::vector<std::size_t> literalDollars = {}) {
    return {Kind::string, std::move(text), 0, 0, std::move(literalDollars)};
  }
  static Token number(double value) { return {Kind::number, {}, value, 0, {}}; }
  static Token variable(std::string name) { return {Kind::variable, std::move(name), 0, 0, {}}; }
  static Token variableIndex(std::string name, int index) {
    return {Kind::variableIndex, std::move(name), 0, index, {}};
  }
  static Token newline() { return {}; }

  bool operator==(const Token& other) const = default;

  /// The form used in messages: a word's or string's text, the number, `$name`, `$name[N]`, or
  /// "newline".
  std::string description() const;
};

/// A token with where it starts: the 1-based line, and the 1-based column counted in characters
/// of the line after comment stripping and trimming (column 1 is the first non-blank character).
struct LocatedToken {
  Token token;
  int line = 0;
  int column = 0;

  bool operator==(const LocatedToken& other) const = default;
};

struct LexResult {
  /// Every non-empty line is opened by a `newline` token, followed by the line's own tokens.
  std::vector<LocatedToken> tokens;
  /// Each non-empty line's text after comment stripping and trimming, for error display.
  std::map<int, std::string> lineTexts;
};

/// Turns the text of a `.brim` script into located tokens. Stateless; callable from any thread.
class ScriptLexer {
 public:
  /// The tokens of `tokenizeLocated` without their locations. Throws ScriptError.
  static std::vector<Token> tokenize(std::string_view source);

  /// Splits at every line separator (LF, CR, VT, FF, NEL, U+2028, U+2029; so CR LF is two
  /// separators and CRLF files number their lines 1, 3, 5...), skips blank and comment lines and
  /// tokenizes the rest. Throws the first lexical error as an annotated ScriptError; there is no
  /// partial result.
  static LexResult tokenizeLocated(std::string_view source);

  /// The line without its comment, trimmed: a `#` outside double quotes starts a comment when it
  /// begins the line or follows a space or tab. A `"` after a backslash does not open or close
  /// quotes.
  static std::string stripInlineComment(std::string_view line);

  /// Appends the tokens of one stripped line (without its `newline` marker). Throws ScriptError.
  static void tokenizeLine(std::string_view line, int lineNumber,
                           std::vector<LocatedToken>& tokens);
};

}  // namespace brimble
