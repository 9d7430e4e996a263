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
  ShellResult runShellCommand(const std::string& command, std::optional<double>, int) override {
    commands.push_back(command);
    const auto found = answers.find(command);
    return found != answers.end() ? found->second : ShellResult{};
  }
  int stopBackgroundProcesses() override { return ++backgroundStops; }

  std::map<std::string, ShellResult> answers;
  std::vector<std::string> commands;
  int backgroundStops = 0;
};

}  // namespace brimble::testing
