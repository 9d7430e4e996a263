#pragma once

#include <string>
#include <vector>

#include "cli/OptionValues.h"

namespace CLI {
class App;
}

namespace brimble::cli {

/// One option or positional argument as --help shows it.
struct OptionOutline {
  std::vector<std::string> names;  // "-o", "--output", "--no-dedup"; the name of a positional
  std::string valueName;           // "OUT", "TEXT"; empty for a flag
  std::string help;
  std::string defaultValue;  // as --help shows it; empty when it shows none
  bool required = false;
  int count = 1;  // how many values a positional takes; -1 for any number
  OptionValues values;
};

/// A command and what --help lists for it, with the commands below it; hidden commands and
/// options are left out, as --help leaves them out.
struct CommandOutline {
  std::vector<std::string> path;  // {"brimble", "window", "open"}
  std::string description;
  std::string footer;
  std::vector<OptionOutline> options;
  std::vector<OptionOutline> positionals;
  std::vector<CommandOutline> subcommands;

  /// The path joined by spaces: "brimble window open".
  std::string fullName() const;
};

/// The outline of `app` and every visible command below it, read from the parser itself.
CommandOutline outlineOf(CLI::App& app);

/// Every command of `root`, depth first, `root` included.
std::vector<const CommandOutline*> allCommands(const CommandOutline& root);

}  // namespace brimble::cli
