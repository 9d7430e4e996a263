#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble update-check [--feed URL] [--json]`: whether a newer release is out, read from the
/// release feed. Exit status 0 when the feed was read (up to date, an update available, or this
/// build newer), 1 when it could not be fetched or read.
Command addUpdateCheckCommand(CLI::App& app);

}  // namespace brimble::cli
