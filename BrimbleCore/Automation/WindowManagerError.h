#pragma once

#include <stdexcept>
#include <string>

namespace brimble {

/// Failures of the window manager and the window systems under it.
class WindowManagerError : public std::runtime_error {
 public:
  enum class Code { noWindow, windowNotFound, launchFailed, windowListUnavailable, requestRefused };

  /// The application runs but shows no window to work with.
  static WindowManagerError noWindow(const std::string& appName);
  /// No window on screen belongs to the application.
  static WindowManagerError windowNotFound(const std::string& appName);
  /// The application's program is missing or could not be started.
  static WindowManagerError launchFailed(const std::string& appName, const std::string& reason);
  /// The display or its window manager cannot say which windows exist.
  static WindowManagerError windowListUnavailable(const std::string& reason);
  /// The platform gives no way to do `request` ("resize windows") to this window.
  static WindowManagerError requestRefused(const std::string& request, const std::string& reason);

  Code code() const noexcept { return code_; }

 private:
  WindowManagerError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

}  // namespace brimble
