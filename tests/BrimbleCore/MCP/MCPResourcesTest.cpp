#include "BrimbleCore/MCP/MCPResources.h"

#include <string>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptCommandManifest.h"
#include "BrimbleCore/Scripting/ScriptSettings.h"

namespace brimble {
namespace {

TEST(MCPResources, TheReferenceNamesEveryCommandAndSettingOfTheLanguage) {
  const std::string reference = MCPResources::scriptingReference();
  for (const ScriptCommandInfo& command : commandManifest().commands) {
    EXPECT_NE(reference.find("\n- `" + command.name), std::string::npos) << command.name;
    EXPECT_NE(reference.find("` — " + command.description + "\n"), std::string::npos)
        << command.name;
  }
  for (const ScriptSettingInfo& setting : scriptSettingsTable()) {
    EXPECT_NE(reference.find("\n- `" + setting.name + "` (" + setting.type), std::string::npos)
        << setting.name;
  }
  // Every command of the language has its section; a new one would land under this heading.
  EXPECT_EQ(reference.find("## Other Commands"), std::string::npos) << reference;
}

TEST(MCPResources, AnUnknownExampleNamesTheFiveThatExist) {
  try {
    MCPResources::example("nope");
    FAIL() << "no error";
  } catch (const MCPResourceError& error) {
    EXPECT_EQ(error.code(), MCPResourceError::Code::unknownExample);
    EXPECT_STREQ(error.what(),
                 "Unknown example 'nope'. Available: hello, git-workflow, multi-window, "
                 "spotlight-demo, polish-demo");
  }
}

TEST(MCPResources, PermissionStatusIsTheFixedTextWithThePlatformsNote) {
  // The screen's note is the platform's own (the X11 wording is checked end to end against the
  // real server); the accessibility note is the same on every platform.
  PlatformTexts texts;
  texts.screenRecordingNotGranted = "Not granted — no screen here.";
  EXPECT_EQ(MCPResources::permissionStatus(texts, false, false),
            "{\n  \"screen_recording\": false,\n  \"accessibility\": false,\n"
            "  \"screen_recording_note\": \"Not granted — no screen here.\",\n"
            "  \"accessibility_note\": \"Not granted — optional, enables cursor smoothing, click "
            "indicators, keystroke badges.\"\n}");
  EXPECT_EQ(MCPResources::permissionStatus(texts, true, true),
            "{\n  \"screen_recording\": true,\n  \"accessibility\": true,\n"
            "  \"screen_recording_note\": \"Granted\",\n  \"accessibility_note\": \"Granted\"\n}");
}

TEST(MCPResources, RecentRecordingsListsSizesWithTwoDecimals) {
  EXPECT_EQ(MCPResources::recentRecordings({}),
            R"({"recordings": [], "note": "No GIFs generated yet in this session."})");
  EXPECT_EQ(MCPResources::recentRecordings(
                {{"/tmp/a \"b\".gif", 1572864, "800x600", "2026-11-25T10:00:00Z"},
                 {"/tmp/c.gif", 10, "unknown", "2026-11-25T10:01:00Z"}}),
            R"({"recordings": [{"path": "/tmp/a \"b\".gif", "size_mb": 1.50, )"
            R"("dimensions": "800x600", "date": "2026-11-25T10:00:00Z"}, {"path": "/tmp/c.gif", )"
            R"("size_mb": 0.00, "dimensions": "unknown", "date": "2026-11-25T10:01:00Z"}]})");
}

}  // namespace
}  // namespace brimble
