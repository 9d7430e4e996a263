#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/BrowserSession.h"
#include "BrimbleCore/Automation/ElementDriver.h"
#include "BrimbleCore/Scripting/ScriptClock.h"
#include "BrimbleCore/Scripting/ScriptContext.h"
#include "BrimbleCore/Scripting/ScriptInstruction.h"
#include "BrimbleCore/Scripting/ScriptOptions.h"
#include "BrimbleCore/Scripting/ScriptServices.h"
#include "BrimbleCore/Scripting/ScriptTerminalText.h"

namespace brimble {

/// A window a script drives, with the application name it was found by.
struct TargetWindow {
  std::uint32_t id = 0;
  std::string appName;
  int pid = 0;
};

/// What a script drives: the target window (the one `clear`, dialogs and `wait-for-idle` act on,
/// set by `open`, `focus`, `capture-window`, `target` and `browser`), the captured window (the
/// last `capture-window` or `target`), the browser session and the element driver of the
/// application being demonstrated. Element targets are looked up here: in the browser's page
/// when the target is its window, else through the accessibility service. Owned by the engine;
/// one thread at a time.
class ScriptTargets {
 public:
  ScriptTargets(const ScriptServices& services, const ScriptOptions& options,
                ScriptContext& context, ScriptClock& clock);
  ScriptTargets(const ScriptTargets&) = delete;
  ScriptTargets& operator=(const ScriptTargets&) = delete;

  /// Opens the application, with `environment` ("NAME=value", what `env` set) added to its
  /// own, and makes its new window the target. Prints "     opened ...". After `logTerminals`,
  /// a terminal is xterm (where it is installed) writing a log that `terminalText` reads.
  void open(const OpenInstruction& open, int line, const std::vector<std::string>& environment);
  /// Terminals opened from now on tell their text: the script waits for text in them.
  void logTerminals() noexcept { logTerminals_ = true; }
  /// The text of the terminals opened with a log.
  ScriptTerminalText& terminalText() noexcept { return terminalText_; }
  /// Brings the application to the front and, when it has a window, targets it.
  void focus(const FocusInstruction& focus, int line);
  /// Finds the window (by application, waiting up to 10 seconds for one that is still opening,
  /// or by id), makes it the target and the captured window and binds `as $v`. Throws
  /// ScriptError windowNotFound.
  void captureWindow(const CaptureWindowInstruction& capture, int line);
  /// As `captureWindow`, by application or by a title that contains the match; no waiting.
  void target(const TargetInstruction& target, int line);
  /// Starts a browser session on the page (ending the one before) and targets its window.
  /// Throws ScriptError when there is no browser or it opens no window.
  void browser(const BrowserInstruction& browser, int line);

  /// The browser session, or null before `browser`.
  BrowserSession* browserSession() const noexcept { return browser_.get(); }
  /// Takes the browser session to `url` (a page address); only while there is a session.
  void navigate(const std::string& url);
  /// A page address as the browser takes it: a path to a local file (from the working
  /// directory, else the script's folder) becomes a file:// URL, a web address without a scheme
  /// an http:// one. Throws ScriptError "page not found: ..." for a path or document name
  /// (".html", ...) that names no file.
  std::string pageAddress(const std::string& text, int line) const;
  /// Checks the pages that `browser` and `navigate` lines name in writing (not through
  /// variables) before the script runs, as `pageAddress` does, up to the first `run` line (which
  /// may make the page).
  void checkPages(const std::vector<LocatedInstruction>& instructions) const;
  /// The address the browser session was last taken to.
  const std::string& browserURL() const noexcept { return browserURL_; }
  /// Whether `id` is the browser session's window.
  bool isBrowserWindow(std::uint32_t id) const { return browser_ && id == browserWindowID_; }
  /// Whether element targets go to the browser's page, the target being its window.
  bool drivesPage() const { return browser_ && activeDriverIsBrowser_; }
  /// Zooms the page itself toward `target`, easing in and out over `duration` seconds as the
  /// digital zoom does. Throws ScriptError without a browser session.
  void zoomPage(double scale, const std::string& target, double duration, int line);
  /// Returns a zoomed page to its own size over `duration` seconds; false when no page zoom is in
  /// effect.
  bool resetPageZoom(double duration);

  /// What element targets are looked up in: the browser's page, or the driver of the captured
  /// (else the target) window's application. Throws ScriptError with neither, and
  /// DemoDriverError permissionDenied without the accessibility service.
  ElementDriver& elementDriver(int line);
  /// Where the element `target` is on screen. Throws as `elementDriver`, and DemoDriverError
  /// elementNotFound.
  ScreenRect elementRect(const std::string& target, int line);

  const std::optional<TargetWindow>& targetWindow() const noexcept { return targetWindow_; }
  const std::optional<TargetWindow>& capturedWindow() const noexcept { return capturedWindow_; }
  /// How progress lines name window `id`: its application when it is the captured or the
  /// target window, else "window 0x...".
  std::string windowLabel(std::uint32_t id) const;

  /// Closes the windows the script opened and ends the element driver and the browser session.
  void closeAll();

 private:
  /// Asks `find` until it finds a window, for up to 10 seconds or until an interrupt.
  std::optional<WindowInfo> waitForWindow(const std::function<std::optional<WindowInfo>()>& find);
  void capture(const WindowInfo& window, const std::string& app,
               const std::optional<std::string>& variable);

  const ScriptServices& services_;
  const ScriptOptions& options_;
  ScriptContext& context_;
  ScriptClock& clock_;

  std::optional<TargetWindow> targetWindow_;
  std::optional<TargetWindow> capturedWindow_;
  std::unique_ptr<ElementDriver> nativeDriver_;
  int nativeDriverPID_ = 0;
  std::unique_ptr<BrowserSession> browser_;
  std::uint32_t browserWindowID_ = 0;
  std::string browserURL_;
  /// Element targets go to the browser's page rather than the native application.
  bool activeDriverIsBrowser_ = false;
  /// The page's own zoom, 1 for none, and the element it is centred on.
  double pageScale_ = 1;
  std::optional<std::string> pageZoomTarget_;

  /// Steps the page's zoom from `pageScale_` to `scale` over `duration`.
  void easePageZoom(double scale, const std::optional<std::string>& target, double duration);
  bool logTerminals_ = false;
  ScriptTerminalText terminalText_;
};

}  // namespace brimble
