// brimble: screen activity into animated GIFs, from the command line.

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <signal.h>

#include "BrimbleCore/Diagnostics/ProgramDiagnostics.h"
#include "BrimbleCore/Encoding/OutputPath.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Version.h"
#include "cli/Command.h"
#include "cli/CommandTable.h"
#include "cli/DisplayCommand.h"
#include "cli/Interrupts.h"
#include "cli/UsageCounting.h"
#include "cli/UsageErrors.h"

namespace {

// The status of a command whose reader went away before it finished writing: what a shell
// reports for a writer ended by SIGPIPE, without the abrupt end.
constexpr int kExitOutputClosed = 128 + SIGPIPE;

void onBrokenPipe(int) {}

// A reader that closes a pipe early (`brimble windows | head -1`, an MCP host that quits) must
// not kill brimble before it has stopped its recorders and removed its temporary files: writes
// fail with EPIPE instead, and each command ends cleanly. An empty handler rather than SIG_IGN,
// because an ignored signal stays ignored in the programs brimble starts: `yes | head` in a
// script's `run` line would complain of a write error, and programs that ignore write errors
// would never end.
void survivePipeReadersLeaving() {
  struct sigaction action {};
  action.sa_handler = onBrokenPipe;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGPIPE, &action, nullptr);
}

bool isBrokenPipe(const std::exception& error) {
  const auto* system = dynamic_cast<const std::system_error*>(&error);
  return system != nullptr && system->code().value() == EPIPE;
}

// Output still buffered must reach the reader, and a reader that left must be noticed.
int flushedOutput(int exitCode) {
  if (std::fflush(stdout) != 0 && errno == EPIPE) {
    return kExitOutputClosed;
  }
  return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace brimble::cli;
  brimble::startDiagnostics("brimble", brimble::kVersion, argc, argv);
  survivePipeReadersLeaving();
  Interrupts interrupts;  // watches Ctrl-C for the commands that ask it to

  CLI::App app;
  bool verbose = false;
  const std::vector<Command> commands = addBrimbleCommands(app, interrupts, verbose);

  // Hidden: the docs' checker asks whether a documented command line still parses (its command,
  // its options and the values they take) without running it, for commands that need a desktop.
  bool parseOnly = false;
  app.add_flag("--parse-only", parseOnly)->group("");
  try {
    app.parse(takeDisplayArguments(argc, argv), argv);
  } catch (const CLI::CallForHelp& request) {
    return app.exit(request);
  } catch (const CLI::CallForAllHelp& request) {
    return app.exit(request);
  } catch (const CLI::CallForVersion& request) {
    return app.exit(request);
  } catch (const CLI::ParseError& error) {
    return reportUsageError(app, error);
  }
  if (parseOnly) {
    return kExitSuccess;
  }
  brimble::setVerboseLogging(verbose);

  for (const Command& command : commands) {
    if (command.app->parsed()) {
      const std::string& name = command.app->get_name();
      try {
        return flushedOutput(countedCommand(name, command.run()));
      } catch (const brimble::OutputPathError& error) {
        fmt::print(stderr, "brimble {}: {}\n", name, error.what());
        return countedCommand(name, error.exitCode());
      } catch (const std::exception& error) {
        if (isBrokenPipe(error)) {
          return countedCommand(name, kExitOutputClosed);
        }
        fmt::print(stderr, "brimble {}: {}\n", name, error.what());
        return countedCommand(name, kExitFailure);
      }
    }
  }
  return kExitUsage;
}
