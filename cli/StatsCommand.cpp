#include "cli/StatsCommand.h"

#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Diagnostics/UsageStatistics.h"

namespace brimble::cli {
namespace {

struct StatsOptions {
  bool json = false;
  bool on = false;
  bool off = false;
  bool reset = false;
};

// "(gif 3, mp4 1)", or nothing for an empty table.
std::string breakdown(const std::map<std::string, std::uint64_t>& table) {
  std::string text;
  for (const auto& [name, count] : table) {
    text += fmt::format("{}{} {}", text.empty() ? " (" : ", ", name, count);
  }
  return text.empty() ? text : text + ")";
}

void printCounts(const UsageStatistics& statistics) {
  const UsageCounts counts = statistics.counts();
  if (counts.since.empty()) {
    fmt::print("Nothing counted yet.\n");
  } else {
    fmt::print("Since {}:\n", counts.since);
    fmt::print("  runs        {}\n", counts.runs);
    fmt::print("  recordings  {}\n", counts.recordings);
    fmt::print("  renders     {}{}\n", counts.renders, breakdown(counts.formats));
    std::uint64_t failures = 0;
    for (const auto& [name, count] : counts.failures) {
      failures += count;
    }
    fmt::print("  failures    {}{}\n", failures, breakdown(counts.failures));
  }
  fmt::print("{} These counts stay on this computer ({}) and are never sent anywhere.\n",
             statistics.enabled() ? "Counting is on (brimble stats --off stops it)."
                                  : "Counting is off (brimble stats --on starts it again).",
             statistics.file().string());
}

void printJSON(const UsageStatistics& statistics) {
  nlohmann::json document = nlohmann::json::parse(usageCountsJSON(statistics.counts()));
  document["enabled"] = statistics.enabled();
  document["file"] = statistics.file().string();
  fmt::print("{}\n", document.dump(2));
}

int runStats(const StatsOptions& options) {
  const UsageStatistics statistics = UsageStatistics::forUser();
  try {
    if (options.reset) {
      statistics.reset();
    }
    if (options.on || options.off) {
      statistics.setEnabled(options.on);
    }
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimble stats: {}\n", error.what());
    return kExitFailure;
  }
  if (options.json) {
    printJSON(statistics);
  } else {
    printCounts(statistics);
  }
  return kExitSuccess;
}

}  // namespace

Command addStatsCommand(CLI::App& app) {
  auto options = std::make_shared<StatsOptions>();
  CLI::App* command = app.add_subcommand(
      "stats",
      "Show the usage counts kept on this computer (runs, recordings, renders, formats, "
      "failures); never sent anywhere");
  command->add_flag("--json", options->json, "Print the counts as JSON");
  auto* on = command->add_flag("--on", options->on, "Count from now on (the default)");
  command->add_flag("--off", options->off, "Stop counting; nothing is counted or written")
      ->excludes(on);
  command->add_flag("--reset", options->reset, "Forget every count");
  return {command, [options] { return runStats(*options); }};
}

}  // namespace brimble::cli
