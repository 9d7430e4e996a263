#pragma once

#include <string>
#include <vector>

namespace brimble::testing {

/// What one `brimble ... --help` lists, read from its text as a user reads it.
struct CommandHelp {
  std::vector<std::string> options;      // every name: "-o", "--output", "--no-dedup"
  std::vector<std::string> subcommands;  // "open", "focus"
};

/// The help of `brimble <command> --help` (`command` empty for brimble's own), from the binary
/// this build made.
CommandHelp brimbleHelp(const std::string& command);

/// Every command path below brimble that --help shows, depth first: "encode", "window open".
std::vector<std::string> brimbleCommandPaths();

}  // namespace brimble::testing
