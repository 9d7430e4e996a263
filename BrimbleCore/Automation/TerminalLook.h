#pragma once

#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/TerminalTheme.h"

namespace brimble {

/// How a terminal Brimble opens should look, each part left as the display's default when it
/// has no value. A value; any thread.
struct TerminalLook {
  /// A fontconfig family ("DejaVu Sans Mono") and its size in points.
  std::optional<std::string> font;
  std::optional<double> fontSize;
  /// The size in character cells.
  std::optional<int> columns;
  std::optional<int> rows;
  std::optional<TerminalTheme> theme;
  /// Pixels between the window's edge and the text.
  std::optional<int> padding;
  std::optional<std::string> title;
  std::optional<bool> cursorBlink;
  /// Line height as a factor of the font's (xterm takes 0.9 to 1.5).
  std::optional<double> lineHeight;
  /// The shell the terminal runs ("bash", "zsh", "fish", a path); no value for the user's.
  std::optional<std::string> shell;
  /// A prompt of its own: the shell then starts without the user's startup files (so neither
  /// their prompt nor their aliases show in a demo) and prompts with this text.
  std::optional<std::string> prompt;

  /// Whether nothing is asked for.
  bool empty() const noexcept;
  /// The command-line arguments that dress xterm so. Each part is given for this window alone
  /// (resources named by xterm's instance name, which beat the display's class-wide ones), so
  /// two terminals of one display may look different.
  std::vector<std::string> xtermArguments() const;
  /// The command the terminal runs for `shell` and `prompt`, empty for neither (the user's shell
  /// as they set it up).
  std::vector<std::string> shellCommand() const;
};

}  // namespace brimble
