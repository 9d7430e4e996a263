#pragma once

#include "cli/Command.h"
#include "cli/Interrupts.h"

namespace brimble::cli {

/// `brimble encode`: frames (a directory, files, a GIF or a test pattern) in, an animation out.
Command addEncodeCommand(CLI::App& app, Interrupts& interrupts);

}  // namespace brimble::cli
