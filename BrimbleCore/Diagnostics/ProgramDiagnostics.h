#pragma once

#include <string_view>

namespace brimble {

/// Starts what a Brimble program keeps for diagnosing its problems: every logged line also goes
/// to `$XDG_STATE_HOME/brimble/logs/<program>.log` (rotated at 1 MiB, two old files kept), and
/// a fatal signal writes a crash report under `$XDG_STATE_HOME/brimble/crashes/` (see
/// crashHandler::install). A log that cannot be written costs only the file: one line on
/// standard error says so, once. Main thread, once, first thing in main().
void startDiagnostics(std::string_view program, std::string_view version, int argc, char** argv);

}  // namespace brimble
