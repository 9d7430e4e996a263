#include "BrimbleCore/Scripting/ShellProcessRunner.h"

#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using MonotonicClock = std::chrono::steady_clock;

ShellResult run(const std::string& command, std::optional<double> timeout = 10) {
  ShellProcessRunner runner;
  return runner.runShellCommand(command, timeout, 1);
}

pid_t readPid(const std::filesystem::path& file) {
  pid_t pid = 0;
  std::ifstream(file) >> pid;
  return pid;
}

TEST(ShellProcessRunner, CapturesBothOutputsTrimmedAndTheStatusWithEmptyInput) {
  EXPECT_EQ(run("printf 'a\\nb\\n'"), (ShellResult{"a\nb", "", 0}));
  EXPECT_EQ(run("printf '  \\n x y \\n\\n\\t'"), (ShellResult{"x y", "", 0}));
  EXPECT_EQ(run("echo out; echo oops >&2; exit 3"), (ShellResult{"out", "oops", 3}));
  EXPECT_EQ(run("kill -9 $$"), (ShellResult{"", "", 128 + 9}));
  EXPECT_EQ(run("echo \"$0\""), (ShellResult{"/bin/sh", "", 0}));
  EXPECT_EQ(run("cat; echo done", 5), (ShellResult{"done", "", 0}));  // standard input is empty
}

TEST(ShellProcessRunner, MegabyteOutputsOnBothStreamsDoNotDeadlock) {
  const std::string megabyte = "head -c 1048576 /dev/zero | tr '\\0' ";
  // Standard error is filled first: a reader that waited for standard output alone would stall
  // as soon as the error pipe is full.
  const ShellResult sequential = run(megabyte + "e >&2; " + megabyte + "o", 30);
  EXPECT_EQ(sequential.errorOutput, std::string(1 << 20, 'e'));
  EXPECT_EQ(sequential.output, std::string(1 << 20, 'o'));
  EXPECT_EQ(sequential.exitStatus, 0);
}

TEST(ShellProcessRunner, OutputBeyondTheLimitStopsTheCommandAndFailsItsLine) {
  const std::string limit = std::to_string(ShellProcessRunner::kOutputLimit);
  // Exactly the limit is kept whole.
  EXPECT_EQ(run("head -c " + limit + " /dev/zero | tr '\\0' x", 30).output.size(),
            ShellProcessRunner::kOutputLimit);
  // One byte more fails, on either stream.
  EXPECT_EQ(
      testing::errorText<ScriptError>([] {
        run("head -c $((" + std::to_string(ShellProcessRunner::kOutputLimit) + " + 1)) /dev/zero",
            30);
      }),
      "Line 1: Command 'head -c $((8388608 + 1)) /dev/zero' printed more than 8 MiB on its "
      "standard output, the most a 'run' line keeps; it was stopped (send what you do not "
      "need to a file or /dev/null)");
  EXPECT_NE(testing::errorText<ScriptError>([] {
              run("yes >&2", 30);
            }).find("printed more than 8 MiB on its standard error"),
            std::string::npos);
  // A command that never ends is stopped as soon as it passes the limit, not at its time-out.
  testing::TempDirectory directory;
  const auto pidFile = directory / "pid";
  const auto start = MonotonicClock::now();
  EXPECT_THROW(run("echo $$ > '" + pidFile.string() + "'; yes", 60), ScriptError);
  EXPECT_LT(MonotonicClock::now() - start, 20s);
  const pid_t group = readPid(pidFile);
  ASSERT_GT(group, 0);
  EXPECT_EQ(liveProcessesInGroup(group), 0);
}

TEST(ShellProcessRunner, TimeOutStopsTheWholeGroupAfterTheSetSeconds) {
  testing::TempDirectory directory;
  const auto pidFile = directory / "pid";
  ShellProcessRunner runner({.grace = 200ms});
  const auto start = MonotonicClock::now();
  // A background job that keeps the pipes open, a child that ignores SIGTERM and a shell waiting
  // for both.
  const std::string command =
      "echo $$ > '" + pidFile.string() + "'; sleep 30 & (trap '' TERM; sleep 30) & wait";
  EXPECT_EQ(testing::errorText<ScriptError>([&] { runner.runShellCommand(command, 1, 9); }),
            "Line 9: Command '" + command + "' timed out after 1s");
  const auto elapsed = MonotonicClock::now() - start;
  EXPECT_GE(elapsed, 1s);
  EXPECT_LT(elapsed, 3s);
  const pid_t group = readPid(pidFile);
  ASSERT_GT(group, 0);
  EXPECT_EQ(liveProcessesInGroup(group), 0);
}

TEST(ShellProcessRunner, BackgroundJobsOutliveTheirCommandUntilStoppedAndAStopEndsARunningOne) {
  ShellProcessRunner runner({.grace = 200ms, .environment = {"BRIMBLE_TEST_DISPLAY=:123"}});
  // The job keeps the command's output pipes open: the command still ends when its shell does.
  const ShellResult result =
      runner.runShellCommand("sleep 30 & echo $! $BRIMBLE_TEST_DISPLAY", 10, 1);
  const pid_t background = std::stoi(result.output);
  EXPECT_EQ(result.output, std::to_string(background) + " :123");
  EXPECT_TRUE(processAlive(background)) << "the background job was stopped with its command";
  EXPECT_EQ(runner.stopBackgroundProcesses(), 1);
  EXPECT_FALSE(processAlive(background));
  EXPECT_EQ(runner.stopBackgroundProcesses(), 0);

  std::stop_source interrupt;
  ShellProcessRunner stoppable({.grace = 200ms, .stop = interrupt.get_token()});
  const std::jthread stopper([&] {
    std::this_thread::sleep_for(300ms);
    interrupt.request_stop();
  });
  const auto start = MonotonicClock::now();
  EXPECT_THROW(stoppable.runShellCommand("sleep 30", std::nullopt, 1), CancellationError);
  EXPECT_LT(MonotonicClock::now() - start, 3s);
}

}  // namespace
}  // namespace brimble
