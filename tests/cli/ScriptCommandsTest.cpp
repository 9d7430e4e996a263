// `brimble validate`, `brimble commands` and `brimble settings`, run the way a user runs them.

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptCommandManifest.h"
#include "BrimbleCore/Scripting/ScriptSettings.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::brimbleCommand;
using testing::runCommand;
using testing::shellQuote;
using testing::TempDirectory;

TEST(BrimbleValidate, AValidScriptPrintsWarningsAndTheSummary) {
  TempDirectory directory;
  const auto script = directory / "demo.brim";
  std::ofstream(script) << "set pace fast\ncapture-window app Terminal as $t\n"
                           "record $t duration 2\nrender\n";
  const auto result =
      runCommand(brimbleCommand("validate " + shellQuote(script.string()) + " 2>&1"));
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output,
            "Warning: line 1: unknown pace preset 'fast' (expected: tutorial, demo, cinematic)\n"
            "Valid: 4 instructions\n"
            "  Explicit render: yes\n");
}

TEST(BrimbleValidate, AnErrorIsLocatedWithTheLineAndACaret) {
  const auto result = runCommand("printf 'record $w\\r\\nwait 1\\r\\nzoom x mode tilt\\r\\n' | " +
                                 brimbleCommand("validate - 2>&1 >/dev/null"));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output,
            "Line 5, Col 13: Invalid value 'tilt' for 'zoom mode'\n"
            "  expected digital|page\n"
            "  zoom x mode tilt\n"
            "              ^\n");
}

TEST(BrimbleValidate, StandardInputAndMissingFiles) {
  const auto ok = runCommand("printf 'wait 1' | " + brimbleCommand("validate - 2>&1"));
  EXPECT_EQ(ok.exitCode, 0);
  EXPECT_EQ(ok.output, "Warning: script has no 'record' commands\nValid: 1 instructions\n");

  const auto missing = runCommand(brimbleCommand("validate /nonexistent/demo.brim 2>&1"));
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.output, "brimble validate: Script file not found: /nonexistent/demo.brim\n");

  const auto usage = runCommand(brimbleCommand("validate 2>&1"));
  EXPECT_EQ(usage.exitCode, 2);
}

TEST(BrimbleCommands, PrintTheManifestAsJSONOrEachCommandWithAnExample) {
  EXPECT_EQ(runCommand(brimbleCommand("commands --json")).output,
            commandManifest().encodeJSON(2) + "\n");
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
  EXPECT_EQ(runCommand(brimbleCommand("settings --json")).output, settingsDocumentJSON(2) + "\n");
  const auto text = runCommand(brimbleCommand("settings"));
  ASSERT_EQ(text.exitCode, 0);
  EXPECT_EQ(text.output.substr(0, text.output.find('\n')),
            "NAME                TYPE     DEFAULT     VALUES                    MEANING");
  EXPECT_NE(text.output.find("idle-strategy       string   (none)      fade, cut, ramp"),
            std::string::npos);
}

}  // namespace
}  // namespace brimble
