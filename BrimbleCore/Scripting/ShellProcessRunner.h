#pragma once

#include <chrono>

#include "BrimbleCore/Scripting/ProcessRunner.h"

namespace brimble {

/// Runs commands with the system's /bin/sh, each in a process group of its own, with standard
/// input from /dev/null and the working directory and environment of this process. Both outputs
/// are read together, so a command that fills one pipe while we wait on the other cannot stall.
/// On time-out the whole group gets SIGTERM and, after `grace`, SIGKILL; a command that
/// finishes normally keeps any background process it started. Stateless: callable from any
/// thread.
class ShellProcessRunner : public ProcessRunner {
 public:
  static constexpr std::chrono::milliseconds kDefaultGrace{1000};

  explicit ShellProcessRunner(std::chrono::milliseconds grace = kDefaultGrace) : grace_(grace) {}

  ShellResult runShellCommand(const std::string& command, std::optional<double> timeout,
                              int line) override;

 private:
  std::chrono::milliseconds grace_;
};

}  // namespace brimble
