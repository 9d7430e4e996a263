// The published document is checked through `brimble settings --json` (ScriptCommandsTest.cpp);
// which values the engine would ignore, and the pace presets' names, through `validate` in
// ScriptValidationTest.cpp; what a preset sets through the context in ScriptContextTest.cpp.

#include "BrimbleCore/Scripting/ScriptSettings.h"

#include <gtest/gtest.h>

namespace brimble {
namespace {

TEST(ScriptSettings, TextConvertsAsTheSettingsAreRead) {
  for (const char* yes : {"true", "YES", " On ", "1"}) {
    EXPECT_EQ(boolFromSettingText(yes), true) << yes;
  }
  for (const char* no : {"false", "No", "off", "0"}) {
    EXPECT_EQ(boolFromSettingText(no), false) << no;
  }
  EXPECT_EQ(boolFromSettingText("maybe"), std::nullopt);
  EXPECT_EQ(intFromSettingText(" +3 "), 3);
  EXPECT_EQ(intFromSettingText("-3"), -3);
  for (const char* notAnInteger : {"+-3", "30.5", "99999999999", ""}) {
    EXPECT_EQ(intFromSettingText(notAnInteger), std::nullopt) << notAnInteger;
  }
  EXPECT_EQ(doubleFromSettingText("0.25"), 0.25);
  EXPECT_EQ(doubleFromSettingText("fast"), std::nullopt);
}

}  // namespace
}  // namespace brimble
