#include "BrimbleCore/Support/ChildProcessGroup.h"

#include <thread>

#include <gtest/gtest.h>

#include "tests/Support/ProcessGroups.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;

ChildProcessGroup shell(const std::string& script) {
  return ChildProcessGroup::spawn({"/bin/sh", "-c", script});
}

void waitUntilGroupHas(pid_t group, int count) {
  for (int i = 0; i < 400 && testing::runningProcessesInGroup(group) < count; ++i) {
    std::this_thread::sleep_for(5ms);
  }
}

TEST(ChildProcessGroup, WaitReportsTheStatusAsAShellDoes) {
  EXPECT_EQ(shell("exit 0").wait(), 0);
  EXPECT_EQ(shell("exit 7").wait(), 7);
  EXPECT_EQ(shell("kill -9 $$").wait(), 128 + 9);
}

TEST(ChildProcessGroup, TheChildLeadsItsOwnGroup) {
  ChildProcessGroup child = shell("sleep 30 & sleep 30 & wait");
  waitUntilGroupHas(child.pid(), 3);
  EXPECT_EQ(::getpgid(child.pid()), child.pid());
  EXPECT_NE(::getpgid(child.pid()), ::getpgrp());
  EXPECT_EQ(testing::runningProcessesInGroup(child.pid()), 3);
}

TEST(ChildProcessGroup, DestroyingItKillsTheWholeGroup) {
  pid_t group = 0;
  {
    ChildProcessGroup child = shell("sleep 30 & sleep 30 & wait");
    group = child.pid();
    waitUntilGroupHas(group, 3);
    ASSERT_EQ(testing::runningProcessesInGroup(group), 3);
  }
  // SIGKILL takes effect once the processes are scheduled.
  for (int i = 0; i < 400 && testing::runningProcessesInGroup(group) > 0; ++i) {
    std::this_thread::sleep_for(5ms);
  }
  EXPECT_EQ(testing::runningProcessesInGroup(group), 0);
}

TEST(ChildProcessGroup, TerminateGroupEscalatesToKillAfterTheGrace) {
  // The shell and its sleep both ignore SIGTERM.
  ChildProcessGroup child = shell("trap '' TERM; sleep 30 & sleep 30 & wait");
  const pid_t group = child.pid();
  waitUntilGroupHas(group, 3);
  const auto start = std::chrono::steady_clock::now();
  child.terminateGroup(300ms);
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_GE(elapsed, 300ms);
  EXPECT_LT(elapsed, 3s);
  EXPECT_EQ(testing::runningProcessesInGroup(group), 0);
  EXPECT_EQ(child.wait(), 128 + 9);
}

TEST(ChildProcessGroup, TerminateGroupReturnsAsSoonAsTheGroupEnds) {
  ChildProcessGroup child = shell("sleep 30");
  waitUntilGroupHas(child.pid(), 1);
  const auto start = std::chrono::steady_clock::now();
  child.terminateGroup(10s);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
  EXPECT_EQ(child.wait(), 128 + 15);
}

TEST(ChildProcessGroup, MovingTransfersOwnership) {
  ChildProcessGroup first = shell("exit 3");
  ChildProcessGroup second = std::move(first);
  EXPECT_EQ(first.pid(), -1);  // NOLINT(bugprone-use-after-move): checking the moved-from state
  EXPECT_TRUE(first.hasExited());
  EXPECT_EQ(second.wait(), 3);
}

TEST(ChildProcessGroup, AMissingProgramFailsToStart) {
  try {
    ChildProcessGroup::spawn({"/nonexistent/program"});
    FAIL() << "started";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENOENT);
  }
}

}  // namespace
}  // namespace brimble
