#pragma once

#include <chrono>
#include <functional>
#include <stdexcept>
#include <stop_token>
#include <string>

#include "BrimbleCore/Platform/Wayland/GLibHandles.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble::wayland {

class PortalError : public std::runtime_error {
 public:
  enum class Code { unavailable, cancelled, failed };

  /// No desktop portal answers on the session bus, or it lacks `interface`.
  static PortalError unavailable(const std::string& interface, const std::string& detail);
  /// "Screen sharing was cancelled": the user closed the dialog, or the wait was interrupted.
  static PortalError cancelled();
  /// The portal refused or failed `what`.
  static PortalError failed(const std::string& what, const std::string& detail);

  Code code() const noexcept { return code_; }

 private:
  PortalError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// The desktop portal (org.freedesktop.portal.Desktop, xdg-desktop-portal) on the session bus:
/// its methods, and the request-and-response protocol its dialogs answer through. Every desktop
/// with a Wayland session offers it. Thread-safe: each call waits on a main context of its own.
class DesktopPortal {
 public:
  static constexpr const char* kBusName = "org.freedesktop.portal.Desktop";
  static constexpr const char* kObjectPath = "/org/freedesktop/portal/desktop";
  static constexpr const char* kScreenCast = "org.freedesktop.portal.ScreenCast";
  static constexpr const char* kRemoteDesktop = "org.freedesktop.portal.RemoteDesktop";
  /// How long a request that shows the user nothing may take before the portal counts as stuck.
  static constexpr std::chrono::seconds kQuickAnswer{30};

  /// Connects to the session bus. Throws PortalError::unavailable.
  DesktopPortal();

  /// The version of a portal interface ("org.freedesktop.portal.ScreenCast"); 0 when the portal
  /// or the interface is missing.
  unsigned version(const char* interface);

  /// Builds a request's arguments: a tuple whose options dictionary carries `handleToken` as
  /// "handle_token". The result is sunk by the caller.
  using RequestArguments = std::function<GVariant*(const std::string& handleToken)>;

  /// Calls `method` and waits for the Response of the request it opens, up to `timeout` (a
  /// dialog waits for the user) or until `stop`. Returns the results dictionary (a{sv}). Throws
  /// PortalError: cancelled (the user said no, or `stop`), failed (an error, an answer other
  /// than yes, or the timeout), unavailable.
  GVariantPtr request(const char* interface, const char* method, const RequestArguments& arguments,
                      std::chrono::milliseconds timeout, std::stop_token stop = {});

  /// Creates a session of `interface` (ScreenCast, RemoteDesktop) and returns its handle;
  /// `what` names it in errors ("a screen-cast session"). Throws as `request` does.
  std::string createSession(const char* interface, const std::string& what,
                            std::chrono::milliseconds timeout, std::stop_token stop = {});

  /// Starts the session at `sessionHandle` of `interface`: its Start, which shows the desktop's
  /// dialog. Returns the results (the shared streams, a restore token). Throws as `request` does.
  GVariantPtr startSession(const char* interface, const std::string& sessionHandle,
                           std::chrono::milliseconds timeout, std::stop_token stop = {});
  /// The "restore_token" of a Start's results; empty when the portal gave none.
  static std::string restoreTokenOf(GVariant* results);

  /// Calls `method` and returns its reply, sunk. Throws PortalError::failed.
  GVariantPtr call(const char* interface, const char* method, GVariant* arguments);
  /// Calls `method`, whose reply is one file descriptor (OpenPipeWireRemote). Throws
  /// PortalError::failed.
  UniqueFd callForFd(const char* interface, const char* method, GVariant* arguments);
  /// Closes the portal session at `sessionHandle`; errors are ignored.
  void closeSession(const std::string& sessionHandle) noexcept;

  /// A token unique in this process, for "handle_token" and "session_handle_token".
  static std::string newToken();

  /// The session-bus connection the portal knows this process by, for subscribing to the
  /// portal's own signals. Owned by this portal.
  GDBusConnection* connection() const noexcept { return bus_.get(); }

 private:
  GObjectPtr<GDBusConnection> bus_;
  std::string sender_;  // our unique name as the portal's request paths spell it
};

}  // namespace brimble::wayland
