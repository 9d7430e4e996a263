#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/ElementDriver.h"

namespace brimble {

/// A browser window that a script or an assistant drives: its page's elements, where it goes,
/// its page zoom. Ending it (destruction) closes the browser and deletes what it kept. One thread
/// at a time.
class BrowserSession {
 public:
  BrowserSession() = default;
  BrowserSession(const BrowserSession&) = delete;
  BrowserSession& operator=(const BrowserSession&) = delete;
  BrowserSession(BrowserSession&&) = delete;
  BrowserSession& operator=(BrowserSession&&) = delete;
  virtual ~BrowserSession() = default;

  /// The browser's process, which owns its windows.
  virtual int pid() const = 0;
  /// The page's elements, by "text:…" and "css:…" targets.
  virtual ElementDriver& elements() = 0;
  /// Loads `url` and waits until it has loaded. Throws DemoDriverError (actionFailed "page not
  /// found: ..." when it cannot be loaded), CDPError.
  virtual void navigate(const std::string& url) = 0;
  /// Zooms the page to `scale` (1 or less resets it), with `focus`'s element in the middle of
  /// the view when given. Throws DemoDriverError, CDPError.
  virtual void setRealZoom(double scale, const std::optional<std::string>& focus) = 0;
};

/// Starts browser sessions. One thread at a time.
class BrowserLauncher {
 public:
  BrowserLauncher() = default;
  BrowserLauncher(const BrowserLauncher&) = delete;
  BrowserLauncher& operator=(const BrowserLauncher&) = delete;
  BrowserLauncher(BrowserLauncher&&) = delete;
  BrowserLauncher& operator=(BrowserLauncher&&) = delete;
  virtual ~BrowserLauncher() = default;

  /// Opens a browser window on `url`, the page alone without the browser's tabs and toolbar, and
  /// returns once the page has loaded. Throws CDPError (browserNotInstalled, noDebuggablePage)
  /// and DemoDriverError (actionFailed "page not found: ..." when the page cannot be loaded).
  virtual std::unique_ptr<BrowserSession> launch(const std::string& url) = 0;
};

}  // namespace brimble
