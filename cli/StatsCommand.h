#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble stats [--json] [--on|--off] [--reset]`: the local usage counts, and their switch.
Command addStatsCommand(CLI::App& app);

}  // namespace brimble::cli
