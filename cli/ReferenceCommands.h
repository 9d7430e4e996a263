#pragma once

#include <string>

#include "cli/Command.h"

namespace brimble::cli {

/// An editor snippet as plain text, for people: tab stops become their placeholders, choice lists
/// their choices joined by "|", and "\$" a dollar sign.
std::string snippetExample(const std::string& snippet);

/// `brimble commands [--json]`: the script commands, as a list or as the command manifest.
Command addCommandsCommand(CLI::App& app);

/// `brimble settings [--json]`: the script settings, as a table or as the settings document.
Command addSettingsCommand(CLI::App& app);

}  // namespace brimble::cli
