#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptInstruction.h"
#include "BrimbleCore/Scripting/ScriptLexer.h"

namespace brimble {

/// Turns `.brim` source into instructions, one per non-empty line. It checks grammar and
/// argument shapes only: whether variables exist, windows can be found or a setting's value
/// suits its key is decided when the script runs. Stateless; callable from any thread.
///
/// Command names and option keywords are compared after lower-casing; strings and variable names
/// keep their case. Options after a command's own arguments come in any order, each at most
/// once, and a token the command does not expect is an error.
class ScriptParser {
 public:
  using Tokens = std::span<const LocatedToken>;

  /// Lexes and parses `source`. Throws the first error as an annotated ScriptError ("Line N,
  /// Col C: ..." with the line and a caret).
  static std::vector<LocatedInstruction> parse(std::string_view source);

  /// One line's tokens (the command word first, no `newline` marker). Throws unannotated
  /// ScriptErrors; `parse` annotates them.
  static ScriptInstruction parseLine(Tokens tokens, int lineNumber);

  /// The value a single token stands for; a word gives a string.
  static ScriptValue extractValue(const Token& token);

  /// The column at which `error` is shown: that of the token the error is about (the last one
  /// whose text is the error's subject), else that of the line's first token.
  static int anchorColumn(const ScriptError& error, Tokens tokens);

  // One function per command form, each taking the line's tokens and its number; the command
  // table (ScriptCommandTable) says which one parses which command word.
  static ScriptInstruction parseSet(Tokens tokens, int lineNumber);
  static ScriptInstruction parseOpen(Tokens tokens, int lineNumber);
  static ScriptInstruction parseFocus(Tokens tokens, int lineNumber);
  static ScriptInstruction parseCaptureWindow(Tokens tokens, int lineNumber);
  static ScriptInstruction parseResize(Tokens tokens, int lineNumber);
  static ScriptInstruction parseRecord(Tokens tokens, int lineNumber);
  /// The options after a `record` target, from `tokens[start]` on, into `record`.
  static void parseRecordTrailingArgs(Tokens tokens, std::size_t start, int lineNumber,
                                      RecordInstruction& record);
  static ScriptInstruction parseType(Tokens tokens, int lineNumber);
  static ScriptInstruction parseClick(Tokens tokens, int lineNumber);
  static ScriptInstruction parseTap(Tokens tokens, int lineNumber);
  static ScriptInstruction parseMove(Tokens tokens, int lineNumber);
  static ScriptInstruction parseScroll(Tokens tokens, int lineNumber);
  static ScriptInstruction parseKey(Tokens tokens, int lineNumber);
  static ScriptInstruction parseWait(Tokens tokens, int lineNumber);
  static ScriptInstruction parseWaitForIdle(Tokens tokens, int lineNumber);
  static ScriptInstruction parseRun(Tokens tokens, int lineNumber);
  /// `spotlight` and `spotlight-shift`, told apart by the command word.
  static ScriptInstruction parseSpotlight(Tokens tokens, int lineNumber);
  static ScriptInstruction parseCursor(Tokens tokens, int lineNumber);
  /// `intro` and `outro`, told apart by the command word.
  static ScriptInstruction parseIntro(Tokens tokens, int lineNumber);
  /// `dismiss-dialog` and `click-button-in-dialog`, told apart by the command word.
  static ScriptInstruction parseAppButtonKeywords(Tokens tokens, int lineNumber);
  static ScriptInstruction parseSetBackground(Tokens tokens, int lineNumber);
  static ScriptInstruction parseTarget(Tokens tokens, int lineNumber);
  static ScriptInstruction parseFill(Tokens tokens, int lineNumber);
  static ScriptInstruction parseMoveTo(Tokens tokens, int lineNumber);
  static ScriptInstruction parseWaitFor(Tokens tokens, int lineNumber);
  static ScriptInstruction parseWaitForText(Tokens tokens, int lineNumber);
  static ScriptInstruction parseBrowser(Tokens tokens, int lineNumber);
  static ScriptInstruction parseNavigate(Tokens tokens, int lineNumber);
  static ScriptInstruction parseHighlight(Tokens tokens, int lineNumber);
  static ScriptInstruction parseZoom(Tokens tokens, int lineNumber);
  static ScriptInstruction parseZoomOut(Tokens tokens, int lineNumber);
  static ScriptInstruction parseRequire(Tokens tokens, int lineNumber);
  static ScriptInstruction parseEnv(Tokens tokens, int lineNumber);
  static ScriptInstruction parseScreenshot(Tokens tokens, int lineNumber);
  static ScriptInstruction parseInclude(Tokens tokens, int lineNumber);
  static ScriptInstruction parseOutput(Tokens tokens, int lineNumber);
  static ScriptInstruction parseCaption(Tokens tokens, int lineNumber);
  static ScriptInstruction parseChapter(Tokens tokens, int lineNumber);

  /// A command without arguments (`stop`, `render`): anything after the word is an error.
  template <typename Instruction>
  static ScriptInstruction parseBare(Tokens tokens, int lineNumber) {
    expectNoArguments(tokens, lineNumber);
    return Instruction{};
  }
  /// Throws "Unexpected '<token>' in <command>" for a token after the command word.
  static void expectNoArguments(Tokens tokens, int lineNumber);
};

}  // namespace brimble
