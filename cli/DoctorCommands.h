#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble doctor [--json] [--headless]`: what this machine offers Brimble, each missing piece
/// with its fix; exits 1 when something the main jobs need is missing.
Command addDoctorCommand(CLI::App& app);

/// `brimble report [-o FILE] [--show] [--yes]`: one archive for a problem report, shown before it
/// is saved.
Command addReportCommand(CLI::App& app);

}  // namespace brimble::cli
