#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "BrimbleCore/Automation/CDPConnection.h"
#include "BrimbleCore/Automation/CDPGeometry.h"
#include "BrimbleCore/Automation/ChromeLauncher.h"
#include "BrimbleCore/Automation/DiscoveredElement.h"

namespace brimble {

/// Drives one browser page: evaluates small programs in it to find, click, fill, zoom and measure
/// elements, and maps page coordinates to the screen. Targets are "text:Visible text" (which may
/// end in "[N]" for its Nth match), "css:selector" (or a bare selector, or the page's own
/// "text=…"); "role:" targets belong to accessibility and are refused here. A target that
/// matches several elements means the first that is visible and enabled, and the first time it
/// is used it logs a warning naming how many matched and a target for the one taken. Errors are
/// DemoDriverError (about elements and targets) and CDPError (about the connection). One thread at
/// a time.
class CDPDriver {
 public:
  /// Drives the page behind `connection`: enables the Page and Runtime domains.
  explicit CDPDriver(std::unique_ptr<CDPConnection> connection);

  /// Connects to the page of a launched browser.
  static CDPDriver connect(const ChromeLauncher::Session& session);

  /// The value `expression` evaluates to (by value: objects come back as JSON). A JavaScript
  /// exception is DemoDriverError::actionFailed with its text.
  nlohmann::json evaluate(const std::string& expression);

  /// Loads `url`, then waits (up to `timeout`) until the document has finished loading. A page
  /// that cannot be loaded is DemoDriverError::actionFailed, as in `checkLoaded`.
  void navigate(const std::string& url,
                std::chrono::milliseconds timeout = std::chrono::seconds(30));
  /// Waits until the current document has finished loading; actionFailed after `timeout`.
  void waitForLoad(std::chrono::milliseconds timeout = std::chrono::seconds(30));
  /// Throws DemoDriverError::actionFailed ("page not found: <url> ...") when the loaded
  /// document is no page of `url`'s: the browser's error page (no such file or host, a refused
  /// connection) or an HTTP error status.
  void checkLoaded(const std::string& url);

  /// Renders the page at `width` x `height` CSS pixels, scale factor 1.
  void setViewport(int width, int height);

  /// Asks the page where its content area is on screen. Refused (actionFailed) unless it reports
  /// a positive width and height.
  CDPCalibration calibrate();
  /// The mapping the latest calibration gives (calibrates when there is none yet).
  CDPGeometry geometry();

  /// Where the target's element is, or no value when no element matches. Throws
  /// DemoDriverError::invalidTarget for "role:" targets and empty ones.
  std::optional<ElementRect> locate(const std::string& target);
  /// Where the target's element is on screen. DemoDriverError::elementNotFound when none matches
  /// or it is not visible (an empty box: hidden with display: none or inside such an element).
  ScreenRect screenRect(const std::string& target);

  /// Presses and releases the left button at the element's centre. DemoDriverError::
  /// elementNotFound when none matches or it is not visible, or its centre is out of the view.
  void click(const std::string& target);
  /// Focuses the element, sets its value and fires bubbling input and change events.
  void fill(const std::string& target, const std::string& text);
  /// Gives the element the keyboard focus. DemoDriverError::elementNotFound when none matches.
  void focus(const std::string& target);
  /// Waits until the target's element exists; DemoDriverError::elementNotFound after `timeout`.
  ElementRect waitFor(const std::string& target,
                      std::chrono::milliseconds timeout = std::chrono::seconds(10));
  /// Zooms the page to `scale` (at least 0.1; 1 or less resets) and scrolls `focus`, when given,
  /// into the middle of the view.
  void setRealZoom(double scale, const std::optional<std::string>& focus = std::nullopt);

  /// The page's clickable elements (links, buttons, fields, anything with a role or an onclick),
  /// visible ones only, at most `limit`, with screen rectangles. Each has its accessible name
  /// (its text or value, else its aria-labelledby, aria-label, label, placeholder or title; at
  /// most 80 characters) and a selector that selects it and no other element of the page.
  std::vector<DiscoveredElement> listElements(int limit);

  /// `target` as the page-side selector the location program takes: "text=…" or a CSS selector.
  static std::string pageSelector(const std::string& target);
  /// `text` as a single-quoted JavaScript string literal.
  static std::string javaScriptString(const std::string& text);

 private:
  /// The element's rectangle; elementNotFound when there is none or it is empty.
  ElementRect visibleRect(const std::string& target);
  /// Logs, once per target, that the target matched several elements and which was taken, when
  /// a location program's `answer` says so.
  void noteMatches(const std::string& target, const nlohmann::json& answer);

  std::unique_ptr<CDPConnection> connection_;
  std::optional<CDPGeometry> geometry_;
  /// The ambiguous targets already warned about.
  std::set<std::string, std::less<>> warned_;
};

}  // namespace brimble
