#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace brimble::cli {

/// A subcommand registered with the command-line parser, and what runs it once parsed. `run`
/// returns the process exit code and reports errors on standard error itself.
struct Command {
  CLI::App* app = nullptr;
  std::function<int()> run;
};

/// Exit codes, as Linux commands use them.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

}  // namespace brimble::cli
