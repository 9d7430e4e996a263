#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace brimble {

/// What a shell command left: both outputs, trimmed of surrounding white space and line ends,
/// and its exit status (128 plus the signal number when a signal ended it).
struct ShellResult {
  std::string output;
  std::string errorOutput;
  std::int32_t exitStatus = 0;

  bool operator==(const ShellResult& other) const = default;
};

/// Runs the shell commands of `run`. The script engine is handed one by its owner, so tests and
/// other front ends can supply their own. Implementations say their thread contract.
class ProcessRunner {
 public:
  ProcessRunner() = default;
  ProcessRunner(const ProcessRunner&) = delete;
  ProcessRunner& operator=(const ProcessRunner&) = delete;
  ProcessRunner(ProcessRunner&&) = delete;
  ProcessRunner& operator=(ProcessRunner&&) = delete;
  virtual ~ProcessRunner() = default;

  /// Runs `command` with `/bin/sh -c` and waits for it and both its outputs, at most `timeout`
  /// seconds (no value: no limit). `environment` holds "NAME=value" entries the command gets
  /// beside the runner's own: values it reads as data, never as part of its text. Throws
  /// ScriptError: commandTimeout (the command and all it started are stopped first), or
  /// runtimeError "Failed to run command: <reason>" when it cannot start. `line` is the script
  /// line, for those errors.
  virtual ShellResult runShellCommand(const std::string& command, std::optional<double> timeout,
                                      int line, const std::vector<std::string>& environment) = 0;
  ShellResult runShellCommand(const std::string& command, std::optional<double> timeout, int line) {
    return runShellCommand(command, timeout, line, {});
  }
  /// Ends what finished commands left running in the background (`run "server &"`), for a
  /// script's clean-up; returns how many commands had left something.
  virtual int stopBackgroundProcesses() = 0;
};

}  // namespace brimble
