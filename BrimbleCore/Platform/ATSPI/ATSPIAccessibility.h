#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "BrimbleCore/Automation/AccessibilityBackend.h"

namespace brimble::atspi {

/// The accessibility service of a Linux desktop: AT-SPI2 through libatspi, on the accessibility
/// bus that the session bus starts (at-spi-bus-launcher). A process connects once, to the bus of
/// the session it runs in when it first asks ($DBUS_SESSION_BUS_ADDRESS); without one, or in a
/// later session, every call answers that the service is missing instead of failing inside
/// libatspi. One thread at a time.
class ATSPIAccessibility final : public AccessibilityBackend {
 public:
  /// `keysReachTheScreen` tells whether keys can be synthesized on the display (the XTest
  /// extension): the registry sends the Escape that dismisses dialogs through it, and element
  /// scripts type through it. Asked once; without it only the bus counts.
  explicit ATSPIAccessibility(std::function<bool()> keysReachTheScreen = {});

  /// The bus answers and, when asked for, keys reach the screen.
  bool available(std::string& reason) override;
  /// Waits up to 3 seconds for an application that has only just started to appear on the bus.
  std::unique_ptr<ElementDriver> driverFor(int pid) override;
  DialogOutcome clickButtonInDialog(int pid, const std::string& button) override;
  /// Sends Escape (through the registry, which synthesizes it with XTest) to the dialog.
  DialogOutcome dismissDialog(int pid) override;

 private:
  std::function<bool()> keysReachTheScreen_;
  std::optional<bool> keysChecked_;
};

}  // namespace brimble::atspi
