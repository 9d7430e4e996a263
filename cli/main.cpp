// brimble: screen activity into animated GIFs, from the command line.

#include <cstdio>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "cli/CaptureCommands.h"
#include "cli/Command.h"
#include "cli/DisplayCommand.h"
#include "cli/EncodeCommand.h"
#include "cli/BrowserCommands.h"
#include "cli/InputCommand.h"
#include "cli/Interrupts.h"
#include "cli/MCPInstallCommands.h"
#include "cli/MCPServerCommand.h"
#include "cli/ProcessCommand.h"
#include "cli/ReferenceCommands.h"
#include "cli/ValidateCommand.h"
#include "cli/WindowCommands.h"

int main(int argc, char** argv) {
  using namespace brimble::cli;
  Interrupts interrupts;  // watches Ctrl-C for the commands that ask it to

  CLI::App app{"Brimble turns screen activity into animated GIFs, WebP and APNG.", "brimble"};
  app.set_version_flag("--version", std::string("brimble ") + BRIMBLE_VERSION);
  app.require_subcommand(1);
  app.failure_message(CLI::FailureMessage::help);

  const std::vector<Command> commands = {
      addEncodeCommand(app, interrupts),
      addProcessCommand(app, interrupts),
      addValidateCommand(app),
      addCommandsCommand(app),
      addSettingsCommand(app),
      addMCPServerCommand(app),
      addMCPInstallCommand(app),
      addMCPUninstallCommand(app),
      addMCPStatusCommand(app),
      addDisplayCommand(app),
      addInspectCommand(app),
      addRecordCommand(app, interrupts),
      addStillCommand(app),
      addWindowsCommand(app),
      addWindowCommand(app),
      addInputCommand(app, interrupts),
  };

  try {
    app.parse(takeDisplayArguments(argc, argv), argv);
  } catch (const CLI::CallForHelp& request) {
    return app.exit(request);
  } catch (const CLI::CallForAllHelp& request) {
    return app.exit(request);
  } catch (const CLI::CallForVersion& request) {
    return app.exit(request);
  } catch (const CLI::ParseError& error) {
    app.exit(error);
    return kExitUsage;
  }

  for (const Command& command : commands) {
    if (command.app->parsed()) {
      try {
        return command.run();
      } catch (const std::exception& error) {
        fmt::print(stderr, "brimble {}: {}\n", command.app->get_name(), error.what());
        return kExitFailure;
      }
    }
  }
  return kExitUsage;
}
