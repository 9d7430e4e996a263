// `brimble stats`: the counts real commands leave behind, in a state folder of the test's own.

#include <chrono>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Diagnostics/UsageStatistics.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/Files.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::brimbleWithStderr;
using testing::runCommand;
using testing::shellQuote;

// Runs brimble with `arguments` with HOME and the XDG folders inside `home`.
testing::CommandResult brimbleAt(const testing::TempDirectory& home, const std::string& arguments) {
  return runCommand("env HOME=" + shellQuote(home.path().string()) +
                    " XDG_STATE_HOME=" + shellQuote((home / "state").string()) +
                    " XDG_CONFIG_HOME=" + shellQuote((home / "config").string()) + " " +
                    brimbleWithStderr(arguments));
}

nlohmann::json statsOf(const testing::TempDirectory& home) {
  const auto result = brimbleAt(home, "stats --json");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  return nlohmann::json::parse(result.output);
}

TEST(BrimbleStats, CountsARealRunAndItsFailureAndNothingOnceSwitchedOff) {
  testing::TempDirectory home;
  const auto script = home / "tiny.brim";
  testing::writeFile(script, "record region 0 0 64 48 duration 0.4\n");
  const std::string run = "run --headless -q -o " + shellQuote((home / "tiny.webp").string()) +
                          " " + shellQuote(script.string());

  auto result = brimbleAt(home, "stats");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_NE(result.output.find("Nothing counted yet."), std::string::npos) << result.output;

  result = brimbleAt(home, run);
  ASSERT_EQ(result.exitCode, 0) << result.output;
  result = brimbleAt(home, "run --headless -q " + shellQuote((home / "missing.brim").string()));
  ASSERT_EQ(result.exitCode, 1) << result.output;

  nlohmann::json counts = statsOf(home);
  EXPECT_EQ(counts["runs"], 2) << counts.dump();
  EXPECT_EQ(counts["renders"], 1) << counts.dump();
  EXPECT_EQ(counts["formats"], nlohmann::json({{"webp", 1}})) << counts.dump();
  EXPECT_EQ(counts["failures"], nlohmann::json({{"run", 1}})) << counts.dump();
  EXPECT_EQ(counts["enabled"], true);
  result = brimbleAt(home, "stats");
  EXPECT_NE(result.output.find("  renders     1 (webp 1)\n"), std::string::npos) << result.output;
  EXPECT_NE(result.output.find("  failures    1 (run 1)\n"), std::string::npos) << result.output;

  const std::string before = testing::readFile(home / "state" / "brimble" / "statistics.json");
  result = brimbleAt(home, "stats --off");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_NE(result.output.find("Counting is off"), std::string::npos) << result.output;
  ASSERT_EQ(brimbleAt(home, run).exitCode, 0);
  EXPECT_EQ(testing::readFile(home / "state" / "brimble" / "statistics.json"), before);
  EXPECT_EQ(statsOf(home)["enabled"], false);

  ASSERT_EQ(brimbleAt(home, "stats --on --reset").exitCode, 0);
  EXPECT_EQ(statsOf(home)["runs"], 0);
  ASSERT_EQ(brimbleAt(home, run).exitCode, 0);
  EXPECT_EQ(statsOf(home)["runs"], 1);

  result = brimbleAt(home, "stats --on --off");
  EXPECT_EQ(result.exitCode, 2) << result.output;
}

TEST(BrimbleStats, CountsTheMCPServersScriptRunsAndFailingTools) {
  testing::TempDirectory home;
  const std::string output = (home / "mcp.gif").string();
  testing::ChildProcess server(
      {BRIMBLE_BINARY, "mcp-server", "--headless"},
      std::vector<std::string>{"PATH=/usr/local/bin:/usr/bin:/bin", "HOME=" + home.path().string(),
                               "TMPDIR=" + home.path().string(),
                               "XDG_STATE_HOME=" + (home / "state").string(),
                               "XDG_CONFIG_HOME=" + (home / "config").string()});
  const auto ask = [&](int id, const std::string& method, const nlohmann::json& params) {
    ASSERT_TRUE(server.write(
        nlohmann::json{{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", params}}
            .dump() +
        "\n"));
    // Progress notifications come first, when there are any.
    while (true) {
      const auto line = server.readLine(std::chrono::seconds(60));
      ASSERT_TRUE(line) << server.errorOutput();
      if (nlohmann::json::parse(*line).value("id", -1) == id) {
        return;
      }
    }
  };
  ask(1, "initialize", nlohmann::json::object());
  ask(2, "tools/call",
      {{"name", "execute_script"},
       {"arguments",
        {{"script", "set output \"" + output + "\"\nrecord region 0 0 64 48 duration 0.4\n"}}}});
  ask(3, "tools/call",
      {{"name", "execute_script"}, {"arguments", {{"script", "no-such-command 1\n"}}}});
  ask(4, "tools/call", {{"name", "validate_script"}, {"arguments", {{"script", "wait 1\n"}}}});
  server.closeInput();
  ASSERT_EQ(server.wait(std::chrono::seconds(20)), 0) << server.errorOutput();

  const UsageCounts counts = UsageStatistics(home / "state" / "brimble").counts();
  EXPECT_EQ(counts.runs, 2u);
  EXPECT_EQ(counts.renders, 1u);
  EXPECT_EQ(counts.formats, (std::map<std::string, std::uint64_t>{{"gif", 1}}));
  EXPECT_EQ(counts.failures, (std::map<std::string, std::uint64_t>{{"mcp execute_script", 1}}));
}

}  // namespace
}  // namespace brimble
