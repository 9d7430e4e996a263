#include "BrimbleCore/Support/Subprocess.h"

#include <csignal>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrimbleCore/Support/ProcessTable.h"
#include "tests/Support/ProcessGroups.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

Subprocess shell(const std::string& script, SpawnOptions options = {}) {
  return Subprocess::spawn({"sh", "-c", script}, options);
}

/// What `script` prints, run with `options`.
std::string outputOf(const std::string& script, SpawnOptions options = {}) {
  options.output = StreamConnection::pipe;
  Subprocess child = shell(script, options);
  std::string text;
  char buffer[256];
  for (ssize_t got = 0; (got = ::read(child.output().get(), buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(got));
  }
  EXPECT_EQ(child.wait(), ExitStatus{}) << script;
  return text;
}

void waitUntilGroupHas(pid_t group, int count) {
  for (int i = 0; i < 400 && testing::runningProcessesInGroup(group) != count; ++i) {
    std::this_thread::sleep_for(5ms);
  }
}

TEST(Subprocess, ReportsHowTheChildEnded) {
  EXPECT_EQ(shell("exit 0").wait(), (ExitStatus{0, 0}));
  EXPECT_EQ(shell("exit 7").wait().shellStatus(), 7);
  const ExitStatus killed = shell("kill -9 $$").wait();
  EXPECT_EQ(killed, (ExitStatus{0, SIGKILL}));
  EXPECT_EQ(killed.shellStatus(), 128 + 9);
  Subprocess sleeper = shell("exec sleep 30");
  EXPECT_EQ(sleeper.waitFor(50ms), std::nullopt);
  EXPECT_FALSE(sleeper.hasExited());
  sleeper.signal(SIGTERM);
  EXPECT_EQ(sleeper.waitFor(5s), (ExitStatus{0, SIGTERM}));
}

TEST(Subprocess, StartFailuresNameTheProgramAndTheCause) {
  testing::TempDirectory directory;
  std::ofstream(directory / "not-executable") << "#!/bin/sh\n";
  const struct {
    std::vector<std::string> arguments;
    SpawnOptions options;
    std::string message;
  } cases[] = {
      {{"/nonexistent/program"}, {}, "start /nonexistent/program: No such file or directory"},
      {{"no-such-program-anywhere"},
       {},
       "start no-such-program-anywhere: No such file or directory"},
      {{"true"}, {.environment = {"PATH=/nonexistent"}}, "start true: No such file or directory"},
      {{(directory / "not-executable").string()},
       {},
       "start " + (directory / "not-executable").string() + ": Permission denied"},
      {{"true"}, {.workingDirectory = "/nonexistent"}, "start true: No such file or directory"},
  };
  for (const auto& failing : cases) {
    try {
      Subprocess::spawn(failing.arguments, failing.options);
      ADD_FAILURE() << failing.message << ": started";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.what(), failing.message);
    }
    EXPECT_THROW(Subprocess::launchDetached(failing.arguments, failing.options), std::system_error);
  }
}

// Runs in a forked child: a user that may not have one more process cannot fork.
[[noreturn]] void spawnWithoutProcessesLeft() {
  if (::geteuid() == 0 && ::setuid(65534) != 0) {
    std::_Exit(2);
  }
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_NPROC, &none);
  try {
    Subprocess::spawn({"/bin/true"});
  } catch (const std::system_error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    std::_Exit(0);
  }
  std::_Exit(1);
}

TEST(Subprocess, AFailedForkIsAnErrorNotAChild) {
  EXPECT_EXIT(spawnWithoutProcessesLeft(), ::testing::ExitedWithCode(0),
              "^start /bin/true: Resource temporarily unavailable\n$");
}

