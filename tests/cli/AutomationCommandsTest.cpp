// `brimble windows`, `brimble window` and `brimble input`, run the way a user runs them, against
// our test client in an embedded display; and `brimble display` itself.

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "BrimbleCore/Support/XID.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/X11Helpers.h"

namespace brimble {
namespace {

using testing::brimbleWithStderr;
using ::testing::ElementsAre;
using testing::runCommand;
using testing::shellQuote;

/// Our test client, focused, in an embedded display that the brimble commands run here use (it
/// sets DISPLAY).
class AutomationCommands : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(client_.waitFor("focus in")) << client_.errorOutput(); }

  // A window id as brimble prints it; the client's own by default.
  std::string hexID(unsigned long offset = 0) const {
    std::ostringstream text;
    text << "0x" << std::hex << client_.id() + offset;
    return text.str();
  }

  std::unique_ptr<x11::HeadlessDisplay> display_ = x11::HeadlessDisplay::start();
  testing::TestWindow client_{{"--class", "DemoApp", "--title", "Demo", "--size", "300x200"}};
};

TEST_F(AutomationCommands, WindowsAreListedResizedAndClosed) {
  const auto listed = runCommand(brimbleWithStderr("windows --json --app demo"));
  ASSERT_EQ(listed.exitCode, 0) << listed.output;
  const auto windows = nlohmann::json::parse(listed.output).at("windows");
  ASSERT_EQ(windows.size(), 1u);
  EXPECT_EQ(windows[0].at("id"), client_.id());
  EXPECT_EQ(windows[0].at("app"), "DemoApp");
  EXPECT_EQ(windows[0].at("title"), "Demo");

  const auto resized = runCommand(brimbleWithStderr("window resize demoapp 500 400"));
  EXPECT_EQ(resized.exitCode, 0);
  EXPECT_EQ(resized.output, "500x400\n") << "the size the window took";
  const auto text = runCommand(brimbleWithStderr("windows")).output;
  EXPECT_THAT(text, ::testing::MatchesRegex("ID +APP +PID +FRAME +TITLE\n" + hexID() +
                                            " +DemoApp +[0-9]+ +0,0 [0-9]+x4[0-9][0-9] +Demo\n"));

  const auto missing = runCommand(brimbleWithStderr("window focus Safari"));
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.output, "brimble window: No window found for app 'Safari'\n");
  EXPECT_EQ(runCommand(brimbleWithStderr("window close DemoApp")).exitCode, 0);
  EXPECT_EQ(client_.nextLine(), "closed");

  // A window that keeps its size is no success.
  const testing::TestWindow fixed(
      {"--class", "Fixed", "--size", "300x200", "--max-size", "300x200"});
  const auto refused = runCommand(brimbleWithStderr("window resize fixed 500 400"));
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(refused.output, "brimble window: Cannot resize window " + formatXID(fixed.id()) +
                                " to 500x400: it stayed 300x200 (the application or the window "
                                "manager keeps its size)\n");
}

TEST_F(AutomationCommands, WindowIdsAreHexadecimalAndTheJSONListHasThePid) {
  const auto window = nlohmann::json::parse(
      runCommand(brimbleWithStderr("windows --json --app demo")).output)["windows"][0];
  EXPECT_EQ(window.at("pid"), client_.pid());
  const std::string stdoutOnly = " 2>/dev/null", stderrOnly = " 2>&1 >/dev/null";
  const auto command = [](const std::string& arguments) {
    return runCommand(testing::brimbleCommand(arguments));
  };
  EXPECT_EQ(command("windows --app nothing" + stdoutOnly).output, "");
  EXPECT_EQ(command("windows --app nothing" + stderrOnly).output,
            "brimble windows: no windows of an application matching \"nothing\"\n");
  EXPECT_EQ(command("windows --json --app nothing").output, "{\n  \"windows\": []\n}\n");
  EXPECT_EQ(command("window close --id " + std::to_string(client_.id() + 1) + stderrOnly).output,
            "brimble window close: Window ID " + hexID(1) + " not found\n");
  EXPECT_EQ(command("window close --id " + hexID()).exitCode, 0);
  EXPECT_EQ(client_.nextLine(), "closed");
}

