#include "BrimbleCore/Scripting/ScriptError.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "BrimbleCore/Scripting/ScriptNumber.h"

namespace brimble {
namespace {

constexpr std::size_t kFailureDetailCharacters = 200;

// Characters are code points: cutting inside a UTF-8 sequence would leave invalid text.
std::string firstCharacters(const std::string& text, std::size_t count) {
  std::size_t seen = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xC0) != 0x80) {
      if (seen == count) {
        return text.substr(0, i);
      }
      ++seen;
    }
  }
  return text;
}

std::string withDetail(const std::string& message, const std::string& detail) {
  return detail.empty() ? message : message + "\n  " + detail;
}

}  // namespace

ScriptError::ScriptError(Code code, int line, const std::string& bareMessage, std::string subject)
    : ScriptError(code, line, describe(code, line, bareMessage), bareMessage, std::move(subject)) {}

ScriptError::ScriptError(Code code, int line, const std::string& description,
                         std::string bareMessage, std::string subject)
    : std::runtime_error(description),
      code_(code),
      line_(line),
      bareMessage_(std::move(bareMessage)),
      subject_(std::move(subject)) {}

std::string ScriptError::describe(Code code, int line, const std::string& bareMessage) {
  switch (code) {
    case Code::permissionDenied:
    case Code::windowNotFound:
    case Code::fileNotFound:
    case Code::encodingFailed:
      return bareMessage;
    case Code::runtimeError:
      if (line <= 0) {
        return bareMessage;  // the end of a script, which is no line of it
      }
      break;
    default:
      break;
  }
  return "Line " + std::to_string(line) + ": " + bareMessage;
}

ScriptError ScriptError::parseError(int line, const std::string& message, const std::string& detail,
                                    std::string subject) {
  return {Code::parseError, line, withDetail(message, detail), std::move(subject)};
}

ScriptError ScriptError::unknownCommand(int line, const std::string& word,
                                        const std::optional<std::string>& nearest) {
  return {Code::unknownCommand, line,
          "Unknown command '" + word + "'" +
              (nearest ? "; did you mean '" + *nearest + "'?" : std::string()),
          word};
}

ScriptError ScriptError::missingArgument(int line, const std::string& command,
                                         const std::string& what, std::string subject) {
  return {Code::missingArgument, line, "'" + command + "' requires " + what, std::move(subject)};
}

ScriptError ScriptError::invalidValue(int line, const std::string& value, const std::string& what,
                                      const std::string& detail) {
  return {Code::invalidValue, line,
          withDetail("Invalid value '" + value + "' for '" + what + "'", detail), value};
}

ScriptError ScriptError::undefinedVariable(int line, const std::string& name) {
  return {Code::undefinedVariable, line, "Undefined variable '$" + name + "'", "$" + name};
}

ScriptError ScriptError::runtimeError(int line, const std::string& message) {
  return {Code::runtimeError, line, message, {}};
}

ScriptError ScriptError::permissionDenied(const std::string& message) {
  return {Code::permissionDenied, 0, "Permission denied: " + message, {}};
}

ScriptError ScriptError::windowNotFound(const std::string& description) {
  return {Code::windowNotFound, 0, "Window not found: " + description, {}};
}

ScriptError ScriptError::fileNotFound(const std::string& path) {
  return {Code::fileNotFound, 0, "Script file not found: " + path, {}};
}

ScriptError ScriptError::commandFailed(int line, const std::string& command, std::int32_t exitCode,
                                       const std::string& standardError) {
  const std::string code = std::to_string(exitCode);
  const std::string detail = standardError.empty()
                                 ? "exit code " + code
                                 : firstCharacters(standardError, kFailureDetailCharacters);
  ScriptError error(Code::commandFailed, line,
                    "Command '" + command + "' failed (exit " + code + "): " + detail, {});
  error.exitCode_ = exitCode;
  return error;
}

ScriptError ScriptError::commandTimeout(int line, const std::string& command, double seconds) {
  // Truncation, as promised: a 2.9 second limit reads "2s". Formatting the truncated double
  // keeps limits beyond the range of an integer type defined.
  return {
      Code::commandTimeout,
      line,
      "Command '" + command + "' timed out after " + formatScriptNumber(std::trunc(seconds)) + "s",
      {}};
}

ScriptError ScriptError::inIncludedFile(const ScriptError& inner, const std::string& file) {
  if (!inner.file_.empty()) {
    return inner;
  }
  ScriptError error(inner.code_, inner.line_, file + ": " + inner.what(), inner.bareMessage_,
                    inner.subject_);
  error.column_ = inner.column_;
  error.sourceLine_ = inner.sourceLine_;
  error.inner_ = inner.inner_;
  error.exitCode_ = inner.exitCode_;
  error.file_ = file;
  return error;
}

ScriptError ScriptError::annotated(const ScriptError& inner, int column,
                                   const std::string& sourceLine) {
  if (inner.code_ == Code::annotated) {
    return inner;
  }
  column = std::max(column, 1);
  const std::string description = "Line " + std::to_string(inner.line_) + ", Col " +
                                  std::to_string(column) + ": " + inner.bareMessage_ + "\n  " +
                                  sourceLine + "\n  " +
                                  std::string(static_cast<std::size_t>(column - 1), ' ') + "^";
  ScriptError error(Code::annotated, inner.line_, description, inner.bareMessage_, inner.subject_);
  error.column_ = column;
  error.sourceLine_ = sourceLine;
  error.inner_ = std::make_shared<const ScriptError>(inner);
  error.exitCode_ = inner.exitCode_;
  return error;
}

ScriptError ScriptError::encodingFailed() {
  return {Code::encodingFailed, 0, "GIF encoding failed", {}};
}

}  // namespace brimble
