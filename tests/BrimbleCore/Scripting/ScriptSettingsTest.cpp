// Which values the engine would ignore, and the pace presets' names, are checked through `validate`
// in ScriptValidationTest.cpp; what a preset sets through the context in ScriptContextTest.cpp.

#include "BrimbleCore/Scripting/ScriptSettings.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace brimble {
namespace {

TEST(ScriptSettings, PublishedDocumentHasTypedDefaultsAndEnums) {
  const nlohmann::json list = nlohmann::json::parse(settingsDocumentJSON()).at("settings");
  ASSERT_EQ(list.size(), 21u);
  for (const auto& [index, entry] : std::vector<std::pair<int, std::string>>{
           {0, R"({"name": "fps", "type": "integer", "default": 30, "enum": [12, 24, 30, 60]})"},
           {4, R"({"name": "transition", "type": "number", "default": 0.3})"},
           {5, R"({"name": "show-cursor", "type": "boolean", "default": true})"},
           {11, R"({"name": "idle-strategy", "type": "string", "default": null,
                    "enum": ["fade", "cut", "ramp"]})"},
           {13, R"({"name": "palette-strategy", "type": "string", "default": "auto",
                    "enum": ["auto", "global", "perFrame"]})"},
       }) {
    EXPECT_EQ(list.at(index), nlohmann::json::parse(entry)) << index;
  }
  // Whole numbers are written without a fraction.
  EXPECT_NE(settingsDocumentJSON().find(R"("name":"idle-threshold","type":"number","default":2})"),
            std::string::npos);
}

TEST(ScriptSettings, TitleCardColoursAreKnownOutsideTheTable) {
  EXPECT_TRUE(isKnownSetting("intro-fg"));
  EXPECT_EQ(findScriptSetting("intro-fg"), nullptr);
  EXPECT_FALSE(isKnownSetting("max-widht"));
}

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
