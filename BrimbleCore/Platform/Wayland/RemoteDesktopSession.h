#pragma once

#include <chrono>
#include <cstdint>
#include <stop_token>
#include <string>
#include <vector>

#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"
#include "BrimbleCore/Platform/Wayland/ScreenCastSession.h"

namespace brimble::wayland {

/// A remote-desktop session of the desktop portal (org.freedesktop.portal.RemoteDesktop): input
/// events the compositor takes as the user's own, once the user has allowed remote interaction
/// in the desktop's dialog. The session shares a monitor as well, since absolute pointer motion
/// is given in the coordinates of a shared stream. Portals from version 2 remember the permission
/// under a restore token; version 1 (xdg-desktop-portal 1.16, Debian 12) cannot, so there every
/// session asks. Closed when it goes. One thread at a time.
class RemoteDesktopSession {
 public:
  /// The portal's device types.
  enum class Devices : std::uint32_t { keyboard = 1, pointer = 2 };
  /// The wheel's axes.
  enum class Axis : std::uint32_t { vertical = 0, horizontal = 1 };

  struct Options {
    /// The token of an earlier session (portal version 2 and later); a stale one brings the
    /// dialog back.
    std::string restoreToken{};
    /// How long the user may take with the dialog.
    std::chrono::milliseconds dialogTimeout = std::chrono::minutes(5);
    std::stop_token stop{};
  };

  /// Creates the session, selects the keyboard, the pointer and a monitor, and starts it: the
  /// dialog, unless a token is honoured. Throws PortalError: unavailable (no RemoteDesktop on the
  /// bus), cancelled ("Screen sharing was cancelled"), failed (also when the user shared no
  /// keyboard or pointer).
  RemoteDesktopSession(DesktopPortal& portal, const Options& options);
  RemoteDesktopSession(const RemoteDesktopSession&) = delete;
  RemoteDesktopSession& operator=(const RemoteDesktopSession&) = delete;
  ~RemoteDesktopSession();

  /// The version of the portal's RemoteDesktop interface: from 2 on it can remember.
  unsigned version() const noexcept { return version_; }
  /// The monitors shared with the session, in the compositor's logical coordinates.
  const std::vector<ScreenCastStream>& streams() const noexcept { return streams_; }
  /// The token for the next session (single-use: store it after every start); empty when the
  /// portal gave none, as version 1 never does.
  const std::string& restoreToken() const noexcept { return restoreToken_; }

  // Each event is handed to the portal, which passes it on to the compositor in the order
  // given; the call returns once the portal has it. Throws PortalError::failed, for example
  // when the session was closed by the desktop.

  /// An X keysym pressed or released; the compositor finds the key (and the level: Shift or
  /// AltGr) that gives it in its keyboard map, and drops a keysym the map lacks.
  void keysym(std::uint32_t keysym, bool pressed);
  /// Puts the pointer at `x`,`y` of the stream with node `streamNodeID`, in its logical
  /// coordinates.
  void pointerMotionAbsolute(std::uint32_t streamNodeID, double x, double y);
  /// An evdev button code (BTN_LEFT 0x110, BTN_RIGHT 0x111, ...) pressed or released.
  void pointerButton(int evdevButton, bool pressed);
  /// Wheel clicks on `axis`; positive steps scroll down or right.
  void pointerAxisDiscrete(Axis axis, int steps);

 private:
  void notify(const char* method, GVariant* arguments);

  DesktopPortal& portal_;
  unsigned version_ = 0;
  std::string handle_;
  std::vector<ScreenCastStream> streams_;
  std::string restoreToken_;
};

}  // namespace brimble::wayland
