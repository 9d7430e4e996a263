#include "cli/BrowserCommands.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Automation/CDPDriver.h"
#include "BrimbleCore/Automation/CDPElementDriver.h"
#include "BrimbleCore/Automation/ChromeLauncher.h"
#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Automation/WindowManager.h"
#include "BrimbleCore/Support/Clock.h"
#include "BrimbleCore/Support/Text.h"
#include "cli/CommandDesktop.h"

namespace brimble::cli {
namespace {

struct InspectOptions {
  std::string url;
  std::string app;
  std::string target;
  int limit = 50;
  bool json = false;
  bool headless = false;
};

nlohmann::json rectJSON(const ScreenRect& rect) {
  return {{"x", rect.x}, {"y", rect.y}, {"width", rect.width}, {"height", rect.height}};
}

/// The URL of `page`: a URL (anything that starts with a scheme, "https:", "file:", "about:")
/// as given, else the file:// URL of a file path, relative to the working directory. No value
/// when the path names no file.
std::optional<std::string> pageURL(const std::string& page) {
  static const std::regex kScheme("^[A-Za-z][A-Za-z0-9+.-]*:");
  if (std::regex_search(page, kScheme)) {
    return page;
  }
  std::error_code error;
  const std::filesystem::path path = std::filesystem::absolute(page, error);
  if (error || !std::filesystem::exists(path, error)) {
    return std::nullopt;
  }
  std::string url = "file://";
  for (const char c : path.lexically_normal().string()) {
    // Only unreserved characters and "/" stand for themselves; "#", "?", "%" and spaces would
    // end or change the path part.
    if (std::isalnum(static_cast<unsigned char>(c)) ||
        std::string_view("-._~/").find(c) != std::string_view::npos) {
      url += c;
    } else {
      url += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
  }
  return url;
}

// Finds `options.target` through `driver`, or lists its elements, as the options ask.
int printInspection(ElementDriver& driver, const InspectOptions& options) {
  if (!options.target.empty()) {
    const std::optional<ScreenRect> rect = driver.find(options.target);
    const std::string notFound =
        DemoDriverError::elementNotFound(options.target + " (element not found or not visible)")
            .what();
    if (options.json) {
      nlohmann::json answer{{"target", options.target}, {"found", rect.has_value()}};
      if (rect) {
        answer["rect"] = rectJSON(*rect);
      } else {
        answer["error"] = notFound;
      }
      fmt::print("{}\n", answer.dump());
    } else if (rect) {
      fmt::print("{}: {},{} {}x{}\n", options.target, rect->x, rect->y, rect->width, rect->height);
    } else {
      fmt::print(stderr, "brimble inspect: {}\n", notFound);
    }
    return rect ? kExitSuccess : kExitFailure;
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
  if (elements.empty()) {
    // An application may keep its tree to itself until asked; say so rather than print nothing.
    fmt::print(stderr, "brimble inspect: no visible elements with a role and a name\n");
    return kExitSuccess;
  }
  // Columns as wide as their widest entry (in characters): selectors that spell out a path run
  // long, and names can be in any script.
  const auto width = [](const std::string& text) { return decodeUTF8(text).size(); };
  std::vector<std::array<std::string, 3>> rows;
  std::array<std::size_t, 3> widths{};
  for (const DiscoveredElement& element : elements) {
    rows.push_back({element.role, nlohmann::json(element.text).dump(), element.selector});
    for (std::size_t column = 0; column < 3; ++column) {
      widths[column] = std::max(widths[column], width(rows.back()[column]));
    }
  }
  for (std::size_t row = 0; row < rows.size(); ++row) {
    for (std::size_t column = 0; column < 3; ++column) {
      fmt::print("{}{} ", rows[row][column],
                 std::string(widths[column] - width(rows[row][column]), ' '));
    }
    const ScreenRect& rect = elements[row].rect;
    fmt::print("{},{} {}x{}\n", rect.x, rect.y, rect.width, rect.height);
  }
  return kExitSuccess;
}

int inspectPage(const InspectOptions& options) {
  const auto url = pageURL(options.url);
  if (!url) {
    fmt::print(stderr,
               "brimble inspect: {}: no such file (give a page's path, or a URL with its scheme "
               "such as https://)\n",
               options.url);
    return kExitFailure;
  }
  // Up while the browser runs: it opens its window there.
  const auto desktop = commandDesktop(options.headless);
  const ChromeLauncher::Session browser = ChromeLauncher::launch(0, "about:blank");
  CDPDriver driver = CDPDriver::connect(browser);
  driver.navigate(*url);
  CDPElementDriver elements(driver);
  return printInspection(elements, options);
}

int inspectApp(const InspectOptions& options) {
  const auto desktop = commandDesktop(options.headless);
  const auto match = desktop->windows().find(std::string_view(options.app));
  if (!match) {
    fmt::print(stderr, "brimble inspect: no window of '{}' on display {}\n", options.app,
               desktop->session().name);
    return kExitFailure;
  }
  AccessibilityBackend* accessibility = desktop->accessibility();
  std::string reason = "this platform has no accessibility service";
  if (accessibility == nullptr || !accessibility->available(reason)) {
    fmt::print(stderr,
               "brimble inspect: Accessibility permission is required to inspect {}. Enable the "
               "AT-SPI accessibility bus (package at-spi2-core) for it. ({})\n",
               options.app, reason);
    return kExitFailure;
  }
  const auto elements = accessibility->driverFor(match->window.pid);
  return printInspection(*elements, options);
}

}  // namespace

Command addInspectCommand(CLI::App& app) {
  auto options = std::make_shared<InspectOptions>();
  CLI::App* command = app.add_subcommand(
      "inspect",
      "List what can be clicked or typed into, with screen rectangles, in a page opened in "
      "Chromium or in a running application, or find one target");
  // One of the two: a page or an application.
  CLI::Option_group* subject = command->add_option_group("page or application");
  subject->add_option("--url", options->url, "The page to open: a URL, or the path of a file");
  subject->add_option("--app", options->app,
                      "A running application, through the accessibility service");
  subject->require_option(1);
  command->add_option("--target", options->target,
                      "Find only this target: \"text:Visible text\", \"css:selector\" (pages) "
                      "or \"role:push button/OK\" (applications); exit status 1 when it is not "
                      "there or not visible");
  command->add_option("--limit", options->limit, "List at most this many elements")
      ->check(CLI::Range(1, 10000))
      ->capture_default_str();
  command->add_flag("--json", options->json, "Print JSON");
  command->add_flag("--headless", options->headless,
                    "Use Brimble's embedded display instead of the desktop session");
  return {command, [options] {
            return options->app.empty() ? inspectPage(*options) : inspectApp(*options);
          }};
}

}  // namespace brimble::cli
