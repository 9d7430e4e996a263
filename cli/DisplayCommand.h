#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble display`: Brimble's embedded X display, on its own: runs a program inside it, keeps
/// it up (printing how to reach it) until standard input closes or Ctrl-C, or with `start` and
/// `stop` keeps one up in the background for other commands.
Command addDisplayCommand(CLI::App& app);

/// How many of main's arguments the parser should see. Everything after `brimble display`
/// belongs to the display command (a program and its own options, which the parser would take
/// for ours), so this keeps them aside for it and returns the count up to `display` (global
/// options may come before it); any other command line is the parser's whole.
int takeDisplayArguments(int argc, char** argv);

}  // namespace brimble::cli
