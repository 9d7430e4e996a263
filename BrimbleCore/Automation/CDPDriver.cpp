#include "BrimbleCore/Automation/CDPDriver.h"

#include <algorithm>
#include <thread>

#include "BrimbleCore/Automation/CDPError.h"
#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Automation/ElementQuery.h"
#include "BrimbleCore/Automation/WebSocketCDPTransport.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {
namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(100);
constexpr double kMinimumZoom = 0.1;

constexpr const char* kCalibration =
    "(function(){return "
    "{x:window.screenX,y:window.screenY+(window.outerHeight-window.innerHeight),\n"
    "w:window.innerWidth,h:window.innerHeight};})()";

/// What the page in the tab is: the browser's own error page (with its error code) when it
/// could not load one, else the HTTP status its document came with (0 for files and data).
constexpr const char* kLoadOutcome = R"((function(){
  if (location.protocol === 'chrome-error:') {
    var code = document.querySelector('.error-code');
    return {error: ((code && code.innerText) || '').trim() || document.title || 'error page'};
  }
  var entry = performance.getEntriesByType('navigation')[0];
  return {status: (entry && entry.responseStatus) || 0};
})())";

/// The page programs' function that names an element by a selector the page resolves to it and
/// to nothing else: its id, its tag, an attribute, else the steps down from the nearest ancestor
/// an id names (or from the body).
constexpr const char* kSelectorOf = R"(
  var unique = function(selector, element) {
    var all = document.querySelectorAll(selector);
    return all.length === 1 && all[0] === element;
  };
  var selectorOf = function(e) {
    var tag = e.tagName.toLowerCase();
    var tries = e.id ? ['#' + CSS.escape(e.id), tag] : [tag];
    ['name', 'aria-label', 'placeholder', 'title', 'href', 'type'].forEach(function(attribute) {
      var value = e.getAttribute(attribute);
      if (value) { tries.push(tag + '[' + attribute + '="' + CSS.escape(value) + '"]'); }
    });
    for (var i = 0; i < tries.length; i++) {
      if (unique(tries[i], e)) { return tries[i]; }
    }
    var steps = [];
    for (var node = e; node; node = node.parentElement) {
      if (node !== e && node.id && unique('#' + CSS.escape(node.id), node)) {
        steps.unshift('#' + CSS.escape(node.id));
        break;
      }
      if (node === document.body || !node.parentElement) {
        steps.unshift(node.tagName.toLowerCase());
        break;
      }
      var same = Array.from(node.parentElement.children).filter(function(sibling) {
        return sibling.tagName === node.tagName;
      });
      var step = node.tagName.toLowerCase();
      var nth = ':nth-of-type(' + (same.indexOf(node) + 1) + ')';
      steps.unshift(same.length === 1 ? step : step + nth);
    }
    return steps.join(' > ');
  };)";

/// The page program that finds an element for a selector (in the variable `target`): `element`,
/// or null. "text=" looks at controls first, then at plain containers (the innermost that hold
/// the text), and may end in "[N]" for the Nth match. Where several match, the first that is
/// visible and enabled is taken, and `matched` says how many there were and which was taken.
constexpr const char* kLocate = R"(
  var matches = [], index = 0, text = null;
  if (target.indexOf('text=') === 0) {
    text = target.slice(5);
    var numbered = /^(.*)\[([0-9]+)\]$/.exec(text);
    if (numbered) { text = numbered[1]; index = parseInt(numbered[2], 10); }
    var find = function(selector) {
      var found = Array.from(document.querySelectorAll(selector)).filter(function(e) {
        return ((e.innerText || e.value || '') + '').trim().indexOf(text) !== -1;
      });
      return found.filter(function(e) {
        return !found.some(function(inner) { return inner !== e && e.contains(inner); });
      });
    };
    matches = find('a,button,input,[role],label');
    if (!matches.length) { matches = find('span,div,li'); }
  } else {
    matches = Array.from(document.querySelectorAll(target));
  }
  var usable = function(e) {
    var r = e.getBoundingClientRect();
    return r.width > 0 && r.height > 0 && getComputedStyle(e).visibility !== 'hidden' &&
           !e.closest('[disabled],[aria-disabled="true"]');
  };
  var element = null, matched = null;
  if (index > 0) {
    element = matches[index - 1] || null;
  } else if (matches.length) {
    var picked = matches.findIndex(usable);
    element = matches[Math.max(picked, 0)];
    if (matches.length > 1) {
      matched = {count: matches.length, picked: Math.max(picked, 0) + 1, usable: picked >= 0,
                 selector: text === null ? 'css:' + selectorOf(element) : null};
    }
  })";

