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
#include "tests/Support/ErrorText.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using MonotonicClock = std::chrono::steady_clock;

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

/// Waits until `count` processes of `group` are running.
void waitUntilGroupHas(pid_t group, int count) {
  for (int i = 0; i < 400 && liveProcessesInGroup(group) != count; ++i) {
    std::this_thread::sleep_for(5ms);
  }
}

TEST(Subprocess, ReportsHowTheChildEnded) {
  EXPECT_EQ(shell("exit 7").wait().shellStatus(), 7);
  const ExitStatus killed = shell("kill -9 $$").wait();
  EXPECT_EQ(killed, (ExitStatus{0, SIGKILL}));
  EXPECT_EQ(killed.shellStatus(), 128 + 9);
  Subprocess sleeper = shell("exec sleep 30");
  EXPECT_EQ(sleeper.waitFor(50ms), std::nullopt);
  sleeper.signal(SIGTERM);
  EXPECT_EQ(sleeper.waitFor(5s), (ExitStatus{0, SIGTERM}));
  // Started to die with its parent: the thread that started it.
  std::thread([&] {
    sleeper = Subprocess::spawn({"sleep", "30"}, {.dieWithParent = true});
  }).join();
  EXPECT_EQ(sleeper.waitFor(5s), (ExitStatus{0, SIGTERM}));
}

TEST(Subprocess, StartFailuresNameTheProgramAndTheCause) {
  testing::TempDirectory directory;
  const std::string script = (directory / "not-executable").string();
  std::ofstream(script) << "#!/bin/sh\n";
  const struct {
    std::vector<std::string> arguments;
    SpawnOptions options;
    std::string cause;
  } failing[] = {
      {{"/nonexistent/program"}, {}, "No such file or directory"},
      {{"no-such-program-anywhere"}, {}, "No such file or directory"},
      {{"true"}, {.environment = {"PATH=/nonexistent"}}, "No such file or directory"},
      {{script}, {}, "Permission denied"},
      {{"true"}, {.workingDirectory = "/nonexistent"}, "No such file or directory"},
  };
  for (const auto& start : failing) {
    const std::string message = "start " + start.arguments[0] + ": " + start.cause;
    for (const bool detached : {false, true}) {
      EXPECT_EQ(testing::errorText<std::system_error>([&] {
                  detached ? Subprocess::launchDetached(start.arguments, start.options)
                           : Subprocess::spawn(start.arguments, start.options).pid();
                }),
                message)
          << (detached ? "detached" : "child");
    }
  }
}

// Runs in a forked child: a user who may have no more processes cannot fork.
[[noreturn]] void spawnWithoutProcessesLeft() {
  const rlimit none{0, 0};
  if ((::geteuid() == 0 && ::setuid(65534) != 0) || ::setrlimit(RLIMIT_NPROC, &none) != 0) {
    std::_Exit(2);
  }
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

TEST(Subprocess, PassesStreamsEnvironmentDirectorySignalsAndOneDescriptor) {
  ::setenv("BRIMBLE_KEPT", "ours", 1);
  ::setenv("BRIMBLE_REPLACED", "ours", 1);
  EXPECT_EQ(outputOf("echo $BRIMBLE_KEPT $BRIMBLE_REPLACED $ADDED; pwd; cat",
                     {.environment = {"BRIMBLE_REPLACED=theirs", "ADDED=new"},
                      .workingDirectory = "/usr"}),
            "ours theirs new\n/usr\n")
      << "standard input is /dev/null";
  EXPECT_EQ(
      outputOf("echo ${BRIMBLE_KEPT:-unset} $ONLY",
               {.environment = {"ONLY=this", "PATH=/usr/bin:/bin"}, .clearEnvironment = true}),
      "unset this\n");

  // What we block or ignore, the child does not.
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  const auto previousHandler = std::signal(SIGUSR2, SIG_IGN);
  const std::string masks = outputOf("grep -E '^Sig(Blk|Ign)' /proc/self/status");
  ::pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
  std::signal(SIGUSR2, previousHandler);
  EXPECT_EQ(masks, "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");

  Subprocess cat = Subprocess::spawn(
      {"cat"}, {.input = StreamConnection::pipe, .output = StreamConnection::pipe});
  ASSERT_EQ(::write(cat.input().get(), "piped", 5), 5);
  cat.input().reset();
  char echoed[8] = {};
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
  char line[16] = {};
  EXPECT_EQ(::read(read.get(), line, sizeof line), 10);
  EXPECT_STREQ(line, "inherited\n");
}

TEST(Subprocess, TerminateEndsTheWholeGroupEscalatingAfterTheGrace) {
  // A background job, a child that ignores SIGTERM (the subshell execs its sleep) and a shell
  // waiting for both. The file says the trap is set: a fork counted before that would still die
  // of the first signal.
  const testing::TempDirectory directory;
  const std::string trapped = (directory / "trapped").string();
  Subprocess child = shell("sleep 30 & (trap '' TERM; : > " + trapped + "; exec sleep 30) & wait");
  pid_t group = child.pid();
  for (int i = 0; i < 400 && !std::filesystem::exists(trapped); ++i) {
    std::this_thread::sleep_for(5ms);
  }
  waitUntilGroupHas(group, 3);
  EXPECT_NE(group, ::getpgrp());
  EXPECT_EQ(liveProcessesInGroup(group), 3);
  const auto start = MonotonicClock::now();
  EXPECT_EQ(child.terminate(300ms), (ExitStatus{0, SIGTERM}));
  EXPECT_GE(MonotonicClock::now() - start, 300ms);
  EXPECT_LT(MonotonicClock::now() - start, 3s);
  EXPECT_EQ(liveProcessesInGroup(group), 0);

  // Destroyed, it ends its group too, as soon as the group has ended (not after the grace).
  const auto quick = MonotonicClock::now();
  {
    const Subprocess owner = shell("sleep 30 & wait");
    group = owner.pid();
    waitUntilGroupHas(group, 2);
  }
  EXPECT_LT(MonotonicClock::now() - quick, 2s);
  EXPECT_EQ(liveProcessesInGroup(group), 0);
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

}  // namespace
}  // namespace brimble
