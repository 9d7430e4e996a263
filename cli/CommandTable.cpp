#include "cli/CommandTable.h"

#include <string>

#include <CLI/CLI.hpp>

#include "BrimbleCore/Support/Version.h"
#include "cli/BrowserCommands.h"
#include "cli/CaptureCommands.h"
#include "cli/Completions.h"
#include "cli/DisplayCommand.h"
#include "cli/DoctorCommands.h"
#include "cli/EncodeCommand.h"
#include "cli/InputCommand.h"
#include "cli/MCPInstallCommands.h"
#include "cli/MCPServerCommand.h"
#include "cli/ManualPages.h"
#include "cli/ProcessCommand.h"
#include "cli/ReferenceCommands.h"
#include "cli/RunCommand.h"
#include "cli/StatsCommand.h"
#include "cli/UpdateCheckCommand.h"
#include "cli/ValidateCommand.h"
#include "cli/WindowCommands.h"

namespace brimble::cli {

std::vector<Command> addBrimbleCommands(CLI::App& app, Interrupts& interrupts, bool& verbose) {
  app.name("brimble");
  app.description("Brimble turns screen activity into animated GIFs, WebP and APNG.");
  app.set_version_flag("--version", std::string("brimble ") + kVersion);
  app.require_subcommand(1);
  app.add_flag("--verbose", verbose,
               "Say more of what is happening on standard error (the log always has it)");

  return {
      addEncodeCommand(app, interrupts),
      addProcessCommand(app, interrupts),
      addRunCommand(app, interrupts),
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
      addDoctorCommand(app),
      addReportCommand(app),
      addStatsCommand(app),
      addUpdateCheckCommand(app),
      addCompletionCommand(app),
      addManualCommand(app),
  };
}

}  // namespace brimble::cli
