// A parse error, located, is checked through `brimble validate` in
// tests/cli/ScriptCommandsTest.cpp.

#include "BrimbleCore/Scripting/ScriptValidation.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace brimble {
namespace {

using Lines = std::vector<std::string>;

TEST(ScriptValidation, WarnsOfAMissingRecordAndOfCodeAfterRender) {
  EXPECT_EQ(validate("set fps 24\nopen Terminal\nwait 1\n").lines(),
            (Lines{"Warning: script has no 'record' commands", "Valid: 3 instructions"}));
  EXPECT_EQ(validate("").lines(),
            (Lines{"Warning: script has no 'record' commands", "Valid: 0 instructions"}));
  EXPECT_EQ(validate("capture-window app Terminal as $t\nrecord $t duration 2\nrender\n\nwait "
                     "1\nrender\n")
                .lines(),
            (Lines{"Warning: line 5: unreachable code after 'render' on line 3",
                   "Valid: 5 instructions", "  Explicit render: yes"}));
}

TEST(ScriptValidation, UnknownPacePresetsAreNamedWithTheChoices) {
  const std::string fast =
      "Warning: line 1: unknown pace preset 'fast' (expected: tutorial, demo, cinematic)";
  EXPECT_EQ(validate("set pace fast\nrecord region 0 0 9 9\nset pace demo\nset pace Demo2").warnings,
            (Lines{fast, "Warning: line 4: unknown pace preset 'Demo2' (expected: tutorial, demo, "
                         "cinematic)"}));
  // In a CRLF file lines count as the lexer counts them: 1, 3, 5.
  const std::string demo =
      "Warning: line 3: unknown pace preset 'Demo' (expected: tutorial, demo, cinematic)";
  EXPECT_EQ(validate("record region 0 0 9 9\r\nset pace Demo").warnings, (Lines{demo}));
}

TEST(ScriptValidation, SettingsTheEngineWouldIgnoreAreReported) {
  const ParsedScript result = validate(
      "record region 0 0 9 9\n"
      "set max-widht 400\n"
      "set fps 25\n"
      "set cleanup maybe\n"
      "set max-width wide\n"
      "set transition soon\n"
      "set palette-strategy per-frame\n"
      "set fps \"$rate\"\n"
      "set intro-bg \"#1a1a2e\"\n"
      "set cleanup Off\n"
      "set fps 24\n"
      "set palette-strategy perFrame\n"
      "set max-width -5\n"
      "set typing-delay -0.1\n");
  const std::string fps =
      "Warning: line 3: invalid value '25' for setting 'fps' (expected: 12, 24, 30, 60)";
  const std::string cleanup =
      "Warning: line 4: invalid value 'maybe' for setting 'cleanup' (expected true or false)";
  const std::string width =
      "Warning: line 5: invalid value 'wide' for setting 'max-width' (expected an integer of at "
      "least 16)";
  const std::string transition =
      "Warning: line 6: invalid value 'soon' for setting 'transition' (expected a number of at "
      "least 0)";
  const std::string palette =
      "Warning: line 7: invalid value 'per-frame' for setting 'palette-strategy' (expected: "
      "auto, global, perFrame)";
  EXPECT_EQ(result.warnings,
            (Lines{"Warning: line 2: unknown setting 'max-widht'", fps, cleanup, width, transition,
                   palette,
                   "Warning: line 13: invalid value '-5' for setting 'max-width' (expected an "
                   "integer of at least 16)",
                   "Warning: line 14: invalid value '-0.1' for setting 'typing-delay' (expected "
                   "a number of at least 0)"}));
}

TEST(ScriptValidation, LinesThatWouldMisbehaveSilentlyAreReported) {
  const ParsedScript result = validate(
      "type $name\n"                          // read before anything sets it
      "run \"whoami\" as $name\n"
      "type $name\n"
      "type \"$HOME and $exitcode\"\n"     // inside strings: the shell's own, left alone
      "type $_exitcode\n"
      "record $term\n"                       // a window nothing captured
      "capture-window app Terminal as $term\n"
      "record $term crop 0 0 $w 10\n"        // read once, reported once
      "spotlight stdout $w[1]\n"
      "spotlight stdout $name[1]\n"
      "key foo+a\n"
      "key cmd+shift+t\n"
      "key ctrl+nokey\n"
      "wait -1\n"
      "wait-for-idle -2\n"
      "wait 0\n");
  EXPECT_EQ(result.warnings,
            (Lines{"Warning: line 1: variable '$name' is used before anything sets it (with "
                   "'as $name' or 'run')",
                   "Warning: line 6: variable '$term' is used before anything sets it (with "
                   "'as $term' or 'run')",
                   "Warning: line 8: variable '$w' is used before anything sets it (with 'as $w' "
                   "or 'run')",
                   "Warning: line 11: unknown modifier 'foo' in 'foo+a' is left out (known: cmd, "
                   "ctrl, alt, shift, super)",
                   "Warning: line 13: unknown key 'nokey' in 'ctrl+nokey'",
                   "Warning: line 14: a negative wait (-1 s) waits nothing",
                   "Warning: line 15: a negative wait (-2 s) waits nothing"}));
}

TEST(ScriptValidation, CommandsThisPlatformCannotRunAreReported) {
  const std::string safari =
      "Warning: line 3: Safari is not available on this platform; use 'browser chrome'";
  EXPECT_EQ(
      validate("record simulator duration 2\ntap 10 20\nbrowser safari \"https://x\"\n"
               "browser chrome \"https://x\"")
          .warnings,
      (Lines{"Warning: line 1: Simulator capture is not available on this platform.",
             "Warning: line 2: Simulator capture is not available on this platform.", safari}));
}

}  // namespace
}  // namespace brimble
