#include "BrimbleCore/Scripting/ScriptSettings.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Scripting/PacePreset.h"

namespace brimble {
namespace {

TEST(ScriptSettings, PublishedDocumentHasTypedDefaultsAndEnums) {
  const nlohmann::json document = nlohmann::json::parse(settingsDocumentJSON());
  const nlohmann::json& list = document.at("settings");
  ASSERT_EQ(list.size(), 21u);
  EXPECT_EQ(list.at(0), nlohmann::json::parse(
                            R"({"name": "fps", "type": "integer", "default": 30,
                                "enum": [12, 24, 30, 60]})"));
  EXPECT_EQ(list.at(1), nlohmann::json::parse(
                            R"({"name": "output", "type": "string", "default": "output.gif"})"));
  EXPECT_EQ(list.at(4),
            nlohmann::json::parse(R"({"name": "transition", "type": "number", "default": 0.3})"));
  EXPECT_EQ(list.at(5), nlohmann::json::parse(
                            R"({"name": "show-cursor", "type": "boolean", "default": true})"));
  EXPECT_EQ(list.at(11), nlohmann::json::parse(
                             R"({"name": "idle-strategy", "type": "string", "default": null,
                                 "enum": ["fade", "cut", "ramp"]})"));
  EXPECT_EQ(list.at(13), nlohmann::json::parse(
                             R"({"name": "palette-strategy", "type": "string", "default": "auto",
                                 "enum": ["auto", "global", "perFrame"]})"));
  EXPECT_EQ(list.at(16),
            nlohmann::json::parse(R"({"name": "run-timeout", "type": "number", "default": 30})"));
  EXPECT_EQ(list.at(17), nlohmann::json::parse(
                             R"({"name": "pace", "type": "string", "default": null,
                                 "enum": ["tutorial", "demo", "cinematic"]})"));
  EXPECT_EQ(list.at(20), nlohmann::json::parse(
                             R"({"name": "auto-pace-delay", "type": "number", "default": 0.8})"));
  // Whole numbers are written without a fraction.
  EXPECT_NE(settingsDocumentJSON().find(R"("name":"idle-threshold","type":"number","default":2})"),
            std::string::npos);
}

TEST(ScriptSettings, KnownSettingsIncludeTheTitleCardColours) {
  EXPECT_TRUE(isKnownSetting("max-width"));
  EXPECT_TRUE(isKnownSetting("intro-bg"));
  EXPECT_TRUE(isKnownSetting("intro-fg"));
  EXPECT_FALSE(isKnownSetting("max-widht"));
  EXPECT_EQ(findScriptSetting("intro-bg"), nullptr);
}

TEST(ScriptSettings, TextConversions) {
  for (const char* yes : {"true", "YES", " On ", "1"}) {
    EXPECT_EQ(boolFromSettingText(yes), true) << yes;
  }
  for (const char* no : {"false", "No", "off", "0"}) {
    EXPECT_EQ(boolFromSettingText(no), false) << no;
  }
  EXPECT_EQ(boolFromSettingText("maybe"), std::nullopt);
  EXPECT_EQ(intFromSettingText("24"), 24);
  EXPECT_EQ(intFromSettingText("-3"), -3);
  EXPECT_EQ(intFromSettingText(" +3 "), 3);
  EXPECT_EQ(intFromSettingText("+-3"), std::nullopt);
  EXPECT_EQ(intFromSettingText("30.5"), std::nullopt);
  EXPECT_EQ(intFromSettingText("99999999999"), std::nullopt);
  EXPECT_EQ(intFromSettingText(""), std::nullopt);
  EXPECT_EQ(doubleFromSettingText("0.25"), 0.25);
  EXPECT_EQ(doubleFromSettingText("fast"), std::nullopt);
}

TEST(ScriptSettings, AcceptedValuesFollowTypeAndEnum) {
  const ScriptSettingSpec& fps = *findScriptSetting("fps");
  EXPECT_TRUE(isAcceptedSettingValue(fps, "24"));
  EXPECT_FALSE(isAcceptedSettingValue(fps, "25"));
  EXPECT_FALSE(isAcceptedSettingValue(fps, "fast"));
  EXPECT_TRUE(isAcceptedSettingValue(*findScriptSetting("palette-strategy"), "perFrame"));
  EXPECT_FALSE(isAcceptedSettingValue(*findScriptSetting("palette-strategy"), "per-frame"));
  EXPECT_TRUE(isAcceptedSettingValue(*findScriptSetting("cleanup"), "Off"));
  EXPECT_FALSE(isAcceptedSettingValue(*findScriptSetting("cleanup"), "maybe"));
  EXPECT_FALSE(isAcceptedSettingValue(*findScriptSetting("max-width"), "wide"));
  EXPECT_TRUE(isAcceptedSettingValue(*findScriptSetting("transition"), ".5"));
  EXPECT_TRUE(isAcceptedSettingValue(*findScriptSetting("output"), "anything.gif"));
}

TEST(PacePreset, NamesAndValues) {
  EXPECT_EQ(pacePresetNames(), "tutorial, demo, cinematic");
  EXPECT_EQ(pacePresetNamed("demo"), PacePreset::demo);
  EXPECT_EQ(pacePresetNamed("fast"), std::nullopt);
  using Settings = std::vector<std::pair<std::string, std::string>>;
  EXPECT_EQ(presetSettings(PacePreset::tutorial), (Settings{{"fps", "24"},
                                                            {"typing-delay", "0.08"},
                                                            {"auto-pace", "true"},
                                                            {"auto-pace-delay", "1.0"},
                                                            {"idle-threshold", "3.0"},
                                                            {"transition", "0.5"}}));
  EXPECT_EQ(presetSettings(PacePreset::demo), (Settings{{"fps", "30"},
                                                        {"typing-delay", "0.04"},
                                                        {"auto-pace", "true"},
                                                        {"auto-pace-delay", "0.6"},
                                                        {"idle-threshold", "1.5"},
                                                        {"transition", "0.3"}}));
  EXPECT_EQ(presetSettings(PacePreset::cinematic), (Settings{{"fps", "30"},
                                                             {"typing-delay", "0.06"},
                                                             {"auto-pace", "true"},
                                                             {"auto-pace-delay", "0.8"},
                                                             {"idle-threshold", "2.0"},
                                                             {"transition", "0.8"}}));
}

}  // namespace
}  // namespace brimble