TEST_F(AutomationCommands, InputReachesTheFocusedWindow) {
  EXPECT_EQ(runCommand(brimbleWithStderr("input type 'A€' --delay 0")).output, "");
  EXPECT_EQ(runCommand(brimbleWithStderr("input key cmd+c")).exitCode, 0);
  const auto window = nlohmann::json::parse(runCommand(brimbleWithStderr("windows --json")).output)
                          .at("windows")
                          .at(0);
  const std::string inside = std::to_string(window.at("x").get<int>() + 100) + " " +
                             std::to_string(window.at("y").get<int>() + 100);
  EXPECT_EQ(runCommand(brimbleWithStderr("input click " + inside + " --right")).exitCode, 0);
  EXPECT_EQ(runCommand(brimbleWithStderr("input scroll up 1")).exitCode, 0);
  const std::vector<std::string> lines = client_.lines(15);
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
    const auto refused = runCommand(brimbleWithStderr("input " + std::string(arguments)));
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
                      brimbleWithStderr("inspect --headless " + arguments));
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

TEST(BrimbleDisplay, EverythingAfterTheProgramNameIsTheProgramsOwn) {
  const struct {
    std::string arguments;
    int exitCode;
    std::string output;
  } cases[] = {
      {"display echo -n hello -x world", 0, "hello -x world"},
      {"display -- echo -n hello -- -x", 0, "hello -- -x"},
      {"display sh -c 'exit 4'", 4, ""},
      // Said before any display starts, for a form that does not exist as for a program.
      {"display no-such-program --flag", 127,
       "brimble display: no program 'no-such-program' to run (the display's own commands are "
       "start and stop)\n"},
      {"display status", 127,
       "brimble display: no program 'status' to run (the display's own commands are start and "
       "stop)\n"},
      {"display stpo", 127,
       "brimble display: no program 'stpo' to run (the display's own commands are start and "
       "stop; did you mean 'stop'?)\n"},
      {"display ./no-such-program", 127,
       "brimble display: no program './no-such-program' to run (the display's own commands are "
       "start and stop)\n"},
      {"display --flag", 2,
       "brimble display: unknown option --flag; a program to run and its options come first, or "
       "after --\nRun 'brimble display --help' for the forms it takes.\n"},
  };
  for (const auto& run : cases) {
    const auto result = runCommand(brimbleWithStderr(run.arguments));
    EXPECT_EQ(result.exitCode, run.exitCode) << run.arguments;
    EXPECT_EQ(result.output, run.output) << run.arguments;
  }
}

TEST(BrimbleDisplay, ItsProgramsDieWithAKilledBrimble) {
  // No destructor runs in a killed brimble, yet Xvfb, the bus and openbox must go with it (its
  // private folder is left, in a temporary directory of the test's).
  testing::TempDirectory temporary;
  testing::ChildProcess holder(
      {"env", "TMPDIR=" + temporary.path().string(), BRIMBLE_BINARY, "display"});
  std::string line;
  for (int i = 0; i < 3 && !line.starts_with("BRIMBLE_DISPLAY_PIDS="); ++i) {
    line = holder.readLine(std::chrono::seconds(20)).value_or("");
  }
  ASSERT_TRUE(line.starts_with("BRIMBLE_DISPLAY_PIDS=")) << holder.errorOutput();
  std::istringstream fields(line.substr(std::string("BRIMBLE_DISPLAY_PIDS=").size()));
  std::vector<pid_t> pids(3);
  fields >> pids[0] >> pids[1] >> pids[2];
  holder.signal(SIGKILL);
  holder.wait(std::chrono::seconds(5));
  for (const pid_t pid : pids) {
    EXPECT_TRUE(testing::eventually([&] { return !processAlive(pid); })) << pid;
  }
}

