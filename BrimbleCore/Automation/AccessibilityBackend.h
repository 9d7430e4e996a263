#pragma once

#include <memory>
#include <string>

#include "BrimbleCore/Automation/ElementDriver.h"

namespace brimble {

/// What a dialog command found and did.
enum class DialogOutcome { noDialog, clicked, noButton, dismissed };

/// The platform's accessibility service (AT-SPI on Linux): element drivers for native
/// applications and their dialogs. Applications are named by the process id that owns their
/// windows. One thread at a time.
class AccessibilityBackend {
 public:
  AccessibilityBackend() = default;
  AccessibilityBackend(const AccessibilityBackend&) = delete;
  AccessibilityBackend& operator=(const AccessibilityBackend&) = delete;
  AccessibilityBackend(AccessibilityBackend&&) = delete;
  AccessibilityBackend& operator=(AccessibilityBackend&&) = delete;
  virtual ~AccessibilityBackend() = default;

  /// Whether elements can be reached: the accessibility bus answers. When not, `reason` says
  /// what is missing.
  virtual bool available(std::string& reason) = 0;
  /// What reaching elements needs on this platform, in its words, for warnings ("the AT-SPI
  /// bus").
  virtual std::string requirement() const = 0;
  /// Drives the elements of the application of process `pid`. Throws DemoDriverError
  /// (permissionDenied without the bus, elementNotFound when the application exposes no tree).
  virtual std::unique_ptr<ElementDriver> driverFor(int pid) = 0;
  /// Presses the button labelled `button` in the application's topmost dialog or alert.
  virtual DialogOutcome clickButtonInDialog(int pid, const std::string& button) = 0;
  /// Closes the application's topmost dialog with Escape.
  virtual DialogOutcome dismissDialog(int pid) = 0;
};

}  // namespace brimble
