#include "BrimbleCore/Scripting/TapeParser.h"

#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Scripting/ScriptValidation.h"
#include "tests/Support/ErrorText.h"

namespace brimble {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

std::string valueText(const ScriptValue& value) {
  return value.kind == ScriptValue::Kind::number ? formatScriptNumber(value.value)
                                                 : "\"" + value.text + "\"";
}

// Each instruction as "LINE what", in the words of the `.brim` command that does the same.
std::vector<std::string> described(const std::vector<LocatedInstruction>& instructions) {
  std::vector<std::string> lines;
  for (const LocatedInstruction& located : instructions) {
    const std::string what = std::visit(
        [](const auto& instruction) -> std::string {
          using T = std::decay_t<decltype(instruction)>;
          if constexpr (std::is_same_v<T, SetInstruction>) {
            return "set " + instruction.name + " " + valueText(instruction.value);
          } else if constexpr (std::is_same_v<T, OutputInstruction>) {
            return "output " + valueText(instruction.path);
          } else if constexpr (std::is_same_v<T, RequireInstruction>) {
            return "require " + valueText(instruction.program);
          } else if constexpr (std::is_same_v<T, EnvInstruction>) {
            return "env " + instruction.name + " " + valueText(instruction.value);
          } else if constexpr (std::is_same_v<T, OpenInstruction>) {
            return "open " + valueText(instruction.app);
          } else if constexpr (std::is_same_v<T, CaptureWindowInstruction>) {
            return "capture-window " + valueText(instruction.window.value) + " as $" +
                   instruction.variable.value_or("");
          } else if constexpr (std::is_same_v<T, RecordInstruction>) {
            return "record $" + instruction.target.variable +
                   (instruction.continues ? " continue" : "");
          } else if constexpr (std::is_same_v<T, TypeInstruction>) {
            return "type " + valueText(instruction.text) + " delay " +
                   (instruction.delay ? valueText(*instruction.delay) : "-");
          } else if constexpr (std::is_same_v<T, KeyInstruction>) {
            return "key " + instruction.keyChord.text;
          } else if constexpr (std::is_same_v<T, WaitInstruction>) {
            return "wait " + valueText(instruction.seconds);
          } else if constexpr (std::is_same_v<T, WaitForTextInstruction>) {
            return "wait-for-text " + valueText(instruction.pattern) + " timeout " +
                   valueText(instruction.timeout) + (instruction.lastLine ? " in line" : "");
          } else if constexpr (std::is_same_v<T, ScrollInstruction>) {
            return std::string("scroll ") +
                   (instruction.direction == ScrollDirection::up ? "up" : "down");
          } else if constexpr (std::is_same_v<T, HideInstruction>) {
            return "hide";
          } else if constexpr (std::is_same_v<T, ShowInstruction>) {
            return "show";
          } else if constexpr (std::is_same_v<T, ScreenshotInstruction>) {
            return "screenshot " + valueText(instruction.path);
          } else if constexpr (std::is_same_v<T, IncludeInstruction>) {
            return "include \"" + instruction.file + "\"";
          } else {
            return "?";
          }
        },
        located.instruction);
    lines.push_back(std::to_string(located.line) + " " + what);
  }
  return lines;
}

std::string tapeError(const std::string& source) {
  return testing::errorText<ScriptError>([&] { TapeParser::parse(source); });
}

TEST(TapeParser, ATapeIsADressedTerminalRecordedFromItsFirstCommand) {
  const TapeScript tape = TapeParser::parse(R"(# A tape in the format's own style.
Output demo.gif
Output "frames/"
Set FontSize 32
Set Width 800
set height 400   # names in any case
Set Margin 20
Set WindowBar ColorfulRight
Set Theme { "background": "#101010",
  "foreground": "#eeeeee" }
Set LetterSpacing 2
Require git
Type "echo 'hi'" Sleep 500ms Enter
Env GREETING "hello $USER"
Set TypingSpeed 10ms
Type@100ms `say "x"`
Backspace@.2s 2
Ctrl+Shift+C
Wait+Screen@5s /ready \/ go/
Wait
Copy "pasted"
Paste
ScrollUp 1
Screenshot shot.png
)");
  EXPECT_THAT(
      described(tape.instructions),
      ElementsAreArray(std::vector<std::string>{
          // What must be known before the terminal opens, wherever the tape says it.
          "2 output \"demo.gif\"",
          "3 output \"frames/\"",
          "12 require \"git\"",
          "14 env GREETING \"hello $USER\"",
          // The whole frame is 800 x 400: the margin and the bar take their part of it.
          "13 set max-width 800",
          "13 set include-title-bar \"false\"",
          "13 set show-cursor \"false\"",
          "13 set transition 0",
          "13 set fps 30",
          "13 set typing-delay 0.05",
          "13 set terminal-width 760",
          "13 set terminal-height 320",
          "13 set terminal-padding 60",
          "13 set terminal-font-size 32",
          "13 set terminal-theme \"{ \"background\": \"#101010\",\n  \"foreground\": \"#eeeeee\" "
          "}\"",
          "13 set terminal-shell \"bash\"",
          "13 set terminal-prompt \"> \"",
          "13 set window-bar \"colorful-right\"",
          "13 set window-bar-size 40",
          "13 set margin 20",
          "13 open \"Terminal\"",
          "13 capture-window \"Terminal\" as $tape",
          "13 wait-for-text \">$\" timeout 15 in line",
          "13 record $tape continue",
          // Several commands on a line; each key waits the typing speed (or its own) after it.
          "13 type \"echo 'hi'\" delay 0.05",
          "13 wait 0.5",
          "13 key enter",
          "13 wait 0.05",
          "15 set typing-delay 0.01",
          "16 type \"say \"x\"\" delay 0.1",
          "17 key backspace",
          "17 wait 0.2",
          "17 key backspace",
          "17 wait 0.2",
          "18 key ctrl+shift+c",
          "18 wait 0.01",
          "19 wait-for-text \"ready / go\" timeout 5",
          "20 wait-for-text \">$\" timeout 15 in line",
          "22 type \"pasted\" delay 0",
          "23 scroll up",
          "23 wait 0.01",
          "24 screenshot \"shot.png\"",
      }));
  // Lines keep the tape's text; a `$` in a tape is the shell's, never a variable.
  EXPECT_EQ(tape.instructions[3].source, "Env GREETING \"hello $USER\"");
  const auto& env = std::get<EnvInstruction>(tape.instructions[3].instruction);
  EXPECT_TRUE(env.value.namesInText().empty());
  EXPECT_THAT(tape.warnings, ElementsAre(HasSubstr("line 11: LetterSpacing is left as the font")));
}

TEST(TapeParser, HiddenSetupRecordsFromShowAndASourcedTapeBringsOnlyItsCommands) {
  const TapeScript hidden = TapeParser::parse("Hide\nType \"cd /tmp\" Enter\nShow\nSleep 1\n");
  const std::vector<std::string> lines = described(hidden.instructions);
  const auto at = [&](const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) - lines.begin();
  };
  // Recording is asked for while hidden, so it starts at `show`, from the screen as it is then.
  EXPECT_LT(at("1 hide"), at("1 record $tape continue"));
  EXPECT_LT(at("1 record $tape continue"), at("3 show"));
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "1 hide"), 1);

  const TapeScript sourced = TapeParser::parse(
      "Output other.gif\nSet FontSize 40\nSet TypingSpeed 20ms\nType \"ls\"\nSource more.tape\n",
      TapeParser::Role::sourced);
  EXPECT_THAT(described(sourced.instructions),
              ElementsAre("3 set typing-delay 0.02", "4 type \"ls\" delay 0.02",
                          "5 include \"more.tape\""));
}