/// The page program that lists the visible elements one can click or type into (up to `limit`),
/// each with its accessible name and a selector that the page resolves to it and nothing else.
constexpr const char* kDiscover = R"(
  var textOf = function(node) { return node ? ((node.innerText || '') + '').trim() : ''; };
  // A field shows its value; a check box or radio button's value ("on") is not shown.
  var ownText = function(e) {
    var shown = textOf(e);
    return shown || (/^(checkbox|radio)$/i.test(e.type || '') ? '' : ((e.value || '') + '').trim());
  };
  var nameOf = function(e) {
    var labelledBy = (e.getAttribute('aria-labelledby') || '').split(/\s+/).map(function(id) {
      return textOf(id && document.getElementById(id));
    });
    var names = [ownText(e), labelledBy.join(' ').trim(), e.getAttribute('aria-label'),
                 Array.from(e.labels || []).map(textOf).join(' ').trim(),
                 e.getAttribute('placeholder'), e.getAttribute('title'), e.getAttribute('alt')];
    for (var i = 0; i < names.length; i++) {
      if (names[i] && names[i].trim()) { return names[i].trim(); }
    }
    return '';
  };
  var elements = [];
  var all = document.querySelectorAll('a,button,input,textarea,select,[role],[onclick]');
  for (var i = 0; i < all.length && elements.length < limit; i++) {
    var e = all[i];
    var r = e.getBoundingClientRect();
    if (r.width === 0 || r.height === 0) { continue; }
    // Cut on code points: a cut inside a surrogate pair leaves half a character.
    elements.push({role: e.tagName.toLowerCase(), text: Array.from(nameOf(e)).slice(0, 80).join(''),
                   selector: 'css:' + selectorOf(e), x: r.x, y: r.y, w: r.width, h: r.height});
  }
  return {elements: elements};
})())";

std::string locateProgram(const std::string& selector, const std::string& body) {
  return "(function(){var target = " + CDPDriver::javaScriptString(selector) + ";" + kSelectorOf +
         kLocate + body + "})()";
}

}  // namespace

CDPDriver::CDPDriver(std::unique_ptr<CDPConnection> connection)
    : connection_(std::move(connection)) {
  connection_->send("Page.enable");
  connection_->send("Runtime.enable");
}

CDPDriver CDPDriver::connect(const ChromeLauncher::Session& session) {
  return CDPDriver(std::make_unique<CDPConnection>(
      std::make_unique<WebSocketCDPTransport>(session.webSocketDebuggerURL())));
}

std::string CDPDriver::javaScriptString(const std::string& text) {
  std::string literal = "'";
  for (const char c : text) {
    switch (c) {
      case '\\':
        literal += "\\\\";
        break;
      case '\'':
        literal += "\\'";
        break;
      case '\n':
        literal += "\\n";
        break;
      case '\r':
        literal += "\\r";
        break;
      default:
        literal += c;
    }
  }
  return literal + "'";
}

std::string CDPDriver::pageSelector(const std::string& target) {
  const auto value = [&](std::size_t prefix) {
    std::string rest = target.substr(prefix);
    if (rest.empty()) {
      throw DemoDriverError::invalidTarget(target.substr(0, prefix) + " requires a value");
    }
    return rest;
  };
  if (target.rfind("role:", 0) == 0) {
    throw DemoDriverError::invalidTarget(
        "role: targets are AX-only; use css: or text: in a browser session");
  }
  if (target.rfind("text:", 0) == 0) {
    return "text=" + value(5);
  }
  if (target.rfind("css:", 0) == 0) {
    return value(4);
  }
  if (target.empty()) {
    throw DemoDriverError::invalidTarget("empty target");
  }
  return target;
}

