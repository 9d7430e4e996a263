#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble encode`: frames in, an animation file out.
Command addEncodeCommand(CLI::App& app);

}  // namespace brimble::cli
