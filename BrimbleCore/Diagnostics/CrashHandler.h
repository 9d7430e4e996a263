#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>

/// What happens when brimble or brimble-app dies of SIGSEGV, SIGBUS, SIGFPE, SIGILL or SIGABRT:
/// a report (the version, the command without its values, the signal, the time, a symbolized
/// backtrace and the last log lines) is written under a folder, then the process dies of the
/// same signal, so its exit status and core dump are what they would have been. Nothing of the
/// program runs on the way out (no destructor, no atexit), so a recording in progress is left as
/// the crash found it.
namespace brimble::crashHandler {

/// Installs the handler for the process. `program` names it in reports and file names,
/// `arguments` is its argv after the program (only option names and the first word, the
/// subcommand, are kept). Everything the handler needs is prepared here (the text of the
/// report's head, the symbolizer's path, the buffers), since on a crash it may only make system
/// calls; the folder is created only when a report is written. Main thread, once, before other
/// threads start. In a build with AddressSanitizer this installs nothing: the sanitizer's own
/// report on these signals is the better one, and two handlers would fight over them.
void install(std::string_view program, std::string_view version,
             std::span<const std::string> arguments, const std::filesystem::path& folder);

/// The command as a report shows it: the first word that is not an option (the subcommand) and
/// the options' names, never a value, since values may be typed text or paths.
std::string describeCommand(std::span<const std::string> arguments);

}  // namespace brimble::crashHandler
