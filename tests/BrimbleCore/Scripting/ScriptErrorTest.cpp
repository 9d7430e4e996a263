#include "BrimbleCore/Scripting/ScriptError.h"

#include <string>

#include <gtest/gtest.h>

namespace brimble {
namespace {

TEST(ScriptError, LineBoundDescriptions) {
  EXPECT_STREQ(ScriptError::parseError(3, "Expected command").what(), "Line 3: Expected command");
  EXPECT_STREQ(ScriptError::parseError(3, "Bad thing", "try this").what(),
               "Line 3: Bad thing\n  try this");
  EXPECT_STREQ(ScriptError::unknownCommand(7, "Frob").what(), "Line 7: Unknown command 'Frob'");
  EXPECT_STREQ(ScriptError::missingArgument(2, "type", "text").what(),
               "Line 2: 'type' requires text");
  EXPECT_STREQ(ScriptError::invalidValue(4, "tilt", "zoom mode").what(),
               "Line 4: Invalid value 'tilt' for 'zoom mode'");
  EXPECT_STREQ(ScriptError::undefinedVariable(5, "missing").what(),
               "Line 5: Undefined variable '$missing'");
  EXPECT_STREQ(ScriptError::runtimeError(6, "$out[9] out of range").what(),
               "Line 6: $out[9] out of range");
}

TEST(ScriptError, DescriptionsWithoutALine) {
  EXPECT_STREQ(ScriptError::permissionDenied("no display").what(), "Permission denied: no display");
  EXPECT_STREQ(ScriptError::windowNotFound("Terminal").what(), "Window not found: Terminal");
  EXPECT_STREQ(ScriptError::fileNotFound("/tmp/x.brim").what(),
               "Script file not found: /tmp/x.brim");
  EXPECT_STREQ(ScriptError::encodingFailed().what(), "GIF encoding failed");
  EXPECT_EQ(ScriptError::encodingFailed().line(), 0);
}

TEST(ScriptError, CommandFailureShowsTheStartOfStandardErrorOrTheExitCode) {
  EXPECT_STREQ(ScriptError::commandFailed(1, "false", 1, "").what(),
               "Line 1: Command 'false' failed (exit 1): exit code 1");
  EXPECT_STREQ(ScriptError::commandFailed(2, "ls /x", 2, "ls: cannot access '/x'").what(),
               "Line 2: Command 'ls /x' failed (exit 2): ls: cannot access '/x'");
  EXPECT_EQ(ScriptError::commandFailed(2, "c", -3, "").exitCode(), -3);

  // 200 characters of detail, counted as characters: "é" is two bytes in UTF-8.
  const std::string ascii(250, 'a');
  EXPECT_EQ(std::string(ScriptError::commandFailed(1, "c", 9, ascii).what()),
            "Line 1: Command 'c' failed (exit 9): " + std::string(200, 'a'));
  std::string accented;
  for (int i = 0; i < 150; ++i) {
    accented += "é";
  }
  std::string expected;
  for (int i = 0; i < 150; ++i) {
    expected += "é";
  }
  EXPECT_EQ(std::string(ScriptError::commandFailed(1, "c", 9, accented + ascii).what()),
            "Line 1: Command 'c' failed (exit 9): " + expected + std::string(50, 'a'));
}

TEST(ScriptError, TimeOutShowsWholeSecondsTruncated) {
  EXPECT_STREQ(ScriptError::commandTimeout(4, "sleep 5", 2).what(),
               "Line 4: Command 'sleep 5' timed out after 2s");
  EXPECT_STREQ(ScriptError::commandTimeout(4, "sleep 5", 2.9).what(),
               "Line 4: Command 'sleep 5' timed out after 2s");
  EXPECT_STREQ(ScriptError::commandTimeout(4, "sleep 5", 0.5).what(),
               "Line 4: Command 'sleep 5' timed out after 0s");
  EXPECT_STREQ(ScriptError::commandTimeout(4, "sleep 5", 1e20).what(),
               "Line 4: Command 'sleep 5' timed out after 100000000000000000000s");
}

TEST(ScriptError, AnnotatedShowsTheLineAndACaretUnderTheColumn) {
  const ScriptError inner = ScriptError::unknownCommand(3, "frob");
  const ScriptError error = ScriptError::annotated(inner, 5, "  x frob");
  EXPECT_STREQ(error.what(), "Line 3, Col 5: Unknown command 'frob'\n    x frob\n      ^");
  EXPECT_EQ(error.code(), ScriptError::Code::annotated);
  EXPECT_EQ(error.bareMessage(), "Unknown command 'frob'");
  EXPECT_EQ(error.inner()->code(), ScriptError::Code::unknownCommand);

  // A column below 1 counts as 1, and annotating twice changes nothing.
  const ScriptError clamped = ScriptError::annotated(inner, -4, "frob");
  EXPECT_STREQ(clamped.what(), "Line 3, Col 1: Unknown command 'frob'\n  frob\n  ^");
  EXPECT_STREQ(ScriptError::annotated(clamped, 9, "other").what(), clamped.what());

  // A detail stays between the message and the quoted line.
  EXPECT_STREQ(ScriptError::annotated(ScriptError::parseError(1, "Bad", "hint"), 2, "ab").what(),
               "Line 1, Col 2: Bad\n  hint\n  ab\n   ^");
}

}  // namespace
}  // namespace brimble