TEST(BrimbleDisplay, OneShotCommandsWithoutADisplayAskForOneThatStays) {
  testing::TempDirectory runtime;
  // A private runtime folder holds the note of the started display, apart from any other.
  const std::string environment =
      "env -u DISPLAY -u WAYLAND_DISPLAY -u XDG_SESSION_TYPE "
      "XDG_RUNTIME_DIR=" +
      shellQuote(runtime.path().string()) + " ";
  for (const std::string command : {"window open Terminal", "input type hello"}) {
    const auto refused = runCommand(environment + brimbleWithStderr(command));
    EXPECT_EQ(refused.exitCode, 1) << command;
    EXPECT_THAT(refused.output,
                ::testing::HasSubstr(": $WAYLAND_DISPLAY and $DISPLAY are not set, and a display "
                                     "started for this one command would vanish with it. Start a "
                                     "display that stays with `eval \"$(brimble display start)\"`"))
        << command;
  }
  // What records or lists the user's screen never records an empty display of its own instead.
  const std::filesystem::path still = runtime.path() / "still.png";
  for (const std::string& command :
       {"still --display -o " + shellQuote(still.string()), std::string("windows")}) {
    const auto refused = runCommand(environment + brimbleWithStderr(command));
    EXPECT_EQ(refused.exitCode, 1) << command;
    EXPECT_THAT(refused.output,
                ::testing::HasSubstr(": $WAYLAND_DISPLAY and $DISPLAY are not set: run inside a "
                                     "desktop session (Wayland or X11), or give --headless to use "
                                     "Brimble's own display"))
        << command;
  }
  EXPECT_FALSE(std::filesystem::exists(still));
  const std::string self = shellQuote(BRIMBLE_BINARY);
  const auto session =
      runCommand(environment + "sh -c " +
                 shellQuote("eval \"$(" + self + " display start)\" && echo \"on $DISPLAY\" && " +
                            self + " display start 2>&1 && " + self + " input key a && " + self +
                            " display stop && " + self + " still --display -o /dev/null.png; " +
                            self + " display stop") +
                 " 2>&1");
  EXPECT_TRUE(std::regex_match(
      session.output,
      std::regex("brimble display start: (:[0-9]+) runs until `brimble display stop`\n"
                 "on \\1\nexport DISPLAY='\\1'\nexport DBUS_SESSION_BUS_ADDRESS='unix:.*'\n"
                 "brimble display start: \\1 is already running; `brimble display stop` stops it\n"
                 "brimble display stop: stopped \\1\n"
                 "brimble still: Couldn't connect to the X display \"\\1\" to record it.\n"
                 "brimble display stop: no display started by `brimble display start` runs\n")))
      << session.output;
  EXPECT_TRUE(std::filesystem::is_empty(runtime.path() / "brimble"));
}

TEST(BrimbleDisplay, EmbeddedDisplaysAndBrowsersLeaveNothingInHomeOrTheTemporaryDirectory) {
  testing::TempDirectory home;
  testing::TempDirectory temporary;
  const auto result = runCommand(
      "env -u XDG_CONFIG_HOME -u XDG_CACHE_HOME -u XDG_DATA_HOME -u XDG_RUNTIME_DIR HOME=" +
      shellQuote(home.path().string()) + " TMPDIR=" + shellQuote(temporary.path().string()) +
      " sh -c " +
      shellQuote(
          testing::brimbleCommand("inspect --headless --url 'data:text/html,<button>OK</button>'") +
          " && " +
          testing::brimbleCommand(
              "record --headless --region 0,0,64,64 --duration 0.3 -o /dev/null.gif") +
          "; " + testing::brimbleCommand("display -- true")) +
      " 2>&1");
  EXPECT_THAT(result.output, ::testing::HasSubstr("css:button"));
  // Brimble's log is kept on purpose; its folders go only if nothing else is in them.
  std::filesystem::remove_all(home / ".local/state/brimble/logs");
  for (const char* folder : {".local/state/brimble", ".local/state", ".local"}) {
    std::error_code notEmpty;
    std::filesystem::remove(home / folder, notEmpty);
  }
  for (const auto& folder : {home.path(), temporary.path()}) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      ADD_FAILURE() << "left behind: " << entry.path();
    }
  }
}

}  // namespace
}  // namespace brimble
