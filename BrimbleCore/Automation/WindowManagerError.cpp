#include "BrimbleCore/Automation/WindowManagerError.h"

namespace brimble {

WindowManagerError WindowManagerError::noWindow(const std::string& appName) {
  return {Code::noWindow, appName + " is running but has no window to target. Open a window in " +
                              appName + " (e.g. File > New, or click its Dock icon), then re-run."};
}

WindowManagerError WindowManagerError::windowNotFound(const std::string& appName) {
  return {Code::windowNotFound, "No window found for app '" + appName + "'"};
}

WindowManagerError WindowManagerError::launchFailed(const std::string& appName,
                                                    const std::string& reason) {
  return {Code::launchFailed, "Failed to open " + appName + ": " + reason};
}

WindowManagerError WindowManagerError::windowListUnavailable(const std::string& reason) {
  return {Code::windowListUnavailable, "Cannot list windows: " + reason};
}

WindowManagerError WindowManagerError::requestRefused(const std::string& request,
                                                      const std::string& reason) {
  return {Code::requestRefused, "Cannot " + request + ": " + reason};
}

}  // namespace brimble