nlohmann::json CDPDriver::evaluate(const std::string& expression) {
  const nlohmann::json answer = connection_->send(
      "Runtime.evaluate",
      {{"expression", expression}, {"returnByValue", true}, {"awaitPromise", true}});
  if (const auto exception = answer.find("exceptionDetails"); exception != answer.end()) {
    std::string text = exception->value("text", "JavaScript exception");
    if (const auto thrown = exception->find("exception"); thrown != exception->end()) {
      text += " " + thrown->value("description", "");
    }
    throw DemoDriverError::actionFailed(text);
  }
  const auto result = answer.find("result");
  if (result == answer.end() || !result->is_object()) {
    throw CDPError::malformedMessage();
  }
  return result->value("value", nlohmann::json());
}

void CDPDriver::navigate(const std::string& url, std::chrono::milliseconds timeout) {
  // Page.navigate answers before the old document is gone, and the old one is "complete": mark
  // it, and wait for a complete document without the mark.
  evaluate("window.__brimbleLeaving = true;");
  const nlohmann::json answer = connection_->send("Page.navigate", {{"url", url}});
  if (const auto error = answer.find("errorText"); error != answer.end() && error->is_string()) {
    throw DemoDriverError::actionFailed("page not found: " + url + " could not be loaded (" +
                                        error->get<std::string>() + ")");
  }
  geometry_.reset();
  const std::string arrived =
      "(!window.__brimbleLeaving || location.href === " + javaScriptString(url) +
      ") && document.readyState === 'complete'";
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (evaluate(arrived) != true) {
    if (std::chrono::steady_clock::now() > deadline) {
      throw DemoDriverError::actionFailed("page " + url + " did not finish loading");
    }
    std::this_thread::sleep_for(kPollInterval);
  }
  checkLoaded(url);
}

void CDPDriver::checkLoaded(const std::string& url) {
  const nlohmann::json outcome = evaluate(kLoadOutcome);
  if (!outcome.is_object()) {
    return;
  }
  if (const auto error = outcome.find("error"); error != outcome.end() && error->is_string()) {
    throw DemoDriverError::actionFailed("page not found: " + url + " could not be loaded (" +
                                        error->get<std::string>() + ")");
  }
  // An error status with a page of the server's own still is no page the script meant.
  const int status = outcome.value("status", 0);
  if (status >= 400) {
    throw DemoDriverError::actionFailed("page not found: " + url + " answered HTTP " +
                                        std::to_string(status));
  }
}

