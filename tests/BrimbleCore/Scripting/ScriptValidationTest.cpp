// A parse error, located, is checked through `brimble validate` in
// tests/cli/ScriptCommandsTest.cpp.

#include "BrimbleCore/Scripting/ScriptValidation.h"

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "tests/Support/ErrorText.h"

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
  EXPECT_EQ(
      validate("set pace fast\nrecord region 0 0 9 9\nset pace demo\nset pace Demo2").warnings,
      (Lines{fast,
             "Warning: line 4: unknown pace preset 'Demo2' (expected: tutorial, demo, "
             "cinematic)"}));
  // In a CRLF file lines count as the lexer counts them: 1, 3, 5.
  const std::string demo =
      "Warning: line 3: unknown pace preset 'Demo' (expected: tutorial, demo, cinematic)";
  EXPECT_EQ(validate("record region 0 0 9 9\r\nset pace Demo").warnings, (Lines{demo}));
}

// The check's refusal of a script, with its located message.
std::string refusal(const std::string& source) {
  return testing::errorText<ScriptError>([&] { validate(source); });
}

TEST(ScriptValidation, SettingsTheEngineWouldIgnoreStopTheScriptWithTheNearestName) {
  EXPECT_EQ(refusal("record region 0 0 9 9\nset outptu \"x.gif\""),
            "Line 2, Col 5: Unknown setting 'outptu'; did you mean 'output'?\n"
            "  set outptu \"x.gif\"\n"
            "      ^");
  EXPECT_EQ(refusal("set max-widht 400"),
            "Line 1, Col 5: Unknown setting 'max-widht'; did you mean 'max-width'?\n"
            "  set max-widht 400\n"
            "      ^");
  EXPECT_EQ(refusal("wait 1\nRecrod region 0 0 9 9"),
            "Line 2, Col 1: Unknown command 'Recrod'; did you mean 'record'?\n"
            "  Recrod region 0 0 9 9\n"
            "  ^");
  EXPECT_EQ(refusal("rn \"ls\""),
            "Line 1, Col 1: Unknown command 'rn'; did you mean 'run'?\n"
            "  rn \"ls\"\n"
            "  ^");
  EXPECT_EQ(refusal("set zebra 1"),
            "Line 1, Col 5: Unknown setting 'zebra'\n  set zebra 1\n      ^");
  // Values: each is refused the way the engine would otherwise have ignored it.
  const std::vector<std::pair<std::string, std::string>> values = {
      {"set fps 25", "Invalid value '25' for setting 'fps' (expected: 12, 24, 30, 60)"},
      {"set cleanup maybe", "Invalid value 'maybe' for setting 'cleanup' (expected true or false)"},
      {"set max-width wide",
       "Invalid value 'wide' for setting 'max-width' (expected an integer of at least 16)"},
      {"set transition soon",
       "Invalid value 'soon' for setting 'transition' (expected a number of at least 0)"},
      {"set palette-strategy per-frame",
       "Invalid value 'per-frame' for setting 'palette-strategy' (expected: auto, global, "
       "perFrame); did you mean 'perFrame'?"},
      {"set idle-strategy cutt",
       "Invalid value 'cutt' for setting 'idle-strategy' (expected: fade, cut, ramp); did you "
       "mean 'cut'?"},
      {"set max-width -5",
       "Invalid value '-5' for setting 'max-width' (expected an integer of at least 16)"},
      {"set typing-delay -0.1",
       "Invalid value '-0.1' for setting 'typing-delay' (expected a number of at least 0)"},
  };
  for (const auto& [line, message] : values) {
    const std::string error = refusal(line);
    EXPECT_EQ(error.substr(0, error.find('\n')),
              "Line 1, Col " + std::to_string(line.rfind(' ') + 2) + ": " + message)
        << line;
  }
  // What the engine will use, and values only known when the line runs, pass.
  const ParsedScript accepted = validate(
      "record region 0 0 9 9\n"
      "run \"echo 24\" as $rate\n"
      "set fps \"$rate\"\n"
      "set intro-bg \"#1a1a2e\"\n"
      "set cleanup Off\n"
      "set fps 24\n"
      "set palette-strategy perFrame\n");
  EXPECT_EQ(accepted.warnings, Lines{});
}

