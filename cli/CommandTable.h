#pragma once

#include <vector>

#include "cli/Command.h"

namespace brimble::cli {

class Interrupts;

/// Makes `app` the whole `brimble` command line: its description, --version, the global options
/// and every subcommand, in the order --help lists them. `main` parses with it, and the shell
/// completions and the manual are generated from it, so none of them can tell a different story.
/// `verbose` receives --verbose. Both references must outlive the commands.
std::vector<Command> addBrimbleCommands(CLI::App& app, Interrupts& interrupts, bool& verbose);

}  // namespace brimble::cli
