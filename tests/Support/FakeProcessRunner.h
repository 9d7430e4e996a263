#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Scripting/ProcessRunner.h"

namespace brimble::testing {

/// Shell commands answer from a table (or with nothing) and are remembered.
class FakeProcessRunner final : public ProcessRunner {
 public:
  using ProcessRunner::runShellCommand;
  ShellResult runShellCommand(const std::string& command, std::optional<double>, int,
                              const std::vector<std::string>& environment) override {
    commands.push_back(command);
    environments.push_back(environment);
    const auto found = answers.find(command);
    return found != answers.end() ? found->second : ShellResult{};
  }
  int stopBackgroundProcesses() override { return ++backgroundStops; }

  std::map<std::string, ShellResult> answers;
  std::vector<std::string> commands;
  std::vector<std::vector<std::string>> environments;
  int backgroundStops = 0;
};

}  // namespace brimble::testing