void CDPDriver::waitForLoad(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (evaluate("document.readyState") != "complete") {
    if (std::chrono::steady_clock::now() > deadline) {
      throw DemoDriverError::actionFailed("the page did not finish loading");
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

void CDPDriver::setViewport(int width, int height) {
  connection_->send(
      "Emulation.setDeviceMetricsOverride",
      {{"width", width}, {"height", height}, {"deviceScaleFactor", 1}, {"mobile", false}});
  geometry_.reset();
}

CDPCalibration CDPDriver::calibrate() {
  const nlohmann::json area = evaluate(kCalibration);
  if (!area.is_object()) {
    throw DemoDriverError::actionFailed("the page did not report its window");
  }
  const CDPCalibration calibration{area.value("x", 0.0), area.value("y", 0.0), area.value("w", 0.0),
                                   area.value("h", 0.0)};
  if (!(calibration.w > 0) || !(calibration.h > 0)) {
    throw DemoDriverError::actionFailed("the page reported an empty content area");
  }
  geometry_ = CDPGeometry{calibration, 1};
  return calibration;
}

CDPGeometry CDPDriver::geometry() {
  if (!geometry_) {
    calibrate();
  }
  return *geometry_;
}

std::optional<ElementRect> CDPDriver::locate(const std::string& target) {
  const nlohmann::json rect = evaluate(
      locateProgram(pageSelector(target),
                    "if (!element) { return null; }"
                    "var r = element.getBoundingClientRect();"
                    "return {x: r.x, y: r.y, w: r.width, h: r.height, matched: matched};"));
  if (!rect.is_object()) {
    return std::nullopt;
  }
  noteMatches(target, rect);
  return ElementRect{rect.value("x", 0.0), rect.value("y", 0.0), rect.value("w", 0.0),
                     rect.value("h", 0.0)};
}

ElementRect CDPDriver::visibleRect(const std::string& target) {
  const auto rect = locate(target);
  if (!rect) {
    throw DemoDriverError::elementNotFound(target);
  }
  // A hidden element (display: none, or inside one) has an empty box at the page's corner.
  if (!(rect->w > 0) || !(rect->h > 0)) {
    throw DemoDriverError::elementNotFound(target + " (element not found or not visible)");
  }
  return *rect;
}

ScreenRect CDPDriver::screenRect(const std::string& target) {
  return geometry().toScreen(visibleRect(target));
}

void CDPDriver::click(const std::string& target) {
  const ElementRect rect = visibleRect(target);
  const double x = rect.x + rect.w * 0.5;
  const double y = rect.y + rect.h * 0.5;
  const CDPCalibration area = geometry().calibration;
  if (x < 0 || y < 0 || x >= area.w || y >= area.h) {
    throw DemoDriverError::elementNotFound(target + " (element not found or not visible)");
  }
  for (const char* type : {"mousePressed", "mouseReleased"}) {
    connection_->send("Input.dispatchMouseEvent",
                      {{"type", type}, {"x", x}, {"y", y}, {"button", "left"}, {"clickCount", 1}});
  }
}

void CDPDriver::fill(const std::string& target, const std::string& text) {
  const nlohmann::json filled =
      evaluate(locateProgram(pageSelector(target),
                             "if (!element) { return false; }"
                             "element.focus();"
                             "element.value = " +
                                 javaScriptString(text) +
                                 ";"
                                 "element.dispatchEvent(new Event('input', {bubbles: true}));"
                                 "element.dispatchEvent(new Event('change', {bubbles: true}));"
                                 "return {matched: matched};"));
  if (!filled.is_object()) {
    throw DemoDriverError::elementNotFound(target);
  }
  noteMatches(target, filled);
}

void CDPDriver::focus(const std::string& target) {
  const nlohmann::json focused = evaluate(
      locateProgram(pageSelector(target),
                    "if (!element) { return false; } element.focus(); return {matched: matched};"));
  if (!focused.is_object()) {
    throw DemoDriverError::elementNotFound(target);
  }
  noteMatches(target, focused);
}

void CDPDriver::noteMatches(const std::string& target, const nlohmann::json& answer) {
  const auto matched = answer.find("matched");
  if (matched == answer.end() || !matched->is_object() || !warned_.insert(target).second) {
    return;
  }
  const int picked = matched->value("picked", 1);
  const std::string selector = matched->value("selector", nlohmann::json()).is_string()
                                   ? (*matched)["selector"].get<std::string>()
                                   : ElementQuery::withIndex(target, picked);
  logLine(ElementQuery::ambiguityWarning(target, matched->value("count", 0), picked,
                                         matched->value("usable", false)
                                             ? "the first that is visible and enabled"
                                             : "none is visible and enabled",
                                         selector));
}

ElementRect CDPDriver::waitFor(const std::string& target, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (true) {
    if (const auto rect = locate(target)) {
      return *rect;
    }
    if (std::chrono::steady_clock::now() > deadline) {
      throw DemoDriverError::elementNotFound(target);
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

void CDPDriver::setRealZoom(double scale, const std::optional<std::string>& focus) {
  scale = std::max(scale, kMinimumZoom);
  if (scale <= 1) {
    evaluate("document.body.style.zoom='1';");
    return;
  }
  std::string program = "document.body.style.zoom='" + std::to_string(scale) + "';";
  if (focus) {
    program = locateProgram(
        pageSelector(*focus),
        program +
            "if (element) { element.scrollIntoView({block:'center',inline:'center'}); }"
            "return true;");
  }
  evaluate(program);
}

std::vector<DiscoveredElement> CDPDriver::listElements(int limit) {
  const nlohmann::json found =
      evaluate("(function(){var limit = " + std::to_string(std::max(limit, 0)) + ";" + kSelectorOf +
               kDiscover);
  std::vector<DiscoveredElement> elements;
  if (!found.is_object() || !found.contains("elements") || !found["elements"].is_array()) {
    return elements;
  }
  const CDPGeometry mapping = geometry();
  for (const nlohmann::json& element : found["elements"]) {
    elements.push_back({element.value("role", ""), element.value("text", ""),
                        element.value("selector", ""),
                        mapping.toScreen({element.value("x", 0.0), element.value("y", 0.0),
                                          element.value("w", 0.0), element.value("h", 0.0)})});
  }
  return elements;
}

}  // namespace brimble
