// `brimble windows`, `brimble window` and `brimble input`, run the way a user runs them, against
// our test client in an embedded display.

#include <chrono>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::runCommand;
using testing::shellQuote;

std::string brimble(const std::string& arguments) {
  return testing::brimbleCommand(arguments + " 2>&1");
}

class AutomationCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string mapped = client_.readLine(5s).value_or("");
    ASSERT_EQ(mapped.rfind("window ", 0), 0u) << client_.errorOutput();
    id_ = mapped.substr(7);
    std::optional<std::string> line;
    do {
      line = client_.readLine(5s);
    } while (line && *line != "focus in");
    ASSERT_TRUE(line);
  }

  std::vector<std::string> clientLines(std::size_t count) {
    std::vector<std::string> lines;
    while (lines.size() < count) {
      const auto line = client_.readLine(5s);
      if (!line) {
        break;
      }
      lines.push_back(*line);
    }
    return lines;
  }

  // A window id as brimble prints it; the client's own by default.
  std::string hexID(unsigned long offset = 0) const {
    std::ostringstream text;
    text << "0x" << std::hex << std::stoul(id_) + offset;
    return text.str();
  }

  // The display sets DISPLAY for the brimble commands these tests run.
  std::unique_ptr<x11::HeadlessDisplay> display_ = x11::HeadlessDisplay::start();
  testing::ChildProcess client_{
      {BRIMBLE_X11_TEST_CLIENT, "--class", "DemoApp", "--title", "Demo", "--size", "300x200"}};
  std::string id_;
};

TEST_F(AutomationCommands, WindowsAreListedResizedAndClosed) {
  const auto listed = runCommand(brimble("windows --json --app demo"));
  ASSERT_EQ(listed.exitCode, 0) << listed.output;
  const auto windows = nlohmann::json::parse(listed.output).at("windows");
  ASSERT_EQ(windows.size(), 1u);
  EXPECT_EQ(std::to_string(windows[0].at("id").get<long>()), id_);
  EXPECT_EQ(windows[0].at("app"), "DemoApp");
  EXPECT_EQ(windows[0].at("title"), "Demo");

  EXPECT_EQ(runCommand(brimble("window resize demoapp 500 400")).exitCode, 0);
  const auto text = runCommand(brimble("windows")).output;
  EXPECT_THAT(text, ::testing::MatchesRegex("ID +APP +PID +FRAME +TITLE\n" + hexID() +
                                            " +DemoApp +[0-9]+ +0,0 [0-9]+x4[0-9][0-9] +Demo\n"));

  const auto missing = runCommand(brimble("window focus Safari"));
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.output, "brimble window: No window found for app 'Safari'\n");
  EXPECT_EQ(runCommand(brimble("window close DemoApp")).exitCode, 0);
  EXPECT_EQ(client_.readLine(5s), "closed");
}

TEST_F(AutomationCommands, WindowIdsAreHexadecimalAndTheJSONListHasThePid) {
  const auto window =
      nlohmann::json::parse(runCommand(brimble("windows --json --app demo")).output)["windows"][0];
  EXPECT_EQ(window.at("pid"), client_.pid());
  const std::string stdoutOnly = " 2>/dev/null", stderrOnly = " 2>&1 >/dev/null";
  const auto command = [](const std::string& arguments) {
    return runCommand(testing::brimbleCommand(arguments));
  };
  EXPECT_EQ(command("windows --app nothing" + stdoutOnly).output, "");
  EXPECT_EQ(command("windows --app nothing" + stderrOnly).output,
            "brimble windows: no windows of an application matching \"nothing\"\n");
  EXPECT_EQ(command("windows --json --app nothing").output, "{\n  \"windows\": []\n}\n");
  EXPECT_EQ(command("window close --id " + std::to_string(std::stoul(id_) + 1) + stderrOnly).output,
            "brimble window close: Window ID " + hexID(1) + " not found\n");
  EXPECT_EQ(command("window close --id " + hexID()).exitCode, 0);
  EXPECT_EQ(client_.readLine(5s), "closed");
}

TEST_F(AutomationCommands, InputReachesTheFocusedWindow) {
  EXPECT_EQ(runCommand(brimble("input type 'A€' --delay 0")).output, "");
  EXPECT_EQ(runCommand(brimble("input key cmd+c")).exitCode, 0);
  const auto window =
      nlohmann::json::parse(runCommand(brimble("windows --json")).output).at("windows").at(0);
  const std::string inside = std::to_string(window.at("x").get<int>() + 100) + " " +
                             std::to_string(window.at("y").get<int>() + 100);
  EXPECT_EQ(runCommand(brimble("input click " + inside + " --right")).exitCode, 0);
  EXPECT_EQ(runCommand(brimble("input scroll up 1")).exitCode, 0);
  const std::vector<std::string> lines = clientLines(15);
  EXPECT_THAT(std::vector<std::string>(lines.begin(), lines.begin() + 8),
              ElementsAre("key press Shift_L 0", "key press a 1", "key release a 1",
                          "key release Shift_L 1", "key press U20AC 0", "key release U20AC 0",
                          "key press Control_L 0", "key press c 4"));
  ASSERT_EQ(lines.size(), 15u) << ::testing::PrintToString(lines);
  EXPECT_THAT(lines[11], ::testing::StartsWith("button press 3 "));
  EXPECT_THAT(lines[13], ::testing::StartsWith("button press 4 "));

  for (const auto& [arguments, refusal] :
       {std::pair{"scroll sideways",
                  "scroll: Invalid direction 'sideways'. Must be: up, down, left, right\n"},
        std::pair{"key ctrl+hyper", "key: Unknown key 'hyper' in 'ctrl+hyper'\n"},
        std::pair{"key foo+a", "key: Unknown modifier 'foo' in 'foo+a'\n"}}) {
    const auto refused = runCommand(brimble("input " + std::string(arguments)));
    EXPECT_EQ(refused.exitCode, 2) << arguments;
    EXPECT_EQ(refused.output, "brimble input " + std::string(refusal));
  }
}

TEST(InspectCommand, OpensAFileByItsPathAndSaysWhetherTheTargetIsThere) {
  testing::TempDirectory directory;
  // "#" and spaces must not end or split the file's URL.
  std::ofstream(directory / "my page #1.html")
      << R"(<button id="save">Save</button><button id="gone" style="display: none">Gone</button>)";
  const auto inspect = [&](const std::string& arguments) {
    return runCommand("cd " + shellQuote(directory.path()) + " && " +
                      brimble("inspect --headless " + arguments));
  };
  const auto found = inspect("--url 'my page #1.html' --target css:#save --json");
  ASSERT_EQ(found.exitCode, 0) << found.output;
  const auto answer = nlohmann::json::parse(found.output);
  EXPECT_EQ(answer.at("found"), true);
  EXPECT_GT(answer.at("rect").at("width"), 0);

  const auto hidden =
      inspect("--url " + shellQuote(directory / "my page #1.html") + " --target css:#gone --json");
  EXPECT_EQ(hidden.exitCode, 1);
  EXPECT_EQ(nlohmann::json::parse(hidden.output),
            (nlohmann::json{
                {"target", "css:#gone"},
                {"found", false},
                {"error", "Element not found: css:#gone (element not found or not visible)"}}));
  const auto missing = inspect("--url web/page.html");
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.output,
            "brimble inspect: web/page.html: no such file (give a page's path, or a URL with its "
            "scheme such as https://)\n");
}

}  // namespace
}  // namespace brimble