TEST(Subprocess, PassesStreamsEnvironmentDirectoryAndOneDescriptor) {
  setenv("BRIMBLE_SUBPROCESS_KEPT", "ours", 1);
  setenv("BRIMBLE_SUBPROCESS_REPLACED", "ours", 1);
  EXPECT_EQ(outputOf("echo $BRIMBLE_SUBPROCESS_KEPT $BRIMBLE_SUBPROCESS_REPLACED $ADDED",
                     {.environment = {"BRIMBLE_SUBPROCESS_REPLACED=theirs", "ADDED=new"}}),
            "ours theirs new\n");
  EXPECT_EQ(
      outputOf("echo ${BRIMBLE_SUBPROCESS_KEPT:-unset} $ONLY",
               {.environment = {"ONLY=this", "PATH=/usr/bin:/bin"}, .clearEnvironment = true}),
      "unset this\n");
  EXPECT_EQ(outputOf("pwd", {.workingDirectory = "/usr"}), "/usr\n");
  EXPECT_EQ(outputOf("cat"), "") << "standard input is /dev/null";

  Subprocess cat = Subprocess::spawn(
      {"cat"}, {.input = StreamConnection::pipe, .output = StreamConnection::pipe});
  ASSERT_EQ(::write(cat.input().get(), "piped", 5), 5);
  cat.input().reset();
  char echoed[16] = {};
  EXPECT_EQ(::read(cat.output().get(), echoed, sizeof echoed), 5);
  EXPECT_STREQ(echoed, "piped");

  // Our descriptors close on exec; the inherited one stays open under its number.
  int fds[2];
  ASSERT_EQ(::pipe2(fds, O_CLOEXEC), 0);
  const UniqueFd read(fds[0]);
  UniqueFd write(fds[1]);
  const std::string fd = std::to_string(fds[1]);
  EXPECT_EQ(outputOf("(echo >&" + fd + ") 2>/dev/null || echo closed"), "closed\n");
  shell("echo inherited >&" + fd, {.inheritedFd = fds[1]}).wait();
  write.reset();
  char line[32] = {};
  EXPECT_EQ(::read(read.get(), line, sizeof line), 10);
  EXPECT_STREQ(line, "inherited\n");
}

TEST(Subprocess, TheChildStartsWithDefaultSignalsWhateverOursAre) {
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  sigset_t previous;
  ::pthread_sigmask(SIG_BLOCK, &blocked, &previous);
  const auto previousHandler = std::signal(SIGUSR2, SIG_IGN);
  const std::string masks = outputOf("grep -E '^Sig(Blk|Ign)' /proc/self/status");
  ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  std::signal(SIGUSR2, previousHandler);
  EXPECT_EQ(masks, "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

TEST(Subprocess, TerminateEndsTheWholeGroupEscalatingAfterTheGrace) {
  // A background job, a child that ignores SIGTERM (the subshell execs its sleep) and a shell
  // waiting for both.
  Subprocess child = shell("sleep 30 & (trap '' TERM; sleep 30) & wait");
  const pid_t group = child.pid();
  waitUntilGroupHas(group, 3);
  EXPECT_EQ(::getpgid(group), group);
  EXPECT_NE(group, ::getpgrp());
  EXPECT_EQ(liveProcessesInGroup(group), 3);
  const auto start = Clock::now();
  EXPECT_EQ(child.terminate(300ms), (ExitStatus{0, SIGTERM}));
  EXPECT_GE(Clock::now() - start, 300ms);
  EXPECT_LT(Clock::now() - start, 3s);
  EXPECT_EQ(testing::runningProcessesInGroup(group), 0);

  // Without a process that holds out, it returns as soon as the group has ended.
  Subprocess sleeper = shell("sleep 30 & wait");
  waitUntilGroupHas(sleeper.pid(), 2);
  const auto quick = Clock::now();
  sleeper.terminate(10s);
  EXPECT_LT(Clock::now() - quick, 2s);
  EXPECT_EQ(testing::runningProcessesInGroup(sleeper.pid()), 0);

  pid_t destroyed = 0;
  {
    const Subprocess owner = shell("sleep 30 & wait");
    destroyed = owner.pid();
    waitUntilGroupHas(destroyed, 2);
  }
  EXPECT_EQ(testing::runningProcessesInGroup(destroyed), 0) << "the destructor ends the group";
}

TEST(Subprocess, ADetachedProgramIsNotOurChildAndOutlivesItsLauncher) {
  testing::TempDirectory directory;
  const auto file = directory / "detached";
  const pid_t pid =
      Subprocess::launchDetached({"sh", "-c", "echo $MARK > " + file.string() + "; exec sleep 30"},
                                 {.environment = {"MARK=seen"}});
  std::string mark;
  for (int i = 0; i < 200 && mark.empty(); ++i) {
    std::this_thread::sleep_for(5ms);
    std::ifstream(file) >> mark;
  }
  EXPECT_EQ(mark, "seen");
  EXPECT_TRUE(processAlive(pid));
  EXPECT_NE(::getsid(pid), ::getsid(0)) << "a session of its own";
  EXPECT_NE(processInfo(pid)->parent, ::getpid());
  EXPECT_EQ(::waitpid(pid, nullptr, WNOHANG), -1) << "not ours to reap";
  ::kill(pid, SIGKILL);
}

TEST(Subprocess, AChildThatDiesWithItsParentEndsWithTheThreadThatStartedIt) {
  Subprocess child;
  std::thread([&] { child = Subprocess::spawn({"sleep", "30"}, {.dieWithParent = true}); }).join();
  EXPECT_EQ(child.waitFor(5s), (ExitStatus{0, SIGTERM}));
}

}  // namespace
}  // namespace brimble
