#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "BrimbleCore/Scripting/ScriptLexer.h"

namespace brimble {

/// A cursor over the text of one stripped script line. It does not own the text, which must
/// outlive it. One thread at a time.
class ScriptScanner {
 public:
  explicit ScriptScanner(std::string_view line) : line_(line) {}

  bool atEnd() const noexcept { return index_ >= line_.size(); }
  char current() const noexcept { return line_[index_]; }

  /// Moves past spaces and tabs.
  void skipWhitespace() noexcept;

  /// The 1-based character (code point) column of the current position.
  int column() noexcept;

  /// At a `"`: the string's text with escapes resolved (\n, \t, \", \\; a backslash before any
  /// other character is dropped). Throws "Unterminated string" at the opening quote.
  Token scanQuotedString(int lineNumber);

  /// At a `$`: `$name` or `$name[N]`. Throws "Expected variable name after $", "Invalid array
  /// index" or "Expected ] in variable index", located at the `$`.
  Token scanVariable(int lineNumber);

  /// The characters up to the next space or tab: a number when all of it is one, else a word.
  Token scanWord();

 private:
  [[noreturn]] void fail(int lineNumber, int column, const std::string& message) const;

  std::string_view line_;
  std::size_t index_ = 0;
  // Columns are counted incrementally so that a long line costs linear time, not quadratic.
  std::size_t countedIndex_ = 0;
  int countedColumn_ = 1;
};

}  // namespace brimble
