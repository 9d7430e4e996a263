#include "cli/DoctorCommands.h"

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include "BrimbleCore/Diagnostics/Doctor.h"
#include "BrimbleCore/Diagnostics/ProblemReport.h"
#include "BrimbleCore/Support/UserFolders.h"
#include "BrimbleCore/Support/Version.h"
#include "cli/OptionValues.h"

namespace brimble::cli {
namespace {

struct DoctorOptions {
  bool json = false;
  bool headless = false;
};

int runDoctor(const DoctorOptions& options) {
  const CrashReports crashes;
  const DoctorReport report = examineMachine(options.headless, crashes);
  if (options.json) {
    fmt::print("{}\n", report.json().dump(2));
  } else {
    fmt::print("{}", report.text());
  }
  // Shown now, so the app's next start need not say it again.
  if (report.newCrashes > 0) {
    try {
      crashes.markSeen();
    } catch (const std::exception&) {
      // They are shown again next time; nothing else depends on it.
    }
  }
  return report.ready() ? kExitSuccess : kExitFailure;
}

struct ReportOptions {
  std::string output;
  bool show = false;
  bool yes = false;
};

// Only a person at a terminal is asked; a script that names the file has already chosen.
bool confirmed(const std::string& output) {
  if (::isatty(STDIN_FILENO) == 0 || ::isatty(STDOUT_FILENO) == 0) {
    return true;
  }
  fmt::print("Save it as {}? [Y/n] ", output);
  std::fflush(stdout);
  std::string answer;
  if (!std::getline(std::cin, answer)) {
    return false;
  }
  return answer.empty() || answer[0] == 'y' || answer[0] == 'Y';
}

int runReport(const ReportOptions& options) {
  const DoctorReport doctor = examineMachine(false);
  const ProblemReport report =
      ProblemReport::gather({doctor.text(), doctor.json().dump(2), userFolders::state(),
                             userFolders::home(), brimble::kVersion});
  if (options.show) {
    for (const ProblemReport::File& file : report.files()) {
      fmt::print("==> {} <==\n{}{}", file.name, file.contents,
                 file.contents.ends_with('\n') ? "\n" : "\n\n");
    }
    return kExitSuccess;
  }
  const std::string output = options.output.empty() ? defaultReportName() : options.output;
  fmt::print("A problem report holds:\n{}", report.summary());
  fmt::print(
      "Nothing else: no recordings, scripts or files of yours, and your home folder is written "
      "as ~. See it all with brimble report --show.\n");
  if (!options.yes && !confirmed(output)) {
    fmt::print("Nothing saved.\n");
    return kExitSuccess;
  }
  try {
    report.save(output);
  } catch (const ProblemReportError& error) {
    fmt::print(stderr, "brimble report: {}\n", error.what());
    return kExitFailure;
  }
  fmt::print("Saved {}.\nAttach it, with a few words on what happened, to a new issue at {}\n",
             output, kIssueTracker);
  return kExitSuccess;
}

}  // namespace

Command addDoctorCommand(CLI::App& app) {
  auto options = std::make_shared<DoctorOptions>();
  CLI::App* command = app.add_subcommand(
      "doctor", "Check what this machine offers Brimble, and how to fix what is missing");
  command->add_flag("--json", options->json, "Print the checks as JSON");
  command->add_flag("--headless", options->headless,
                    "Only Brimble's own display is needed (brimble run, --headless): the "
                    "desktop's checks do not fail the command");
  return {command, [options] { return runDoctor(*options); }};
}

Command addReportCommand(CLI::App& app) {
  auto options = std::make_shared<ReportOptions>();
  CLI::App* command = app.add_subcommand(
      "report", "Make one archive to attach to a problem report, shown before it is saved");
  command
      ->add_option("-o,--output", options->output,
                   "The archive to write (default: brimble-report-DATE-TIME.tar.gz here); an "
                   "existing file is never replaced")
      ->check(fileValue());
  command->add_flag("--show", options->show,
                    "Print everything the report would hold; save nothing");
  command->add_flag("-y,--yes", options->yes, "Save without asking");
  return {command, [options] { return runReport(*options); }};
}

}  // namespace brimble::cli
