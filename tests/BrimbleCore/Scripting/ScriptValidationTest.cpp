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
  EXPECT_EQ(validate("set pace fast\nrecord $w\nset pace demo\nset pace $mine").warnings,
            (Lines{fast}));
  // In a CRLF file lines count as the lexer counts them: 1, 3, 5.
  const std::string demo =
      "Warning: line 3: unknown pace preset 'Demo' (expected: tutorial, demo, cinematic)";
  EXPECT_EQ(validate("record $w\r\nset pace Demo").warnings, (Lines{demo}));
}

TEST(ScriptValidation, SettingsTheEngineWouldIgnoreAreReported) {
  const ScriptValidation result = validate(
      "record $w\n"
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
      "set palette-strategy perFrame\n");
  const std::string fps =
      "Warning: line 3: invalid value '25' for setting 'fps' (expected: 12, 24, 30, 60)";
  const std::string cleanup =
      "Warning: line 4: invalid value 'maybe' for setting 'cleanup' (expected true or false)";
  const std::string width =
      "Warning: line 5: invalid value 'wide' for setting 'max-width' (expected an integer)";
  const std::string transition =
      "Warning: line 6: invalid value 'soon' for setting 'transition' (expected a number)";
  const std::string palette =
      "Warning: line 7: invalid value 'per-frame' for setting 'palette-strategy' (expected: "
      "auto, global, perFrame)";
  EXPECT_EQ(result.warnings, (Lines{"Warning: line 2: unknown setting 'max-widht'", fps, cleanup,
                                    width, transition, palette}));
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
