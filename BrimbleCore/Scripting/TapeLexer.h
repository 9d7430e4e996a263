#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brimble {

/// One token of a `.tape` file.
struct TapeToken {
  enum class Kind {
    /// A command, a setting's name or an unquoted value: `Type@100ms`, `Ctrl+C`, `500ms`,
    /// `50%`, `Dracula`.
    word,
    /// The text between `"`, `'` or `` ` `` quotes, which hold each other's quote.
    string,
    /// `/REGEX/`, its text without the slashes (`\/` stands for a slash).
    regex,
    /// `{...}`, braces and all, balanced and possibly over several lines (a theme's colours).
    json,
  };
  Kind kind = Kind::word;
  std::string text;
  /// Where the token starts: its 1-based line and column.
  int line = 0;
  int column = 0;
};

/// The tokens of a `.tape` file, line by line. `#` at the start of a token comments out the
/// rest of its line. Throws ScriptError (annotated with the line and a caret) for a quote, a
/// regular expression or braces left open. Pure; any thread.
std::vector<TapeToken> lexTape(std::string_view source);

/// Line `number` (1-based) of `source`, without its line break; empty past the end.
std::string tapeLine(std::string_view source, int number);

}  // namespace brimble
