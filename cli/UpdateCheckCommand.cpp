#include "cli/UpdateCheckCommand.h"

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Support/Version.h"
#include "BrimbleCore/Updates/PackageOwner.h"
#include "BrimbleCore/Updates/UpdateCheck.h"
#include "BrimbleCore/Updates/UpdateError.h"

namespace brimble::cli {
namespace {

struct UpdateCheckOptions {
  std::optional<std::string> feed;
  bool json = false;
};

nlohmann::json asJSON(const UpdateCheckResult& result, const std::optional<std::string>& package) {
  return {{"status", rawValue(result.status)},
          {"current", result.current},
          {"latest", result.newest.version.text()},
          {"date", result.newest.date},
          {"notes", result.newest.notes},
          {"download", result.newest.download},
          {"package", package ? nlohmann::json(*package) : nlohmann::json()},
          {"feed", result.feed}};
}

int runUpdateCheck(const UpdateCheckOptions& options) {
  const std::string feed = updateFeedAddress(options.feed, BRIMBLE_UPDATE_FEED_URL);
  UpdateCheckResult result;
  try {
    result = checkForUpdate(feed, brimble::kVersion);
  } catch (const UpdateError& error) {
    fmt::print(stderr, "brimble update-check: {}\n", error.what());
    if (options.json) {
      fmt::print(
          "{}\n",
          nlohmann::json{{"status", "error"}, {"error", error.what()}, {"feed", feed}}.dump(2));
    }
    return kExitFailure;
  }
  // Only an update needs to know how this copy was installed.
  const std::optional<std::string> package = result.status == UpdateStatus::updateAvailable
                                                 ? packageOwning("/proc/self/exe")
                                                 : std::nullopt;
  if (options.json) {
    fmt::print("{}\n", asJSON(result, package).dump(2));
  } else {
    fmt::print("{}\n", describeUpdate(result, package));
  }
  return kExitSuccess;
}

}  // namespace

Command addUpdateCheckCommand(CLI::App& app) {
  auto options = std::make_shared<UpdateCheckOptions>();
  CLI::App* command = app.add_subcommand(
      "update-check",
      "Say whether a newer Brimble is out, from the release feed (only reads it; downloads and "
      "installs nothing)");
  command
      ->add_option("--feed", options->feed,
                   "The feed's address (else $BRIMBLE_UPDATE_FEED, else " +
                       std::string(BRIMBLE_UPDATE_FEED_URL) + ")")
      ->type_name("URL");
  command->add_flag("--json", options->json, "Print the result as JSON");
  return {command, [options] { return runUpdateCheck(*options); }};
}

}  // namespace brimble::cli
