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
  /// How synthesized keys reach the screen: the registry sends the Escape that dismisses
  /// dialogs through them, and element scripts type through them. The platform says.
  struct Keys {
    /// Whether keys can be synthesized on the display; asked once. Empty: only the bus counts.
    std::function<bool()> reachScreen{};
    /// Why they cannot, in the platform's words.
    std::string missing{};
    /// What reaching elements needs on this platform, for warnings.
    std::string requirement{"the AT-SPI bus"};
  };

  /// Only the bus counts.
  ATSPIAccessibility();
  explicit ATSPIAccessibility(Keys keys);

  /// The bus answers and, when asked for, keys reach the screen.
  bool available(std::string& reason) override;
  std::string requirement() const override { return keys_.requirement; }
  /// Waits up to 3 seconds for an application that has only just started to appear on the bus.
  std::unique_ptr<ElementDriver> driverFor(int pid) override;
  DialogOutcome clickButtonInDialog(int pid, const std::string& button) override;
  /// Sends Escape (through the registry, which synthesizes it with XTest) to the dialog.
  DialogOutcome dismissDialog(int pid) override;

 private:
  Keys keys_;
  std::optional<bool> keysChecked_;
};

}  // namespace brimble::atspi
