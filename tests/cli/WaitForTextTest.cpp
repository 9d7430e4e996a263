// `wait-for-text` in whole scripts run headless: in the text of a terminal the script opened,
// and, through tesseract, in the picture of a window it did not.

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using testing::shellQuote;

struct WaitRun {
  testing::CommandResult result;
};

WaitRun runWaitScript(const testing::TempDirectory& directory, const std::string& text) {
  const fs::path script = directory / "wait.brim";
  std::ofstream(script) << text;
  WaitRun run;
  run.result =
      testing::runCommand("cd " + shellQuote(directory.path().string()) + " && " +
                          testing::brimbleWithStderr("run --headless -q -o " +
                                                     shellQuote((directory / "out.gif").string()) +
                                                     " " + shellQuote(script.string())));
  return run;
}

TEST(WaitForText, ATerminalsTextIsWaitedForOnScreenAndInItsLastLine) {
  testing::TempDirectory directory;
  // Each command leaves a file just before it prints, so the line after a wait can tell
  // whether the wait saw the output or gave up early. "READY" is typed as part of the
  // command too: only the line it prints alone matches.
  const WaitRun run = runWaitScript(directory, R"(open "Terminal"
capture-window app "Terminal" as $term
record $term continue
type "sleep 1; touch printed; echo READY" enter
wait-for-text "^READY$" timeout 10
run "test -f printed"
type "sleep 1; touch prompted" enter
wait-for-text "\\$$" in line timeout 10
run "test -f prompted"
stop
)");
  ASSERT_EQ(run.result.exitCode, 0) << run.result.output;
  // Neither wait ran to its timeout (that fails the line), and each saw what it waited for.
  EXPECT_TRUE(fs::exists(directory / "printed"));
}

TEST(WaitForText, ATimeoutNamesThePatternTheScopeTheSecondsAndTheLastLine) {
  testing::TempDirectory directory;
  const WaitRun run = runWaitScript(directory, R"(open "Terminal"
capture-window app "Terminal" as $term
record $term continue
type "printf 'a very long line %.0s' 1 2 3 4 5 6" enter
wait-for-text "NEVER" timeout 1.5
)");
  EXPECT_EQ(run.result.exitCode, 1) << run.result.output;
  const std::string& output = run.result.output;
  // The 102 characters printed wrap at the terminal's 88th column (its window says so), and the
  // prompt follows them.
  const std::string expected =
      "Line 5: no text matching \"NEVER\" on screen after 1.5 s (its last line: \"ery long line " +
      directory.path().filename().string() + " $\")";
  EXPECT_NE(output.find(expected), std::string::npos) << output;
}

TEST(WaitForText, CtrlCEndsAWaitAtOnceAndTheTerminalsLogGoesWithTheRun) {
  testing::TempDirectory directory;
  const fs::path out = directory / "cut.gif";
  const fs::path script = directory / "wait.brim";
  std::ofstream(script) << R"(open "Terminal"
capture-window app "Terminal" as $term
record $term continue
wait-for-text "NEVER" timeout 60
)";
  testing::ChildProcess run({"env", "TMPDIR=" + directory.path().string(), BRIMBLE_BINARY, "run",
                             "--headless", "-o", out.string(), script.string()});
  bool waiting = false;
  for (int i = 0; i < 1000 && !waiting; ++i) {
    waiting = run.errorOutput().find("wait-for-text") != std::string::npos;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_TRUE(waiting) << run.errorOutput();
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));
  // The terminal's log is in a folder of the run's own while it runs.
  bool logged = false;
  for (const auto& entry : fs::directory_iterator(directory.path())) {
    logged = logged || entry.path().filename().string().starts_with("brimble-terminals-");
  }
  EXPECT_TRUE(logged);
  run.signal(SIGINT);
  // It ends within 30 s: well before the wait's own timeout of 60 s.
  const auto exitCode = run.wait(std::chrono::seconds(30));
  ASSERT_TRUE(exitCode) << run.errorOutput();
  EXPECT_EQ(*exitCode, 130) << run.errorOutput();
  EXPECT_TRUE(fs::exists(out)) << run.errorOutput();
  for (const auto& entry : fs::directory_iterator(directory.path())) {
    EXPECT_TRUE(entry.path() == out || entry.path() == script) << entry.path() << " left behind";
  }
}

TEST(WaitForText, TextInAWindowThatIsNoScriptsTerminalIsReadOffItsPicture) {
  if (testing::runCommand("command -v tesseract >/dev/null").exitCode != 0) {
    GTEST_SKIP() << "tesseract is not installed";
  }
  testing::TempDirectory directory;
  // A terminal the script did not open tells nothing of its text: a picture is all there is.
  const WaitRun run = runWaitScript(
      directory,
      R"(run "xterm -fa 'DejaVu Sans Mono' -fs 24 -geometry 24x3 -e sh -c 'sleep 1; touch printed; echo Shipped OK; sleep 60' &"
capture-window app "xterm" as $other
record $other continue
wait-for-text "Shipped OK" timeout 20
run "test -f printed"
stop
)");
  ASSERT_EQ(run.result.exitCode, 0) << run.result.output;
}

}  // namespace
}  // namespace brimble
