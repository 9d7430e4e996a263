#pragma once

#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "BrimbleCore/Scripting/ScriptClock.h"
#include "BrimbleCore/Scripting/ScriptSegments.h"
#include "BrimbleCore/Scripting/ScriptServices.h"
#include "BrimbleCore/Scripting/ScriptTargets.h"

namespace brimble {

/// The regular expression `wait-for-text` looks for (ECMAScript, as in JavaScript).
struct TextWaitPattern {
  std::regex regex;
  /// Whether it names a line feed (`\n` or the character itself), so may match across lines.
  bool spansLines = false;
};
/// Throws ScriptError "Line N: invalid wait-for-text pattern ..." when `pattern` is not one.
TextWaitPattern textWaitPattern(const std::string& pattern, int line);

/// Whether `pattern` is found in `lines` (a screen, top to bottom): in the last one that is not
/// blank, or anywhere on screen (in one of its lines, or, for a pattern that spans lines, across
/// them, joined by line feeds).
bool textWaitMatches(const TextWaitPattern& pattern, const std::vector<std::string>& lines,
                     bool lastLine);

/// `wait-for-text`: waits until text matching a pattern shows in the window being recorded
/// (else the window the script drives, else the focused one), looking a few times a second. A
/// terminal the script opened is read from what its programs wrote to it; any other window (or
/// region) from its picture, through tesseract. Borrows the engine's parts; one thread at a time.
class ScriptTextWait {
 public:
  ScriptTextWait(const ScriptServices& services, ScriptClock& clock, ScriptTargets& targets,
                 const ScriptSegments& segments)
      : services_(services), clock_(clock), targets_(targets), segments_(segments) {}

  /// Returns once `pattern` matches, or at an interrupt. Throws ScriptError when `timeout`
  /// seconds pass first ("Line N: no text matching ... after S s (last line: ...)"), and for a
  /// bad pattern, a window that cannot be read or a missing tesseract.
  void wait(const std::string& pattern, double timeout, bool lastLine, int line);

 private:
  struct Source {
    /// A terminal whose text is read from its log.
    std::optional<std::uint32_t> terminal;
    /// Else the picture read by text recognition.
    std::optional<CaptureTarget> picture;
  };
  Source source(int line) const;
  /// The lines shown now; no value after an interrupt.
  std::optional<std::vector<std::string>> look(const Source& source, int line);

  const ScriptServices& services_;
  ScriptClock& clock_;
  ScriptTargets& targets_;
  const ScriptSegments& segments_;
};

}  // namespace brimble
