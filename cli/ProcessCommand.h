#pragma once

#include "cli/Command.h"
#include "cli/Interrupts.h"

namespace brimble::cli {

/// `brimble process`: an existing GIF resized, sped up or slowed down, and re-encoded.
Command addProcessCommand(CLI::App& app, Interrupts& interrupts);

}  // namespace brimble::cli
