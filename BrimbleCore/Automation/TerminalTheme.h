#pragma once

#include <array>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace brimble {

class TerminalThemeError : public std::runtime_error {
 public:
  enum class Code { unknownName, invalidJSON, invalidColor };

  static TerminalThemeError unknownName(const std::string& name);
  static TerminalThemeError invalidJSON(const std::string& reason);
  static TerminalThemeError invalidColor(const std::string& key, const std::string& value);

  Code code() const noexcept { return code_; }

 private:
  TerminalThemeError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// A terminal's colours, each "#rrggbb": background, text, cursor, selection and the 16 ANSI
/// colours (black, red, green, yellow, blue, magenta, cyan, white, then their bright forms).
/// A value; any thread.
struct TerminalTheme {
  std::string background;
  std::string foreground;
  std::string cursor;
  std::string selection;
  std::array<std::string, 16> ansi;

  /// The names of the shipped themes, as they are written: "Brimble" (the embedded display's
  /// own), "Dracula", "Nord", "Catppuccin Mocha", ...
  static std::vector<std::string> names();
  /// The shipped theme `name` names, compared without case, spaces, dashes or underscores
  /// ("catppuccin-mocha"); no value for other names.
  static std::optional<TerminalTheme> named(std::string_view name);
  /// A theme name, or a JSON object of colours with the keys background, foreground, cursor,
  /// selection, black, red, green, yellow, blue, magenta (or purple), cyan, white and their
  /// bright forms (brightBlack ... brightWhite); a key left out keeps the "Brimble" theme's
  /// colour. Colours are "#rrggbb" or "#rgb". Throws TerminalThemeError.
  static TerminalTheme parse(std::string_view text);
};

}  // namespace brimble
