#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble inspect`: what a page offers to click and type into, or where one target is, as a
/// script or an assistant would see it.
Command addInspectCommand(CLI::App& app);

}  // namespace brimble::cli
