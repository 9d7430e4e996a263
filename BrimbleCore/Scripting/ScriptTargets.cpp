#include "BrimbleCore/Scripting/ScriptTargets.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <system_error>

#include <fmt/format.h>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Automation/InputSimulator.h"
#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptTerminalLook.h"
#include "BrimbleCore/Support/Text.h"
#include "BrimbleCore/Support/XID.h"

namespace brimble {
namespace {

// How long `capture-window` and `browser` look for a window that is still opening.
constexpr double kWindowAppearTimeout = 10;
constexpr double kWindowPoll = 0.1;

// Whether a page address without a scheme is meant as a file: a path ("/", "./", "../", "~/")
// or a document's name ("form.html", "pages/form.html"), but not a web address that a browser's
// address bar would complete ("example.org/index.html", "localhost:8000/form.html").
bool namesFile(const std::string& text) {
  if (text.starts_with("/") || text.starts_with("./") || text.starts_with("../") ||
      text.starts_with("~/")) {
    return true;
  }
  static const std::regex kDocument(
      R"(.*\.(html?|xhtml|shtml|svg|xml|txt|pdf|json|md|png|jpe?g|gif|webp))", std::regex::icase);
  if (!std::regex_match(text, kDocument)) {
    return false;
  }
  const std::string host = text.substr(0, text.find('/'));
  return host == text || (host.find_first_of(".:") == std::string::npos && host != "localhost");
}

}  // namespace

ScriptTargets::ScriptTargets(const ScriptServices& services, const ScriptOptions& options,
                             ScriptContext& context, ScriptClock& clock)
    : services_(services),
      options_(options),
      context_(context),
      clock_(clock),
      terminalText_(services.windows) {}

void ScriptTargets::open(const OpenInstruction& open, int line,
                         const std::vector<std::string>& environment) {
  const std::string app = context_.resolve(open.app, line);
  const TerminalLook look = scriptTerminalLook(context_);
  const auto pixels = scriptTerminalPixelSize(context_);
  const bool dressed = namesTerminal(app) && (!look.empty() || pixels);
  // Only xterm tells what it shows (it logs what its programs write); any other terminal's
  // text is read off its picture.
  std::filesystem::path log = logTerminals_ && namesTerminal(app) ? terminalText_.newLog() : "";
  std::uint32_t id = 0;
  if (dressed || !log.empty()) {
    try {
      id = services_.windows.openTerminal(look, log, environment);
    } catch (const WindowManagerError& error) {
      if (dressed || error.code() != WindowManagerError::Code::launchFailed) {
        throw;
      }
      log.clear();
      id = services_.windows.openApp(app, environment);
    }
  } else {
    id = services_.windows.openApp(app, environment);
  }
  if (!log.empty()) {
    // xterm's own size when neither the look nor its window says. Followed before any resize,
    // while the window still says which cells it sizes in.
    terminalText_.follow(id, log, look.columns.value_or(80), look.rows.value_or(24));
  }
  if (dressed && pixels) {
    // A terminal sizes in whole cells; the size asked is kept exactly all the same (a frame of a
    // given size), the part of a cell left over painted in the terminal's background.
    services_.windows.allowAnySize(id);
    const auto opened = services_.windows.find(id);
    const ScreenRect now = opened ? opened->contentFrame : ScreenRect{};
    services_.windows.resize(id, pixels->width.value_or(now.width),
                             pixels->height.value_or(now.height));
  }
  const auto window = services_.windows.find(id);
  targetWindow_ = TargetWindow{id, app, window ? window->pid : 0};
  options_.progress("     opened " + app + " (window " + formatXID(id) + ")");
}

void ScriptTargets::focus(const FocusInstruction& focus, int line) {
  const std::string app = context_.resolve(focus.app, line);
  services_.windows.focusApp(app);
  if (const auto match = services_.windows.find(std::string_view(app))) {
    targetWindow_ = TargetWindow{match->window.id, app, match->window.pid};
  }
}

std::optional<WindowInfo> ScriptTargets::waitForWindow(
    const std::function<std::optional<WindowInfo>()>& find) {
  const Clock::TimePoint deadline = clock_.after(kWindowAppearTimeout);
  while (true) {
    if (auto window = find()) {
      return window;
    }
    if (clock_.now() >= deadline || clock_.shouldStop()) {
      return std::nullopt;
    }
    clock_.sleep(kWindowPoll);
  }
}

void ScriptTargets::capture(const WindowInfo& window, const std::string& app,
                            const std::optional<std::string>& variable) {
  capturedWindow_ = targetWindow_ = TargetWindow{window.id, app, window.pid};
  if (variable) {
    context_.setVariable(*variable, ScriptVariableValue::windowID(window.id));
  }
  activeDriverIsBrowser_ = browser_ && window.id == browserWindowID_;
}

void ScriptTargets::captureWindow(const CaptureWindowInstruction& capture, int line) {
  const std::string wanted = context_.resolve(capture.window.value, line);
  std::optional<WindowInfo> window;
  std::string description;
  if (capture.window.kind == WindowReference::Kind::appName) {
    description = "app '" + wanted + "'";
    // An application started a moment ago (by `run`, say) may not have its window yet.
    window = waitForWindow([&]() -> std::optional<WindowInfo> {
      const auto match = services_.windows.find(std::string_view(wanted));
      return match ? std::optional(match->window) : std::nullopt;
    });
  } else {
    const auto id = parseXID(wanted);
    if (!id) {
      throw ScriptError::invalidValue(line, wanted, "capture-window id",
                                      "expected a window id such as 0x1a00007 or 27262983");
    }
    description = "id " + formatXID(*id);
    window = services_.windows.find(*id);
  }
  if (!window) {
    throw ScriptError::windowNotFound(description);
  }
  const std::string app = capture.window.kind == WindowReference::Kind::appName
                              ? wanted
                              : (window->appName.empty() ? description : window->appName);
  this->capture(*window, app, capture.variable);
  options_.progress(fmt::format("     captured {} window {} ({}x{})", app, formatXID(window->id),
                                window->contentFrame.width, window->contentFrame.height));
}

void ScriptTargets::target(const TargetInstruction& target, int line) {
  const std::string wanted = context_.resolve(target.match, line);
  std::optional<WindowInfo> window;
  std::string app = wanted;
  if (target.kind == TargetInstruction::Kind::app) {
    const auto match = services_.windows.find(std::string_view(wanted));
    window = match ? std::optional(match->window) : std::nullopt;
  } else {
    const std::string needle = lowercased(wanted);
    for (const WindowInfo& candidate : services_.windows.windows()) {
      if (lowercased(candidate.title).find(needle) != std::string::npos) {
        window = candidate;
        app = candidate.appName;
        break;
      }
    }
  }
  if (!window) {
    throw ScriptError::windowNotFound(
        (target.kind == TargetInstruction::Kind::app ? "app '" : "title matching '") + wanted +
        "'");
  }
  capture(*window, app, target.variable);
  options_.progress("     targeting " + app + " window " + formatXID(window->id));
}

void ScriptTargets::browser(const BrowserInstruction& browser, int line) {
  if (services_.browsers == nullptr) {
    throw ScriptError::runtimeError(line, "Google Chrome or Chromium is not installed");
  }
  const std::string url = pageAddress(context_.resolve(browser.url, line), line);
  browser_.reset();  // one browser session at a time
  browser_ = services_.browsers->launch(url);
  const int pid = browser_->pid();
  const auto window = waitForWindow([&] { return services_.windows.find(OwnerPID{pid}); });
  if (!window) {
    throw ScriptError::runtimeError(line, "the browser opened no window");
  }
  browserWindowID_ = window->id;
  browserURL_ = url;
  activeDriverIsBrowser_ = true;
  targetWindow_ = TargetWindow{window->id, "Chromium", pid};
  if (browser.variable) {
    context_.setVariable(*browser.variable, ScriptVariableValue::windowID(window->id));
    capturedWindow_ = targetWindow_;
  }
  services_.windows.focus(window->id);
  options_.progress("     browser window " + formatXID(window->id) + " on " + url);
}

void ScriptTargets::navigate(const std::string& url) {
  browser_->navigate(url);
  browserURL_ = url;
}

// A script and its page can travel together: a page named by a relative path is looked for
// beside the script when the working directory has none.
std::string ScriptTargets::pageAddress(const std::string& text, int line) const {
  static const std::regex kScheme("^[A-Za-z][A-Za-z0-9+.-]*:[^0-9]");
  if (text.find("://") != std::string::npos || std::regex_search(text, kScheme)) {
    return text;
  }
  std::error_code error;
  // "~/" is the home folder, as in a shell; the script's own folder has no "~" of its own.
  const char* home = std::getenv("HOME");
  const std::filesystem::path written = text.starts_with("~/") && home != nullptr && *home != '\0'
                                            ? std::filesystem::path(home) / text.substr(2)
                                            : std::filesystem::path(text);
  for (const std::filesystem::path& path : {written, options_.scriptDirectory / text}) {
    if (std::filesystem::is_regular_file(path, error)) {
      return "file://" + std::filesystem::absolute(path, error).lexically_normal().string();
    }
  }
  // A path, or a document's name, that is not there: the browser would show its error page and
  // the recording a blank one.
  if (namesFile(text)) {
    std::string where =
        "the working directory (" + std::filesystem::current_path(error).string() + ")";
    if (!options_.scriptDirectory.empty()) {
      where += " or beside the script (" + options_.scriptDirectory.string() + ")";
    }
    throw ScriptError::runtimeError(line, "page not found: no file '" + text + "' in " + where);
  }
  // A web address without its scheme ("example.org", "localhost:8000"), as a browser's address
  // bar completes it.
  return "http://" + text;
}

void ScriptTargets::checkPages(const std::vector<LocatedInstruction>& instructions) const {
  for (const LocatedInstruction& located : instructions) {
    // A shell command may write the page (or start the server) the lines after it open.
    if (std::holds_alternative<RunInstruction>(located.instruction)) {
      return;
    }
    const ScriptValue* url = nullptr;
    if (const auto* browser = std::get_if<BrowserInstruction>(&located.instruction)) {
      url = &browser->url;
    } else if (const auto* navigate = std::get_if<NavigateInstruction>(&located.instruction)) {
      url = &navigate->url;
    }
    // Only what is written out: a variable's page is known when its line runs.
    if (url != nullptr && url->kind == ScriptValue::Kind::string &&
        url->text.find('$') == std::string::npos) {
      pageAddress(url->text, located.line);
    }
  }
}

void ScriptTargets::zoomPage(double scale, const std::string& target, double duration, int line) {
  if (!browser_) {
    throw ScriptError::runtimeError(line, "page zoom requires a Chrome (browser) session");
  }
  easePageZoom(scale, target, duration);
  pageZoomTarget_ = target;
}

bool ScriptTargets::resetPageZoom(double duration) {
  if (pageScale_ <= 1 || !browser_) {
    return false;
  }
  easePageZoom(1, pageZoomTarget_, duration);
  pageZoomTarget_.reset();
  return true;
}

void ScriptTargets::easePageZoom(double scale, const std::optional<std::string>& target,
                                 double duration) {
  // The page lays itself out anew at each step, as often as frames are taken, so the zoom moves
  // as smoothly as the digital one; the element stays centred all the way.
  constexpr double kStepsPerSecond = 30;
  const double from = pageScale_;
  const int steps = std::max(1, static_cast<int>(std::lround(duration * kStepsPerSecond)));
  for (int i = 1; i <= steps && !clock_.shouldStop(); ++i) {
    const double eased = InputSimulator::easeInOutCubic(static_cast<double>(i) / steps);
    browser_->setRealZoom(from + (scale - from) * eased, target);
    pageScale_ = from + (scale - from) * eased;
    if (i < steps) {
      clock_.sleep(duration / steps);
    }
  }
  browser_->setRealZoom(scale, target);
  pageScale_ = scale;
}

ElementDriver& ScriptTargets::elementDriver(int line) {
  if (drivesPage()) {
    return browser_->elements();
  }
  const std::optional<TargetWindow> window = capturedWindow_ ? capturedWindow_ : targetWindow_;
  if (!window) {
    throw ScriptError::runtimeError(
        line,
        "element targets need a page (browser chrome \"url\") or an application (target app "
        "\"Name\" or capture-window) to look in");
  }
  AccessibilityBackend* accessibility = services_.windows.accessibility();
  if (accessibility == nullptr) {
    throw DemoDriverError::permissionDenied(
        "element targets in " + window->appName +
        " go through the accessibility service (AT-SPI), which is not available");
  }
  if (!nativeDriver_ || nativeDriverPID_ != window->pid) {
    nativeDriver_ = accessibility->driverFor(window->pid);
    nativeDriverPID_ = window->pid;
  }
  return *nativeDriver_;
}

ScreenRect ScriptTargets::elementRect(const std::string& target, int line) {
  const auto rect = elementDriver(line).find(target);
  if (!rect) {
    throw DemoDriverError::elementNotFound(target);
  }
  return *rect;
}

std::string ScriptTargets::windowLabel(std::uint32_t id) const {
  if (capturedWindow_ && capturedWindow_->id == id) {
    return capturedWindow_->appName;
  }
  if (targetWindow_ && targetWindow_->id == id) {
    return targetWindow_->appName;
  }
  return "window " + formatXID(id);
}

void ScriptTargets::closeAll() {
  services_.windows.cleanupScriptWindows();
  nativeDriver_.reset();
  browser_.reset();
}

}  // namespace brimble
