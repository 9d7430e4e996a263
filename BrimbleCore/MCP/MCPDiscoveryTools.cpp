// The discovery family: the elements of a Chrome page (over CDP) or of a running application
// (through the accessibility service), so an assistant can find what to click.

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "BrimbleCore/Automation/AccessibilityBackend.h"
#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/MCP/MCPToolSupport.h"
#include "BrimbleCore/MCP/MCPTools.h"

namespace brimble::mcp {
namespace {

constexpr int kDefaultLimit = 100;
constexpr int kMaxLimit = 500;
constexpr int kFreshPageRetries = 20;
constexpr auto kFreshPageRetryDelay = std::chrono::milliseconds(100);

/// The element driver a call names, with what keeps it alive (a browser, ended with it).
struct Inspection {
  std::unique_ptr<BrowserSession> browser;
  std::unique_ptr<ElementDriver> native;

  ElementDriver& elements() { return browser ? browser->elements() : *native; }
};

Inspection inspect(MCPDesktop& desktop, const Arguments& arguments) {
  if (const auto url = arguments.string("url")) {
    requireScreen(desktop);
    BrowserLauncher* browsers = desktop.browsers();
    if (browsers == nullptr) {
      fail("Failed to open " + *url + " in Chrome: Google Chrome or Chromium is not installed");
    }
    try {
      return {browsers->launch(*url), nullptr};
    } catch (const std::exception& error) {
      fail("Failed to open " + *url + " in Chrome: " + error.what());
    }
  }
  if (const auto app = arguments.string("app")) {
    const auto match = desktop.windows().find(*app);
    if (!match) {
      fail("App not running: " + *app);
    }
    const std::string permission = "Accessibility permission is required to inspect " + *app +
                                   ". Enable the AT-SPI accessibility bus (package at-spi2-core) "
                                   "for it.";
    AccessibilityBackend* backend = desktop.windows().accessibility();
    std::string reason;
    if (backend == nullptr || !backend->available(reason)) {
      fail(permission);
    }
    try {
      return {nullptr, backend->driverFor(match->window.pid)};
    } catch (const DemoDriverError& error) {
      if (error.code() == DemoDriverError::Code::permissionDenied) {
        fail(permission);
      }
      fail(error.what());
    }
  }
  fail("Provide either 'url' (Chrome page) or 'app' (running app name) to inspect");
}

JSONValue rectJSON(const ScreenRect& rect) {
  return JSONValue::Object{
      {"x", rect.x}, {"y", rect.y}, {"width", rect.width}, {"height", rect.height}};
}

JSONValue listElements(MCPDesktop& desktop, const Arguments& arguments) {
  const int limit = std::clamp(arguments.integer("limit").value_or(kDefaultLimit), 1, kMaxLimit);
  Inspection inspection = inspect(desktop, arguments);
  std::vector<DiscoveredElement> found;
  try {
    found = inspection.elements().listElements(limit);
    for (int attempt = 0; found.empty() && inspection.browser && attempt < kFreshPageRetries;
         ++attempt) {
      std::this_thread::sleep_for(kFreshPageRetryDelay);
      found = inspection.elements().listElements(limit);
    }
  } catch (const std::exception& error) {
    fail(std::string("Failed to list elements: ") + error.what());
  }
  if (found.size() > static_cast<std::size_t>(limit)) {
    found.resize(static_cast<std::size_t>(limit));
  }
  JSONValue::Array elements;
  for (const DiscoveredElement& element : found) {
    elements.push_back(JSONValue::Object{{"role", element.role},
                                         {"text", element.text},
                                         {"selector", element.selector},
                                         {"rect", rectJSON(element.rect)}});
  }
  return JSONValue::Object{{"count", elements.size()}, {"elements", std::move(elements)}};
}

JSONValue resolveTarget(MCPDesktop& desktop, const Arguments& arguments) {
  const auto target = arguments.string("target");
  if (!target || target->empty()) {
    fail("'target' is required (e.g. \"text:Save\", \"css:#submit\")");
  }
  Inspection inspection = inspect(desktop, arguments);
  try {
    auto rect = inspection.elements().find(*target);
    // A page opened for this call may still be laying out when it reports loaded: a target
    // that is not visible yet gets a moment before it counts as missing.
    for (int attempt = 0; !rect && inspection.browser && attempt < kFreshPageRetries; ++attempt) {
      std::this_thread::sleep_for(kFreshPageRetryDelay);
      rect = inspection.elements().find(*target);
    }
    if (rect) {
      return JSONValue::Object{{"found", true}, {"target", *target}, {"rect", rectJSON(*rect)}};
    }
    return JSONValue::Object{
        {"found", false}, {"target", *target}, {"reason", "No visible element matches " + *target}};
  } catch (const DemoDriverError& error) {
    return JSONValue::Object{{"found", false}, {"target", *target}, {"reason", error.what()}};
  }
}

}  // namespace

void registerDiscoveryTools(const ToolEnvironment& environment) {
  MCPDesktop& desktop = environment.desktop;
  environment.server.registerTool(
      {"list_elements",
       "List targetable elements of a Chrome page (pass 'url') or a running app window (pass "
       "'app'). Returns roles, visible text, paste-ready target selectors, and screen rects so "
       "you can discover what's clickable without a human describing the UI.",
       objectSchema({{"url", property("string", "Chrome page URL to inspect (CDP)")},
                     {"app", property("string", "Running app name to inspect (Accessibility)")},
                     {"limit", property("integer",
                                        "Max elements to return (default 100, max "
                                        "500)")}})},
      [&desktop](const JSONValue& arguments) {
        return listElements(desktop, Arguments(arguments));
      });
  environment.server.registerTool(
      {"resolve_target",
       "Verify an element target exists and return its on-screen rect (verify-before-act). Pass "
       "'target' (e.g. \"text:Save\", \"css:#submit\", \"role:AXButton/OK\") plus 'url' (Chrome) "
       "or 'app' (running app).",
       objectSchema({{"target", property("string", "Element target: text:/css:/role: grammar")},
                     {"url", property("string", "Chrome page URL (CDP)")},
                     {"app", property("string", "Running app name (Accessibility)")}},
                    {"target"})},
      [&desktop](const JSONValue& arguments) {
        return resolveTarget(desktop, Arguments(arguments));
      });
}

}  // namespace brimble::mcp
