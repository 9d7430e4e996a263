#pragma once

#include <string>

#include "cli/Command.h"
#include "cli/CommandLineOutline.h"

namespace brimble::cli {

/// The shells Brimble writes completion scripts for.
enum class CompletionShell { bash, zsh, fish };

/// A completion script for `shell` that completes `root`'s commands, their options, the values
/// of options with a known set, files where a file is wanted and .brim/.tape scripts where a
/// script is. bash: source it or install it as bash-completion/completions/brimble; zsh:
/// install it as _brimble in $fpath, or source it after compinit; fish: source it or install it
/// as vendor_completions.d/brimble.fish.
std::string completionScript(const CommandOutline& root, CompletionShell shell);

/// `brimble completion bash|zsh|fish`: prints the completion script for the shell.
Command addCompletionCommand(CLI::App& app);

}  // namespace brimble::cli
