#pragma once

#include <chrono>
#include <string>

#include "BrimbleCore/Platform/Wayland/GLibHandles.h"

namespace brimble::wayland {

/// Quick questions to the session bus and to the services it starts on demand (the desktop
/// portal, the accessibility bus), for checking what this desktop offers. It only reads
/// properties and pings: it never opens a portal session, so no dialog appears. Every call
/// gives up after the timeout it was made with, so a bus that does not answer costs that and no
/// more. A connection of its own, closed with it. One thread at a time.
class SessionBusProbe {
 public:
  /// Connects to the session bus ($DBUS_SESSION_BUS_ADDRESS, else the user's bus socket in
  /// $XDG_RUNTIME_DIR); never starts one. `connected` says whether that worked.
  explicit SessionBusProbe(std::chrono::milliseconds timeout);

  bool connected() const noexcept { return bus_ != nullptr; }
  /// Why there is no connection.
  const std::string& problem() const noexcept { return problem_; }
  /// The address connected to.
  const std::string& address() const noexcept { return address_; }

  /// What the desktop portal offers of one interface.
  struct PortalInterface {
    /// 0 when the portal or the interface is missing.
    unsigned version = 0;
    /// The interface's bit set of what it can share or drive (`typesProperty`).
    unsigned types = 0;
    /// Why the version is 0.
    std::string problem;
  };
  /// The portal's `interface` ("org.freedesktop.portal.ScreenCast"), with its `typesProperty`
  /// ("AvailableSourceTypes"). Starts the portal when it is not running yet.
  PortalInterface portalInterface(const char* interface, const char* typesProperty);

  struct AccessibilityBus {
    bool answers = false;
    /// The bus's address when it answers, else why it does not.
    std::string detail;
  };
  /// Asks the session bus for the accessibility bus (at-spi-bus-launcher) and pings the AT-SPI
  /// registry there.
  AccessibilityBus accessibilityBus();

 private:
  std::chrono::milliseconds timeout_;
  std::string address_;
  std::string problem_;
  GObjectPtr<GDBusConnection> bus_;
};

}  // namespace brimble::wayland
