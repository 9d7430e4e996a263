#include "cli/BrowserCommands.h"

#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Automation/CDPDriver.h"
#include "BrimbleCore/Automation/ChromeLauncher.h"
#include "cli/DisplaySession.h"

namespace brimble::cli {
namespace {

struct InspectOptions {
  std::string url;
  std::string target;
  int limit = 50;
  bool json = false;
  bool headless = false;
};

nlohmann::json rectJSON(const ScreenRect& rect) {
  return {{"x", rect.x}, {"y", rect.y}, {"width", rect.width}, {"height", rect.height}};
}

int runInspect(const InspectOptions& options) {
  const DisplaySession display(options.headless);
  const ChromeLauncher::Session browser = ChromeLauncher::launch(0, "about:blank");
  CDPDriver driver = CDPDriver::connect(browser);
  driver.navigate(options.url);
  if (!options.target.empty()) {
    const ScreenRect rect = driver.screenRect(options.target);
    if (options.json) {
      fmt::print("{}\n",
                 nlohmann::json{{"target", options.target}, {"rect", rectJSON(rect)}}.dump());
    } else {
      fmt::print("{}: {},{} {}x{}\n", options.target, rect.x, rect.y, rect.width, rect.height);
    }
    return kExitSuccess;
  }
  const auto elements = driver.listElements(options.limit);
  if (options.json) {
    nlohmann::json list = nlohmann::json::array();
    for (const DiscoveredElement& element : elements) {
      list.push_back({{"role", element.role},
                      {"text", element.text},
                      {"selector", element.selector},
                      {"rect", rectJSON(element.rect)}});
    }
    fmt::print("{}\n", nlohmann::json{{"elements", list}}.dump());
    return kExitSuccess;
  }
  for (const DiscoveredElement& element : elements) {
    fmt::print("{:<10} {:<40} {:<24} {},{} {}x{}\n", element.role,
               nlohmann::json(element.text).dump(), element.selector, element.rect.x,
               element.rect.y, element.rect.width, element.rect.height);
  }
  return kExitSuccess;
}

}  // namespace

Command addInspectCommand(CLI::App& app) {
  auto options = std::make_shared<InspectOptions>();
  CLI::App* command = app.add_subcommand(
      "inspect",
      "Open a page in Chromium and list what can be clicked or typed into, with screen "
      "rectangles, or find one target");
  command->add_option("--url", options->url, "The page to open")->required();
  command->add_option("--target", options->target,
                      "Find only this target: \"text:Visible text\" or \"css:selector\"");
  command->add_option("--limit", options->limit, "List at most this many elements")
      ->check(CLI::Range(1, 10000))
      ->capture_default_str();
  command->add_flag("--json", options->json, "Print JSON");
  command->add_flag("--headless", options->headless,
                    "Use Brimble's embedded display even when $DISPLAY is set");
  return {command, [options] { return runInspect(*options); }};
}

}  // namespace brimble::cli
