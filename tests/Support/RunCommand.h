#pragma once

#include <string>

namespace brimble::testing {

struct CommandResult {
  int exitCode = -1;
  std::string output;  // standard output (and standard error when the command redirects it)
};

/// Runs `command` through /bin/sh and collects its standard output.
CommandResult runCommand(const std::string& command);

/// `text` quoted for /bin/sh.
std::string shellQuote(const std::string& text);

/// A shell command line that runs the `brimble` this build made with `arguments` (shell syntax).
std::string brimbleCommand(const std::string& arguments);

/// brimbleCommand with the command's standard error joined to its standard output.
std::string brimbleWithStderr(const std::string& arguments);

/// The version this build's `brimble --version` prints ("0.1.0"); empty when it fails.
std::string brimbleVersion();

}  // namespace brimble::testing
