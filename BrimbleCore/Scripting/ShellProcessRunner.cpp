#include "BrimbleCore/Scripting/ShellProcessRunner.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "BrimbleCore/Support/Subprocess.h"
#include "BrimbleCore/Support/SystemError.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

using MonotonicClock = std::chrono::steady_clock;

constexpr std::size_t kReadChunk = std::size_t{64} * 1024;
// Without a pidfd the child's exit is noticed by polling at this interval.
constexpr int kExitPollMilliseconds = 10;
// A stop request is noticed within this time.
constexpr int kStopPollMilliseconds = 50;
// Once the shell has exited, output still on its way is read for this long. A job it left in the
// background (`server &`) holds the pipes open for as long as it runs, so their end cannot be
// waited for.
constexpr auto kOutputAfterExit = std::chrono::milliseconds(200);

// Appends what is available; closes `fd` at end of file.
void drain(UniqueFd& fd, std::string& into, std::array<char, kReadChunk>& buffer) {
  const ssize_t got = ::read(fd.get(), buffer.data(), buffer.size());
  if (got > 0) {
    into.append(buffer.data(), static_cast<std::size_t>(got));
  } else if (got == 0 || (errno != EINTR && errno != EAGAIN)) {
    fd.reset();
  }
}

}  // namespace

ShellResult ShellProcessRunner::runShellCommand(const std::string& command,
                                                std::optional<double> timeout, int line,
                                                const std::vector<std::string>& environment) {
  // Beyond this a limit is no limit, and the clock arithmetic would overflow.
  constexpr double kLongestTimeout = 1e9;
  std::optional<MonotonicClock::time_point> deadline;
  if (timeout && *timeout < kLongestTimeout) {
    deadline = MonotonicClock::now() + std::chrono::duration_cast<MonotonicClock::duration>(
                                           std::chrono::duration<double>(*timeout));
  }

  std::vector<std::string> commandEnvironment = options_.environment;
  commandEnvironment.insert(commandEnvironment.end(), environment.begin(), environment.end());
  std::optional<Subprocess> child;
  try {
    child.emplace(
        Subprocess::spawn({"/bin/sh", "-c", command}, {.output = StreamConnection::pipe,
                                                       .errorOutput = StreamConnection::pipe,
                                                       .environment = commandEnvironment}));
  } catch (const std::system_error& error) {
    throw ScriptError::runtimeError(line, "Failed to run command: " + error.code().message());
  }

  std::string output;
  std::string errorOutput;
  std::array<char, kReadChunk> buffer;
  bool exited = false;
  std::optional<MonotonicClock::time_point> readUntil;
  for (;;) {
    if (!exited && child->exitNotifier() < 0) {
      exited = child->hasExited();
    }
    if (exited && !readUntil) {
      readUntil = MonotonicClock::now() + kOutputAfterExit;
    }
    if (exited &&
        ((!child->output() && !child->errorOutput()) || MonotonicClock::now() >= *readUntil)) {
      break;
    }
    int waitMilliseconds = -1;
    if (deadline) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(*deadline - MonotonicClock::now());
      if (left.count() <= 0) {
        child->terminate(options_.grace);
        throw ScriptError::commandTimeout(line, command, *timeout);
      }
      waitMilliseconds = static_cast<int>(std::min<long long>(left.count(), 60'000));
    }
    std::vector<pollfd> fds;
    if (child->output()) {
      fds.push_back({child->output().get(), POLLIN, 0});
    }
    if (child->errorOutput()) {
      fds.push_back({child->errorOutput().get(), POLLIN, 0});
    }
    if (!exited) {
      if (child->exitNotifier() >= 0) {
        fds.push_back({child->exitNotifier(), POLLIN, 0});
      } else if (waitMilliseconds < 0 || waitMilliseconds > kExitPollMilliseconds) {
        waitMilliseconds = kExitPollMilliseconds;
      }
    }
    if (options_.stop.stop_requested()) {
      child->terminate(options_.grace);
      throw CancellationError();
    }
    if (options_.stop.stop_possible() &&
        (waitMilliseconds < 0 || waitMilliseconds > kStopPollMilliseconds)) {
      waitMilliseconds = kStopPollMilliseconds;
    }
    if (readUntil) {
      const auto left = static_cast<int>(std::max<long long>(
          0, std::chrono::ceil<std::chrono::milliseconds>(*readUntil - MonotonicClock::now())
                 .count()));
      waitMilliseconds = waitMilliseconds < 0 ? left : std::min(waitMilliseconds, left);
    }
    const int ready = ::poll(fds.data(), fds.size(), waitMilliseconds);
    if (ready < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw systemError(errno, "wait for the output of", "/bin/sh");
    }
    for (const pollfd& entry : fds) {
      if (entry.revents == 0) {
        continue;
      }
      if (entry.fd == child->exitNotifier()) {
        exited = true;
      } else if (entry.fd == child->output().get()) {
        drain(child->output(), output, buffer);
      } else {
        drain(child->errorOutput(), errorOutput, buffer);
      }
    }
    if (output.size() > kOutputLimit || errorOutput.size() > kOutputLimit) {
      child->terminate(options_.grace);
      throw ScriptError::runtimeError(
          line, "Command '" + command + "' printed more than " +
                    std::to_string(kOutputLimit / (1024 * 1024)) + " MiB on its " +
                    (output.size() > kOutputLimit ? "standard output" : "standard error") +
                    ", the most a 'run' line keeps; it was stopped (send what you do not need "
                    "to a file or /dev/null)");
    }
  }
  const pid_t group = child->pid();
  const int status = child->wait().shellStatus();
  if (liveProcessesInGroup(group) > 0) {
    std::scoped_lock lock(groupsMutex_);
    backgroundGroups_.push_back(group);
  }
  return {std::string(trimmed(output)), std::string(trimmed(errorOutput)),
          static_cast<std::int32_t>(status)};
}

int ShellProcessRunner::stopBackgroundProcesses() {
  std::vector<pid_t> groups;
  {
    std::scoped_lock lock(groupsMutex_);
    groups.swap(backgroundGroups_);
  }
  int stopped = 0;
  for (const pid_t group : groups) {
    // The group's leader has been reaped, so its id could in principle be reused once the group
    // is empty: only a group that still has members is signalled.
    if (liveProcessesInGroup(group) == 0) {
      continue;
    }
    ++stopped;
    ::kill(-group, SIGTERM);
    const auto deadline = MonotonicClock::now() + options_.grace;
    while (liveProcessesInGroup(group) > 0 && MonotonicClock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(kExitPollMilliseconds));
    }
    if (liveProcessesInGroup(group) > 0) {
      ::kill(-group, SIGKILL);
    }
  }
  return stopped;
}

}  // namespace brimble
