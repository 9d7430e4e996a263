// The texts of the parser's errors are checked, located, in ScriptParserTest.cpp; those of a
// variable that is undefined or out of range in ScriptContextTest.cpp.

#include "BrimbleCore/Scripting/ScriptError.h"

#include <string>

#include <gtest/gtest.h>

namespace brimble {
namespace {

TEST(ScriptError, DescriptionsWithAndWithoutALine) {
  const std::pair<ScriptError, std::string> cases[] = {
      {ScriptError::runtimeError(6, "$out[9] out of range"), "Line 6: $out[9] out of range"},
      {ScriptError::permissionDenied("no display"), "Permission denied: no display"},
      {ScriptError::windowNotFound("Terminal"), "Window not found: Terminal"},
      {ScriptError::fileNotFound("/tmp/x.brim"), "Script file not found: /tmp/x.brim"},
      {ScriptError::encodingFailed(), "GIF encoding failed"},
      {ScriptError::commandFailed(1, "false", 1, ""),
       "Line 1: Command 'false' failed (exit 1): exit code 1"},
      // The time-out's seconds are truncated.
      {ScriptError::commandTimeout(4, "sleep 5", 2.9),
       "Line 4: Command 'sleep 5' timed out after 2s"},
      {ScriptError::commandTimeout(4, "sleep 5", 0.5),
       "Line 4: Command 'sleep 5' timed out after 0s"},
      {ScriptError::commandTimeout(4, "sleep 5", 1e20),
       "Line 4: Command 'sleep 5' timed out after 100000000000000000000s"},
  };
  for (const auto& [error, text] : cases) {
    EXPECT_EQ(error.what(), text);
  }
  EXPECT_EQ(ScriptError::commandFailed(2, "c", -3, "").exitCode(), -3);
}

TEST(ScriptError, CommandFailuresShowTheFirst200CharactersOfStandardError) {
  std::string accented;  // "é" is two bytes in UTF-8
  for (int i = 0; i < 150; ++i) {
    accented += "é";
  }
  EXPECT_EQ(ScriptError::commandFailed(1, "c", 9, accented + std::string(250, 'a')).what(),
            "Line 1: Command 'c' failed (exit 9): " + accented + std::string(50, 'a'));
}

TEST(ScriptError, AnnotatedShowsTheLineAndACaretUnderTheColumn) {
  const ScriptError inner = ScriptError::unknownCommand(3, "frob");
  const ScriptError error = ScriptError::annotated(inner, 5, "  x frob");
  EXPECT_STREQ(error.what(), "Line 3, Col 5: Unknown command 'frob'\n    x frob\n      ^");
  EXPECT_EQ(error.code(), ScriptError::Code::annotated);
  EXPECT_EQ(error.column(), 5);
  EXPECT_EQ(error.inner()->code(), ScriptError::Code::unknownCommand);
  // A column below 1 counts as 1, and annotating twice changes nothing.
  const ScriptError clamped = ScriptError::annotated(inner, -4, "frob");
  EXPECT_STREQ(clamped.what(), "Line 3, Col 1: Unknown command 'frob'\n  frob\n  ^");
  EXPECT_STREQ(ScriptError::annotated(clamped, 9, "other").what(), clamped.what());
}

}  // namespace
}  // namespace brimble