TEST(TapeParser, MistakesGetALineNumberAndACaretUnderTheirToken) {
  const std::pair<std::string, std::string> cases[] = {
      {"Type \"x\"\nTpye \"y\"",
       "Line 2, Col 1: Unknown command 'Tpye'; did you mean 'Type'?\n  Tpye \"y\"\n  ^"},
      {"Sleep 5 Enter@fast",
       "Line 1, Col 9: Invalid value 'fast' for 'Enter speed'\n  expected a time such as 500ms or "
       "2s\n  Sleep 5 Enter@fast\n          ^"},
      {"Type \"x\"\nSet FontSize 20",
       "Line 2, Col 5: 'Set FontSize' must come before the tape's commands (only TypingSpeed may "
       "change later)\n  Set FontSize 20\n      ^"},
      {"Set FontSzie 20",
       "Line 1, Col 5: Unknown setting 'FontSzie'; did you mean 'FontSize'?\n  Set FontSzie 20\n "
       "     ^"},
      {"Set Width wide",
       "Line 1, Col 11: Invalid value 'wide' for 'Width'\n  expected a whole number of pixels\n  "
       "Set Width wide\n            ^"},
      {"Set WindowBar Colourful",
       "Line 1, Col 15: Invalid value 'Colourful' for 'WindowBar'\n  expected Colorful, "
       "ColorfulRight, Rings or RingsRight\n  Set WindowBar Colourful\n                ^"},
      {"Paste", "Line 1, Col 1: 'Paste' has nothing to paste: no 'Copy' before it\n  Paste\n  ^"},
      {"Type \"unclosed",
       "Line 1, Col 6: This quote is not closed on its line\n  Type \"unclosed\n       ^"},
      {"Wait /([/",
       "Line 1, Col 6: Invalid value '([' for 'Wait pattern'\n  expected a regular "
       "expression\n  Wait /([/\n       ^"},
      {"Type", "Line 1, Col 1: 'Type' requires text to type\n  Type\n  ^"},
      {"Type \"x\"\nRequire git",
       "Line 2, Col 1: 'Require' must come before the tape's commands\n  Require git\n  ^"},
      {"Set Width 300\nSet Padding 140\nType \"x\"",
       "Line 1, Col 11: A frame of 300x600 leaves no room for text inside Padding 140, Margin 0\n  "
       "Set Width 300\n            ^"},
  };
  for (const auto& [source, expected] : cases) {
    EXPECT_EQ(tapeError(source), expected) << source;
  }
}

TEST(TapeParser, ValidateReadsATapeByItsNameAndChecksWhatItBecomes) {
  const ParsedScript script = validate("Set Theme \"Dracula\"\nType \"x\"\n", "demo.tape");
  EXPECT_EQ(script.instructions.size(), 18u);
  EXPECT_THAT(script.warnings, ::testing::IsEmpty());
  // A theme that does not exist is found by the same check as in a `.brim` script, at the
  // tape's line.
  EXPECT_THAT(testing::errorText<ScriptError>(
                  [] { validate("Set Theme \"Drakula\"\nType \"x\"\n", "demo.TAPE"); }),
              HasSubstr("Invalid value 'Drakula' for setting 'terminal-theme'"));
  // The same text read as `.brim` is not a tape.
  EXPECT_THAT(testing::errorText<ScriptError>(
                  [] { validate("Set Theme \"Dracula\"\nType \"x\"\n", "demo.brim"); }),
              HasSubstr("Unknown setting"));
}

}  // namespace
}  // namespace brimble
