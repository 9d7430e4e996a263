#include "BrimbleCore/Scripting/ShellProcessRunner.h"

#include <csignal>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

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

TEST(ShellProcessRunner, TimeOutStopsTheWholeGroupAfterTheSetSeconds) {
  testing::TempDirectory directory;
  const auto pidFile = directory / "pid";
  ShellProcessRunner runner(200ms);
  const auto start = Clock::now();
  // A background job that keeps the pipes open, a child that ignores SIGTERM and a shell waiting
  // for both.
  const std::string command =
      "echo $$ > '" + pidFile.string() + "'; sleep 30 & (trap '' TERM; sleep 30) & wait";
  EXPECT_EQ(testing::errorText<ScriptError>([&] { runner.runShellCommand(command, 1, 9); }),
            "Line 9: Command '" + command + "' timed out after 1s");
  const auto elapsed = Clock::now() - start;
  EXPECT_GE(elapsed, 1s);
  EXPECT_LT(elapsed, 3s);
  const pid_t group = readPid(pidFile);
  ASSERT_GT(group, 0);
  EXPECT_EQ(liveProcessesInGroup(group), 0);
}

TEST(ShellProcessRunner, AFinishedCommandKeepsItsDetachedBackgroundJobs) {
  const ShellResult result = run("sleep 30 > /dev/null 2>&1 & echo $!");
  const pid_t background = std::stoi(result.output);
  EXPECT_EQ(::kill(background, 0), 0) << "the background job was stopped";
  ::kill(background, SIGKILL);
}

}  // namespace
}  // namespace brimble
