#pragma once

#include "cli/Command.h"
#include "cli/Interrupts.h"

namespace brimble::cli {

/// `brimble run SCRIPT|NAME|- [-o OUT] [--preview] [--quiet] [--profile] [--headless]`: checks
/// the script and its output first, then runs it on the user's display or, without one, on an
/// embedded display, with a progress line per instruction and a summary of the file at the end.
/// Exit status 0, 1 for a script error, 130 after Ctrl-C (which renders what was recorded; a
/// second one writes nothing).
Command addRunCommand(CLI::App& app, Interrupts& interrupts);

}  // namespace brimble::cli
