#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace brimble {

/// The errors of the script language, shared by the lexer, the parser, the shell commands and
/// the engine. Line-bound descriptions begin "Line N: "; `annotated` adds the column, the
/// offending line and a caret. Immutable, so safe to read from any thread.
class ScriptError : public std::runtime_error {
 public:
  enum class Code {
    parseError,
    unknownCommand,
    missingArgument,
    invalidValue,
    undefinedVariable,
    runtimeError,
    permissionDenied,
    windowNotFound,
    fileNotFound,
    commandFailed,
    commandTimeout,
    annotated,
    encodingFailed,
  };

  /// "Line N: <message>", and when `detail` is not empty a newline, two spaces and the detail.
  /// `subject` is the text of the token the error is about (for the caret), empty for the line.
  static ScriptError parseError(int line, const std::string& message,
                                const std::string& detail = {}, std::string subject = {});
  /// "Line N: Unknown command '<word>'", then "; did you mean '<nearest>'?" when a command is
  /// near.
  static ScriptError unknownCommand(int line, const std::string& word,
                                    const std::optional<std::string>& nearest = std::nullopt);
  /// "Line N: '<command>' requires <what>". `subject` as for `parseError`.
  static ScriptError missingArgument(int line, const std::string& command, const std::string& what,
                                     std::string subject = {});
  /// "Line N: Invalid value '<value>' for '<what>'", then, when `detail` is not empty (such as
  /// "expected a number"), a newline, two spaces and the detail.
  static ScriptError invalidValue(int line, const std::string& value, const std::string& what,
                                  const std::string& detail = {});
  /// "Line N: Undefined variable '$<name>'".
  static ScriptError undefinedVariable(int line, const std::string& name);
  /// "Line N: <message>"; just the message for line 0, a failure at the end of a script that
  /// belongs to none of its lines ("No segments recorded").
  static ScriptError runtimeError(int line, const std::string& message);
  /// "Permission denied: <message>".
  static ScriptError permissionDenied(const std::string& message);
  /// "Window not found: <description>".
  static ScriptError windowNotFound(const std::string& description);
  /// "Script file not found: <path>".
  static ScriptError fileNotFound(const std::string& path);
  /// "Line N: Command '<command>' failed (exit <code>): <detail>", the detail being the first 200
  /// characters of `standardError`, or "exit code <code>" when it is empty.
  static ScriptError commandFailed(int line, const std::string& command, std::int32_t exitCode,
                                   const std::string& standardError);
  /// "Line N: Command '<command>' timed out after <whole seconds>s" (the seconds truncated).
  static ScriptError commandTimeout(int line, const std::string& command, double seconds);
  /// "Line N, Col C: <inner's bare message>", then the source line and a caret under column C
  /// (a column below 1 counts as 1), each on its own line indented by two spaces. An error that
  /// is already annotated is returned unchanged.
  static ScriptError annotated(const ScriptError& inner, int column, const std::string& sourceLine);
  /// "GIF encoding failed".
  static ScriptError encodingFailed();
  /// `inner` raised at a line of the included script `file`: "<file>: " before its description;
  /// code, line and the rest are inner's. An error already placed in a file is returned
  /// unchanged, so the innermost file is named.
  static ScriptError inIncludedFile(const ScriptError& inner, const std::string& file);

  Code code() const noexcept { return code_; }
  /// The 1-based script line, or 0 for the cases that carry none.
  int line() const noexcept { return line_; }
  /// The description without its "Line N: " prefix; for `annotated`, the inner error's.
  const std::string& bareMessage() const noexcept { return bareMessage_; }
  /// The text of the token the error is about, or empty (see `ScriptParser::anchorColumn`).
  const std::string& subject() const noexcept { return subject_; }
  /// `annotated` only: the column (at least 1), the line's text and the wrapped error.
  int column() const noexcept { return column_; }
  const std::string& sourceLine() const noexcept { return sourceLine_; }
  const ScriptError* inner() const noexcept { return inner_.get(); }
  /// `commandFailed` only: the command's exit status.
  std::int32_t exitCode() const noexcept { return exitCode_; }
  /// The included script the error is in, or empty for the script itself.
  const std::string& file() const noexcept { return file_; }

 private:
  ScriptError(Code code, int line, const std::string& bareMessage, std::string subject);
  ScriptError(Code code, int line, const std::string& description, std::string bareMessage,
              std::string subject);
  static std::string describe(Code code, int line, const std::string& bareMessage);

  Code code_;
  int line_;
  std::string bareMessage_;
  std::string subject_;
  int column_ = 0;
  std::string sourceLine_;
  // Shared because exceptions are copied while they propagate; never modified.
  std::shared_ptr<const ScriptError> inner_;
  std::int32_t exitCode_ = 0;
  std::string file_;
};

}  // namespace brimble
