#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble display`: Brimble's embedded X display, on its own: runs a command inside it, or
/// keeps it up (printing how to reach it) until standard input closes or Ctrl-C.
Command addDisplayCommand(CLI::App& app);

}  // namespace brimble::cli
