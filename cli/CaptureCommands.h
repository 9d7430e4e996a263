#pragma once

#include "cli/Command.h"
#include "cli/Interrupts.h"

namespace brimble::cli {

/// `brimble record (--region X,Y,W,H | --display [N] | --window ID | --app NAME) [--duration S]
/// [--fps N] [--no-cursor] [--headless] -o OUT`: records until the duration ends or Ctrl-C,
/// then encodes OUT (GIF, WebP or APNG by its extension) with a progress bar.
Command addRecordCommand(CLI::App& app, Interrupts& interrupts);

/// `brimble still (--region … | --display [N] | --window ID | --app NAME) [--headless]
/// -o OUT.png`: one capture as a PNG.
Command addStillCommand(CLI::App& app);

}  // namespace brimble::cli
