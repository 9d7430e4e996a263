#pragma once

#include <filesystem>
#include <string>

#include "cli/Command.h"
#include "cli/CommandLineOutline.h"

namespace brimble::cli {

/// The manual pages Brimble installs: brimble(1), brimble-app(1) and brimble-script(5).
enum class ManualPage { brimble, brimbleApp, script };

/// The man(7) source of `page`. brimble(1) lists `root`'s commands and options with their help
/// texts; brimble-app(1) reads the app's option table; brimble-script(5) the command manifest and
/// the script settings. None of them holds a date, so a rebuild writes the same bytes.
std::string manualPage(ManualPage page, const CommandOutline& root);

/// Writes the three pages and the three completion scripts under `share` as a prefix's share/
/// holds them (man/man1/brimble.1, man/man1/brimble-app.1, man/man5/brimble-script.5,
/// bash-completion/completions/brimble, zsh/site-functions/_brimble,
/// fish/vendor_completions.d/brimble.fish), each whole or not at all. Throws std::system_error
/// naming the file that cannot be written.
void writeManualsAndCompletions(const std::filesystem::path& share, const CommandOutline& root);

/// `brimble manual --man brimble|brimble-app|script` prints a page; `brimble manual --write
/// SHARE` writes them all with the completions. Hidden from --help: the build runs it.
Command addManualCommand(CLI::App& app);

}  // namespace brimble::cli
