#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble commands [--json]`: the script commands, as a list or as the command manifest.
Command addCommandsCommand(CLI::App& app);

/// `brimble settings [--json]`: the script settings, as a table or as the settings document.
Command addSettingsCommand(CLI::App& app);

}  // namespace brimble::cli
