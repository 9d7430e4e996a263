// The texts of the parser's errors are checked, located, in ScriptParserTest.cpp; those of a
// variable that is undefined or out of range in ScriptContextTest.cpp; failed and timed-out
// commands in ShellCommandTest.cpp. What is left are the edges of the formatting.

#include "BrimbleCore/Scripting/ScriptError.h"

#include <string>

#include <gtest/gtest.h>

namespace brimble {
namespace {

TEST(ScriptError, CommandFailuresCutStandardErrorAt200CharactersAndTimeOutsTruncateSeconds) {
  std::string accented;  // "é" is two bytes in UTF-8
  for (int i = 0; i < 150; ++i) {
    accented += "é";
  }
  EXPECT_STREQ(ScriptError::commandFailed(1, "c", 9, accented + std::string(250, 'a')).what(),
               ("Line 1: Command 'c' failed (exit 9): " + accented + std::string(50, 'a')).c_str());
  EXPECT_STREQ(ScriptError::commandFailed(1, "false", 1, "").what(),
               "Line 1: Command 'false' failed (exit 1): exit code 1");
  EXPECT_STREQ(ScriptError::commandTimeout(4, "sleep 5", 2.9).what(),
               "Line 4: Command 'sleep 5' timed out after 2s");
  // Far past any integer type: still the whole number, not an overflow.
  EXPECT_STREQ(ScriptError::commandTimeout(4, "sleep 5", 1e20).what(),
               "Line 4: Command 'sleep 5' timed out after 100000000000000000000s");
}

TEST(ScriptError, AnnotatedShowsTheLineAndACaretUnderTheColumn) {
  const ScriptError inner = ScriptError::unknownCommand(3, "frob");
  EXPECT_STREQ(ScriptError::annotated(inner, 5, "  x frob").what(),
               "Line 3, Col 5: Unknown command 'frob'\n    x frob\n      ^");
  // A column below 1 counts as 1, and annotating twice changes nothing.
  const ScriptError clamped = ScriptError::annotated(inner, -4, "frob");
  EXPECT_STREQ(clamped.what(), "Line 3, Col 1: Unknown command 'frob'\n  frob\n  ^");
  EXPECT_STREQ(ScriptError::annotated(clamped, 9, "other").what(), clamped.what());
}

}  // namespace
}  // namespace brimble
