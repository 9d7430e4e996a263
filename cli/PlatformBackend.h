#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "BrimbleCore/Automation/AccessibilityBackend.h"
#include "BrimbleCore/Automation/AppLauncher.h"
#include "BrimbleCore/Automation/EventCapture.h"
#include "BrimbleCore/Automation/InputBackend.h"
#include "BrimbleCore/Automation/WindowSystem.h"
#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Platform/PlatformTexts.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble::cli {

/// A display brimble runs for itself where the user has none: up while this object lives. Its
/// programs die with the thread that started it. Start and destroy it on the main thread.
class EmbeddedDisplay {
 public:
  EmbeddedDisplay() = default;
  EmbeddedDisplay(const EmbeddedDisplay&) = delete;
  EmbeddedDisplay& operator=(const EmbeddedDisplay&) = delete;
  EmbeddedDisplay(EmbeddedDisplay&&) = delete;
  EmbeddedDisplay& operator=(EmbeddedDisplay&&) = delete;
  virtual ~EmbeddedDisplay() = default;

  /// The name clients connect to (":99").
  virtual std::string name() const = 0;
  /// What programs started in it get in their environment ("NAME=value"): the display, its
  /// session bus, and private folders for their configuration, caches and temporary files.
  virtual std::vector<std::string> environment() const = 0;
  /// The processes that make it up.
  virtual std::vector<pid_t> processes() const = 0;
};

/// The one place that knows which platform brimble drives (X11 today). Commands, and later the
/// desktop application, get the platform's implementations of the core interfaces here and
/// nowhere else, so another backend (Wayland) changes this file alone. Every function may be
/// called from any thread; what it returns has the thread contract of its interface.
namespace platform {

/// The display of the user's session, from the environment ($DISPLAY); no value when there is
/// none.
std::optional<std::string> userDisplay();

/// How this platform words what it cannot do.
const PlatformTexts& texts();

/// Starts brimble's own display. Throws (a std::runtime_error that says why) when it cannot.
std::unique_ptr<EmbeddedDisplay> startEmbeddedDisplay();

/// The screen of `display` as a source of frames. Nothing connects until it is used.
std::unique_ptr<ScreenSource> screenSource(const std::string& display);
/// Synthetic input on `display`; check `available()`.
std::unique_ptr<InputBackend> inputBackend(const std::string& display);
/// The windows of `display`. Throws WindowManagerError when it cannot be reached.
std::unique_ptr<WindowSystem> windowSystem(const std::string& display);
/// Listens to the input on `display`; `clock` must outlive it.
std::unique_ptr<EventCapture> eventCapture(const std::string& display, const Clock& clock);
/// The accessibility service of the session this process runs in (its session bus), for the
/// applications on `display`, whose input must take synthesized keys.
std::unique_ptr<AccessibilityBackend> accessibility(const std::string& display);
/// What programs need in their environment ("NAME=value") to show their elements to the
/// accessibility service: Qt and Chromium keep their trees to themselves unless asked.
std::vector<std::string> accessibilityEnvironment();
/// Arguments, by program name, that programs need to show their elements (Chromium's pages)
/// and to start at all where we run them (Chromium as root).
DetachedAppLauncher::ProgramArguments accessibilityArguments();

}  // namespace platform
}  // namespace brimble::cli
