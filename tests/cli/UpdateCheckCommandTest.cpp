// `brimble update-check` against a feed served on 127.0.0.1.

#include <algorithm>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/Support/Files.h"
#include "tests/Support/LocalHTTPServer.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::brimbleCommand;
using testing::runCommand;
using testing::shellQuote;

TEST(BrimbleUpdateCheck, SaysWhatIsNewOrThatNothingIsAndFailsOnAFeedItCannotRead) {
  testing::TempDirectory folder;
  testing::LocalHTTPServer server(folder.path());
  const std::string current = testing::brimbleVersion();
  ASSERT_FALSE(current.empty());
  testing::writeFile(folder / "newer.json",
                     R"({"version": "999.1.0", "date": "2026-11-20", "notes": "Everything.",
                         "download": "https://example.org/get"})");
  testing::writeFile(folder / "same.json", R"([{"version": ")" + current + R"("}])");
  testing::writeFile(folder / "broken.json", R"({"version": 4})");

  auto result = runCommand(
      brimbleCommand("update-check --feed " + shellQuote(server.url("newer.json")) + " 2>&1"));
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(result.output, "Brimble 999.1.0 is available (you have " + current +
                               "), released 2026-11-20:\nEverything.\n"
                               "Get it from https://example.org/get\n");

  // The address from the environment, when --feed gives none.
  result = runCommand("BRIMBLE_UPDATE_FEED=" + shellQuote(server.url("same.json")) + " " +
                      brimbleCommand("update-check --json"));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const auto same = nlohmann::json::parse(result.output);
  EXPECT_EQ(same["status"], "up-to-date");
  EXPECT_EQ(same["latest"], current);
  EXPECT_EQ(same["feed"], server.url("same.json"));

  for (const std::string& feed : {server.url("broken.json"), testing::closedPortURL()}) {
    result =
        runCommand(brimbleCommand("update-check --feed " + shellQuote(feed) + " 2>&1 >/dev/null"));
    EXPECT_EQ(result.exitCode, 1) << result.output;
    // One line, naming the feed.
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    EXPECT_TRUE(result.output.starts_with("brimble update-check: ")) << result.output;
    EXPECT_NE(result.output.find(feed), std::string::npos) << result.output;
  }
}

}  // namespace
}  // namespace brimble
