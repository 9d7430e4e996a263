#pragma once

#include <chrono>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

#include <sys/types.h>

#include "BrimbleCore/Scripting/ProcessRunner.h"

namespace brimble {

/// Runs commands with the system's /bin/sh, each in a process group of its own, with standard
/// input from /dev/null and our working directory. Both outputs are read together, so a command
/// that fills one pipe while we wait on the other cannot stall. On time-out or a stop request
/// the whole group gets SIGTERM and, after `grace`, SIGKILL; a command that finishes normally
/// keeps any background process it started until `stopBackgroundProcesses`. A command that
/// prints more than `kOutputLimit` bytes on either output is stopped the same way and its line
/// fails: a script keeps what it prints in memory, and `yes` never ends. Thread-safe.
class ShellProcessRunner : public ProcessRunner {
 public:
  static constexpr std::chrono::milliseconds kDefaultGrace{1000};
  /// The most a command may print on each of its outputs: 8 MiB.
  static constexpr std::size_t kOutputLimit = std::size_t{8} * 1024 * 1024;

  struct Options {
    std::chrono::milliseconds grace = kDefaultGrace;
    /// "NAME=value" entries added to our environment for every command: the display a script
    /// drives, for example.
    std::vector<std::string> environment{};
    /// Once it asks to stop, a running command is stopped and CancellationError thrown.
    std::stop_token stop{};
  };

  ShellProcessRunner() : ShellProcessRunner(Options{}) {}
  explicit ShellProcessRunner(Options options) : options_(std::move(options)) {}

  using ProcessRunner::runShellCommand;
  ShellResult runShellCommand(const std::string& command, std::optional<double> timeout, int line,
                              const std::vector<std::string>& environment) override;

  /// Ends what finished commands left running in the background (their process groups, as
  /// `grace` allows) and returns how many groups that was.
  int stopBackgroundProcesses() override;

 private:
  const Options options_;
  std::mutex groupsMutex_;  // guards the field below
  std::vector<pid_t> backgroundGroups_;
};

}  // namespace brimble
