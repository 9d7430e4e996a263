#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble windows`: the windows on screen, frontmost first, as a table or JSON.
Command addWindowsCommand(CLI::App& app);

/// `brimble window open|focus|resize|close`: what scripts and assistants do to windows.
Command addWindowCommand(CLI::App& app);

}  // namespace brimble::cli
