#include "BrimbleCore/Scripting/ShellProcessRunner.h"

#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Support/Subprocess.h"
#include "tests/Support/ProcessGroups.h"
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

  const ShellResult concurrent = run("(" + megabyte + "o) & " + megabyte + "e >&2; wait", 30);
  EXPECT_EQ(concurrent.output, std::string(1 << 20, 'o'));
  EXPECT_EQ(concurrent.errorOutput, std::string(1 << 20, 'e'));
}

TEST(ShellProcessRunner, TimeOutStopsTheWholeGroupAfterTheSetSeconds) {
  testing::TempDirectory directory;
  const auto pidFile = directory / "pid";
  ShellProcessRunner runner(200ms);
  const auto start = Clock::now();
  try {
    // A background job that keeps the pipes open, a child that ignores SIGTERM and a shell
    // waiting for both.
    runner.runShellCommand(
        "echo $$ > '" + pidFile.string() + "'; sleep 30 & (trap '' TERM; sleep 30) & wait", 1, 9);
    FAIL() << "no time-out";
  } catch (const ScriptError& error) {
    EXPECT_EQ(error.code(), ScriptError::Code::commandTimeout);
    EXPECT_STREQ(error.what(), ("Line 9: Command 'echo $$ > '" + pidFile.string() +
                                "'; sleep 30 & (trap '' TERM; sleep 30) & wait' timed out after 1s")
                                   .c_str());
  }
  const auto elapsed = Clock::now() - start;
  EXPECT_GE(elapsed, 1s);
  EXPECT_LT(elapsed, 3s);
  const pid_t group = readPid(pidFile);
  ASSERT_GT(group, 0);
  EXPECT_EQ(testing::runningProcessesInGroup(group), 0);
}

TEST(ShellProcessRunner, AFinishedCommandKeepsItsDetachedBackgroundJobs) {
  const ShellResult result = run("sleep 30 > /dev/null 2>&1 & echo $!");
  const pid_t background = std::stoi(result.output);
  EXPECT_EQ(::kill(background, 0), 0) << "the background job was stopped";
  ::kill(background, SIGKILL);
}

// Runs in a forked child: with no descriptor left, not even the pipes can be made.
[[noreturn]] void runWithoutDescriptors() {
  // UBSan checks each dynamic type once and needs a pipe to do so, so every type met below is
  // met once first, while descriptors are left.
  ShellProcessRunner runner;
  runner.runShellCommand("true", 1, 4);
  try {
    Subprocess::spawn({"/nonexistent/program"});
  } catch (const std::system_error& error) {
    static_cast<void>(error.code().message());
  }
  try {
    throw ScriptError::runtimeError(1, "first");
  } catch (const ScriptError& error) {
    static_cast<void>(error.what());
  }
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_NOFILE, &none);
  try {
    runner.runShellCommand("true", 1, 4);
  } catch (const ScriptError& error) {
    std::fprintf(stderr, "%s\n", error.what());
    std::_Exit(0);
  }
  std::_Exit(1);
}

TEST(ShellProcessRunner, ACommandThatCannotStartIsAScriptError) {
  EXPECT_EXIT(runWithoutDescriptors(), ::testing::ExitedWithCode(0),
              "^Line 4: Failed to run command: Too many open files\n$");
}

}  // namespace
}  // namespace brimble
