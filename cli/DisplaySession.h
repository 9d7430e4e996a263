#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/AppLauncher.h"
#include "cli/PlatformBackend.h"

namespace brimble::cli {

/// The display a command works on, and the platform's backends that reach it: the user's
/// display when there is one and `headless` is not asked for, else brimble's embedded display,
/// started now and stopped when this ends. Create it on the main thread before the command
/// starts other threads.
class DisplaySession {
 public:
  /// Throws when the embedded display cannot start.
  explicit DisplaySession(bool headless);

  /// The user's display, for one-shot commands whose effect must outlive them (a window opened,
  /// text typed): an embedded display would vanish with the command. Throws std::runtime_error
  /// saying how to start a display that stays when the user has none.
  static DisplaySession lasting();

  /// The display name clients connect to (":0", ":99").
  const std::string& name() const noexcept { return name_; }
  bool embedded() const noexcept { return embedded_ != nullptr; }
  /// What programs started on this display get in their environment ("NAME=value"): the
  /// embedded display's bus and private folders; nothing extra on the user's display.
  std::vector<std::string> environment() const;

  std::unique_ptr<ScreenSource> screenSource() const { return platform::screenSource(name_); }
  std::unique_ptr<InputBackend> inputBackend() const { return platform::inputBackend(name_); }
  std::unique_ptr<WindowSystem> windowSystem() const { return platform::windowSystem(name_); }
  /// The accessibility service of this display's session.
  std::unique_ptr<AccessibilityBackend> accessibility() const {
    return platform::accessibility(name_);
  }
  /// Starts programs detached, on this display, with their accessibility trees switched on.
  std::unique_ptr<AppLauncher> appLauncher() const;

 private:
  DisplaySession() = default;

  std::string name_;
  std::unique_ptr<EmbeddedDisplay> embedded_;
};

}  // namespace brimble::cli
