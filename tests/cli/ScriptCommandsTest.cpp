// `brimble validate`, `brimble commands` and `brimble settings`, run the way a user runs them.

#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Scripting/ScriptCommandManifest.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::brimbleCommand;
using testing::runCommand;
using testing::shellQuote;
using testing::TempDirectory;

TEST(BrimbleValidate, PrintsWarningsAndTheSummaryOrTheFirstErrorLocated) {
  TempDirectory directory;
  std::ofstream(directory / "demo.brim") << "set pace fast\ncapture-window app Terminal as $t\n"
                                            "record $t duration 2\nrender\n";
  const struct {
    std::string command;
    int exitCode;
    std::string output;  // standard output, then standard error
  } cases[] = {
      {brimbleCommand("validate " + shellQuote((directory / "demo.brim").string())), 0,
       "Warning: line 1: unknown pace preset 'fast' (expected: tutorial, demo, cinematic)\n"
       "Valid: 4 instructions\n  Explicit render: yes\n"},
      {"printf 'wait 1' | " + brimbleCommand("validate -"), 0,
       "Warning: script has no 'record' commands\nValid: 1 instructions\n"},
      // The located message alone on standard error, so that its caret lines up.
      {"printf 'record $w\\r\\nwait 1\\r\\nzoom x mode tilt\\r\\n' | " +
           brimbleCommand("validate -"),
       1,
       "Line 5, Col 13: Invalid value 'tilt' for 'zoom mode'\n  expected digital|page\n"
       "  zoom x mode tilt\n              ^\n"},
      // A typo in a setting stops the script where it is, with what was meant.
      {"printf 'record region 0 0 9 9\\nset outptu x.gif\\n' | " + brimbleCommand("validate -"), 1,
       "Line 2, Col 5: Unknown setting 'outptu'; did you mean 'output'?\n  set outptu x.gif\n"
       "      ^\n"},
      {brimbleCommand("validate /nonexistent/demo.brim"), 1,
       "brimble validate: Script file not found: /nonexistent/demo.brim\n"},
  };
  for (const auto& [command, exitCode, output] : cases) {
    const auto result = runCommand(command + " 2>&1");
    EXPECT_EQ(result.exitCode, exitCode) << command;
    EXPECT_EQ(result.output, output) << command;
  }
}

TEST(BrimbleCommands, PrintTheManifestAsJSONOrEachCommandWithAnExample) {
  const std::string json = runCommand(brimbleCommand("commands --json")).output;
  EXPECT_EQ(ScriptCommandManifest::decodeJSON(json), commandManifest());
  const nlohmann::json commands = nlohmann::json::parse(json).at("commands");
  // "choices" only where there are choices.
  EXPECT_EQ(commands.at(11), nlohmann::json::parse(R"({"name": "scroll",
      "description": "Simulate scroll wheel in a direction",
      "args": [{"name": "direction", "type": "string", "optional": false,
                "choices": ["up", "down", "left", "right"]},
               {"name": "ticks", "type": "number", "optional": true}],
      "snippet": "scroll ${1|up,down,left,right|} ${2:3}"})"));

  const auto result = runCommand(brimbleCommand("commands"));
  ASSERT_EQ(result.exitCode, 0);
  // What Linux lacks is marked in the listing only; the manifest is the same everywhere.
  const std::string indent(24, ' ');
  for (const std::string& lines :
       {"scroll                  Simulate scroll wheel in a direction\n" + indent +
            "e.g. scroll up|down|left|right 3\nkey ",
        "e.g. record $win duration 3.0 continue\n" + indent +
            "Not on Linux: record simulator (no iOS Simulator)\nstop ",
        "e.g. tap x y\n" + indent + "Not on Linux (no iOS Simulator)\nmove ",
        "e.g. browser chrome \"...\" as $b\n" + indent +
            "Not on Linux: browser safari (use browser chrome)\nnavigate "}) {
    EXPECT_NE(result.output.find(lines), std::string::npos) << lines;
  }
}

TEST(BrimbleSettings, PrintTheSettingsDocumentAsJSONOrATable) {
  const nlohmann::json settings =
      nlohmann::json::parse(runCommand(brimbleCommand("settings --json")).output).at("settings");
  const auto named = [&](const std::string& name) {
    for (const nlohmann::json& setting : settings) {
      if (setting.at("name") == name) {
        return setting;
      }
    }
    return nlohmann::json();
  };
  EXPECT_EQ(settings.at(0), nlohmann::json::parse(R"({"name": "fps", "type": "integer",
      "default": 30, "enum": [12, 24, 30, 60]})"));
  EXPECT_EQ(named("idle-strategy"), nlohmann::json::parse(R"({"name": "idle-strategy",
      "type": "string", "default": null, "enum": ["fade", "cut", "ramp"]})"));
  // A whole number is written without a fraction, and no enum where any value goes.
  EXPECT_EQ(named("idle-threshold").dump(),
            R"({"default":2,"name":"idle-threshold","type":"number"})");
  const auto text = runCommand(brimbleCommand("settings"));
  ASSERT_EQ(text.exitCode, 0);
  EXPECT_EQ(text.output.substr(0, text.output.find('\n')),
            "NAME                TYPE     DEFAULT     VALUES                    MEANING");
  EXPECT_NE(text.output.find("idle-strategy       string   (none)      fade, cut, ramp"),
            std::string::npos);
}

}  // namespace
}  // namespace brimble
