#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble validate FILE.brim`: checks a script without running it ("-" reads standard input).
Command addValidateCommand(CLI::App& app);

}  // namespace brimble::cli
