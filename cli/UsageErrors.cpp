#include "cli/UsageErrors.h"

#include <algorithm>
#include <cstdio>
#include <regex>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "cli/Command.h"

namespace brimble::cli {
namespace {

/// The command the parser had got to: the deepest subcommand it recognised.
CLI::App* failingCommand(CLI::App& root) {
  CLI::App* app = &root;
  while (!app->get_subcommands().empty()) {
    app = app->get_subcommands().back();
  }
  return app;
}

/// "brimble window open": the names from the root down.
std::string commandPath(const CLI::App* app) {
  std::string path = app->get_name();
  for (const CLI::App* parent = app->get_parent(); parent != nullptr;
       parent = parent->get_parent()) {
    path = parent->get_name() + " " + path;
  }
  return path;
}

std::vector<std::string> subcommandNames(CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* sub : app.get_subcommands([](CLI::App*) { return true; })) {
    if (sub->get_group().empty()) {
      continue;  // hidden: never suggested
    }
    names.push_back(sub->get_name());
  }
  return names;
}

std::vector<std::string> optionNames(CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.push_back("--" + name);
    }
    for (const std::string& name : option->get_snames()) {
      names.push_back("-" + name);
    }
  }
  return names;
}

struct Problem {
  std::string what;
  std::optional<std::string> nearest;
};

/// Arguments the command did not recognise say more than what their absence made it miss
/// ("--outptu x.gif" leaves --output missing), so they are reported first.
std::optional<Problem> unrecognised(CLI::App& app) {
  const std::vector<std::string> left = app.remaining(false);
  if (left.empty()) {
    return std::nullopt;
  }
  const std::string& first = left.front();
  if (first.size() > 1 && first.front() == '-') {
    const std::string name = first.substr(0, first.find('='));
    return Problem{"unknown option '" + name + "'", nearestName(name, optionNames(app))};
  }
  const std::vector<std::string> commands = subcommandNames(app);
  if (!commands.empty()) {
    // Other tools have a help command; here it is an option.
    return Problem{"unknown command '" + first + "'",
                   first == "help" ? "--help" : nearestName(first, commands)};
  }
  return Problem{"unexpected argument '" + first + "'", std::nullopt};
}

/// The parser's own message, said the way the rest of brimble says things.
std::string describe(CLI::App& app, const CLI::ParseError& error) {
  const std::string message = error.what();
  if (message == "A subcommand is required") {
    return app.get_parent() == nullptr
               ? "no command given"
               : "no command given (use " + joinedWithOr(subcommandNames(app)) + ")";
  }
  static const std::regex missingValues(R"(^(\S+): (\d+) required \S+ missing$)");
  static const std::regex exactCount(R"(^Expected exactly (\d+) arguments to (\S+), got (\d+)$)");
  static const std::regex unconvertible(R"(^Could not convert: (\S+) = (.*)$)");
  static const std::regex countBound(
      R"(^(\S*): At (least|Most) (\d+) required but received (\d+)$)");
  std::smatch match;
  if (std::regex_match(message, match, missingValues)) {
    return match[1].str() +
           (match[2] == "1" ? " needs a value" : " needs " + match[2].str() + " values");
  }
  if (std::regex_match(message, match, exactCount)) {
    return match[2].str() + " takes " + match[1].str() + " values (got " + match[3].str() + ")";
  }
  if (std::regex_match(message, match, countBound)) {
    return (match[1].length() > 0 ? match[1].str() + " " : std::string()) + "takes at " +
           (match[2] == "least" ? "least " : "most ") + match[3].str() + " values (got " +
           match[4].str() + ")";
  }
  if (std::regex_match(message, match, unconvertible)) {
    return match[1].str() + ": '" + match[2].str() + "' is not a valid value";
  }
  // A check on a positional argument explains itself; its name ("CLIENT: ") adds nothing.
  if (const auto colon = message.find(": "); colon != std::string::npos) {
    const std::string name = message.substr(0, colon);
    for (const CLI::Option* option : app.get_options()) {
      if (option->get_lnames().empty() && option->get_snames().empty() &&
          option->get_name() == name) {
        return message.substr(colon + 2);
      }
    }
  }
  return message;
}

}  // namespace

std::string joinedWithOr(const std::vector<std::string>& names) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    text += i == 0 ? "" : (i + 1 == names.size() ? " or " : ", ");
    text += names[i];
  }
  return text;
}

int reportUsageError(CLI::App& root, const CLI::ParseError& error) {
  CLI::App* app = failingCommand(root);
  const Problem problem = unrecognised(*app).value_or(Problem{describe(*app, error), {}});
  const std::string path = commandPath(app);
  fmt::print(stderr, "{}: {}{}\nRun '{} --help' for usage.\n", path, problem.what,
             problem.nearest ? "; did you mean '" + *problem.nearest + "'?" : std::string(), path);
  return kExitUsage;
}

}  // namespace brimble::cli
