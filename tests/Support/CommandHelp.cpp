#include "tests/Support/CommandHelp.h"

#include <regex>
#include <sstream>

#include "tests/Support/RunCommand.h"

namespace brimble::testing {
namespace {

void addPaths(const std::string& command, std::vector<std::string>& paths) {
  for (const std::string& sub : brimbleHelp(command).subcommands) {
    const std::string path = command.empty() ? sub : command + " " + sub;
    paths.push_back(path);
    addPaths(path, paths);
  }
}

}  // namespace

CommandHelp brimbleHelp(const std::string& command) {
  const CommandResult result = runCommand(brimbleCommand(command + " --help"));
  CommandHelp help;
  // "  -o,--output TEXT REQUIRED", "  --dedup,--no-dedup{false}", "    --url TEXT" in a group.
  static const std::regex optionLine(R"(^ {2,4}(-[^\s{=]+))");
  static const std::regex subcommandLine(R"(^  ([a-z][a-z-]*)(\s|$))");
  std::istringstream lines(result.output);
  bool inSubcommands = false;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.front() != ' ') {
      inSubcommands = line == "Subcommands:";
      continue;
    }
    std::smatch match;
    if (std::regex_search(line, match, optionLine)) {
      std::istringstream names(match[1].str());
      for (std::string name; std::getline(names, name, ',');) {
        help.options.push_back(name);
      }
    } else if (inSubcommands && std::regex_search(line, match, subcommandLine)) {
      help.subcommands.push_back(match[1].str());
    }
  }
  return help;
}

std::vector<std::string> brimbleCommandPaths() {
  std::vector<std::string> paths;
  addPaths("", paths);
  return paths;
}

}  // namespace brimble::testing
