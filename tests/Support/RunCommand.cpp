#include "tests/Support/RunCommand.h"

#include <cstdio>

#include <sys/wait.h>

namespace brimble::testing {

CommandResult runCommand(const std::string& command) {
  CommandResult result;
  std::FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return result;
  }
  char buffer[4096];
  std::size_t got = 0;
  while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) {
    result.output.append(buffer, got);
  }
  const int status = ::pclose(pipe);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

std::string shellQuote(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

std::string brimbleCommand(const std::string& arguments) {
  return shellQuote(BRIMBLE_BINARY) + " " + arguments;
}

std::string brimbleWithStderr(const std::string& arguments) {
  return brimbleCommand(arguments + " 2>&1");
}

std::string brimbleVersion() {
  const CommandResult result = runCommand(brimbleCommand("--version"));
  const std::string prefix = "brimble ";
  if (result.exitCode != 0 || !result.output.starts_with(prefix)) {
    return "";
  }
  std::string version = result.output.substr(prefix.size());
  version.erase(version.find_last_not_of('\n') + 1);
  return version;
}

}  // namespace brimble::testing
