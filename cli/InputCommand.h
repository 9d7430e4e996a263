#pragma once

#include "cli/Command.h"
#include "cli/Interrupts.h"

namespace brimble::cli {

/// `brimble input type|key|click|move|scroll`: synthetic keyboard and mouse input, as scripts
/// and assistants send it.
Command addInputCommand(CLI::App& app, Interrupts& interrupts);

}  // namespace brimble::cli