TEST(ScriptValidation, UnknownKeysAndModifiersStopTheScriptWithTheNearestName) {
  EXPECT_EQ(refusal("key ctrl+shfit+t"),
            "Line 1, Col 5: Unknown modifier 'shfit' in 'ctrl+shfit+t' (known: cmd, ctrl, alt, "
            "shift, super); did you mean 'shift'?\n"
            "  key ctrl+shfit+t\n"
            "      ^");
  EXPECT_TRUE(refusal("key foo+a").starts_with("Line 1, Col 5: Unknown modifier 'foo' in 'foo+a'"));
  EXPECT_EQ(refusal("key ctrl+entr"),
            "Line 1, Col 5: Unknown key 'entr' in 'ctrl+entr'; did you mean 'enter'?\n"
            "  key ctrl+entr\n"
            "      ^");
  EXPECT_EQ(refusal("record region 0 0 9 9\nkey   \"pagdown\""),
            "Line 2, Col 8: Unknown key 'pagdown' in 'pagdown'; did you mean 'pagedown'?\n"
            "  key   \"pagdown\"\n"
            "         ^");
  EXPECT_EQ(validate("record region 0 0 9 9\nkey cmd+shift+t\nkey super+f5\nkey $k\n").warnings,
            Lines{"Warning: line 4: variable '$k' is used before anything sets it (with 'as $k' or "
                  "'run')"});
}

TEST(ScriptValidation, AWaitForTextPatternIsCheckedBeforeTheScriptRuns) {
  EXPECT_TRUE(refusal("record region 0 0 9 9\nwait-for-text \"[0-9\" timeout 2")
                  .starts_with("Line 2, Col 16: Invalid wait-for-text pattern '[0-9': "))
      << refusal("record region 0 0 9 9\nwait-for-text \"[0-9\" timeout 2");
  EXPECT_EQ(validate("record region 0 0 9 9\nwait-for-text \"^READY\\\\$\" in line\n").warnings,
            Lines{});
  // A pattern a variable gives is checked when its line runs; the variable is checked now.
  EXPECT_EQ(validate("record region 0 0 9 9\nwait-for-text $p\n").warnings,
            Lines{"Warning: line 2: variable '$p' is used before anything sets it (with 'as $p' or "
                  "'run')"});
}

TEST(ScriptValidation, LinesThatWouldMisbehaveSilentlyAreReported) {
  ::setenv("BRIMBLE_TEST_SHELL_VARIABLE", "1", 1);
  const ParsedScript result = validate(
      "type $name\n"  // read before anything sets it
      "run \"whoami\" as $name\n"
      "type $name\n"
      "type \"$name and $exitcode\"\n"  // typed as written: most likely a mistake
      "type $_exitcode\n"
      "record $term\n"  // a window nothing captured
      "capture-window app Terminal as $term\n"
      "record $term crop 0 0 $w 10\n"  // read once, reported once
      "spotlight stdout $w[1]\n"
      "spotlight stdout $name[1]\n"
      "type \"echo \\$HOME costs \\$5\"\n"                        // written as dollar signs
      "run \"echo $BRIMBLE_TEST_SHELL_VARIABLE $name_stderr\"\n"  // the shell's, and run's
      "run \"echo $nowhere\"\n"
      "type \"$exitcode\"\n"
      "wait -1\n"
      "wait-for-idle -2\n"
      "wait 0\n");
  EXPECT_EQ(result.warnings,
            (Lines{"Warning: line 1: variable '$name' is used before anything sets it (with "
                   "'as $name' or 'run')",
                   "Warning: line 4: '$exitcode' names no variable set before this line, so it "
                   "stays as written (a dollar sign that names no variable is written \\$)",
                   "Warning: line 6: variable '$term' is used before anything sets it (with "
                   "'as $term' or 'run')",
                   "Warning: line 8: variable '$w' is used before anything sets it (with 'as $w' "
                   "or 'run')",
                   "Warning: line 13: '$nowhere' names no variable set before this line, so the "
                   "shell reads it (a dollar sign that names no variable is written \\$)",
                   "Warning: line 15: a negative wait (-1 s) waits nothing",
                   "Warning: line 16: a negative wait (-2 s) waits nothing"}));
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
