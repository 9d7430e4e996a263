#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "BrimbleCore/Automation/GlobalHotkey.h"
#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"
#include "BrimbleCore/Platform/Wayland/GLibHandles.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble::wayland {

/// A global shortcut bound through the desktop portal's GlobalShortcuts interface, which a
/// Wayland desktop offers where it lets applications have shortcuts (KDE Plasma, GNOME 48 and
/// later). The desktop owns the keys: the shortcut is asked for as the preferred trigger, and the
/// desktop may show the user a dialog to confirm or change it. Presses arrive as the portal's
/// Activated signal, counted behind an eventfd by a thread of its own.
class PortalGlobalHotkey final : public GlobalHotkey {
 public:
  static constexpr const char* kInterface = "org.freedesktop.portal.GlobalShortcuts";
  /// The host registry (xdg-desktop-portal 1.19 and later), which tells the portal the app id of
  /// a program that is not sandboxed.
  static constexpr const char* kRegistry = "org.freedesktop.host.portal.Registry";
  /// The shortcut's id within the session; the desktop lists it under the app's name.
  static constexpr const char* kShortcutID = "record";

  struct Options {
    /// The id the desktop knows the app by: its .desktop file's name.
    std::string appID = "org.brimble.Brimble";
    /// What the desktop shows beside the shortcut in its settings.
    std::string description = "Record a region of the screen";
    /// How long the desktop's dialog (where it shows one) may wait for the user.
    std::chrono::milliseconds dialogTimeout{std::chrono::minutes(2)};
  };

  /// Binds `shortcut` (Qt's text, "Ctrl+Shift+G"). Throws GlobalHotkeyError: invalidShortcut,
  /// unavailable when the portal lacks the interface, refuses, or the user declines.
  PortalGlobalHotkey(std::shared_ptr<DesktopPortal> portal, const std::string& shortcut,
                     Options options);
  PortalGlobalHotkey(std::shared_ptr<DesktopPortal> portal, const std::string& shortcut)
      : PortalGlobalHotkey(std::move(portal), shortcut, Options{}) {}
  PortalGlobalHotkey(const PortalGlobalHotkey&) = delete;
  PortalGlobalHotkey& operator=(const PortalGlobalHotkey&) = delete;
  /// Stops listening and closes the portal session, which unbinds the shortcut.
  ~PortalGlobalHotkey() override;

  int eventFd() const override { return presses_.get(); }
  int takePresses() override;

  /// The trigger as the portal's shortcuts format writes it ("CTRL+SHIFT+g").
  static std::string portalTrigger(const KeyChord& chord);
  /// Why there are no portal shortcuts on a desktop whose portal lacks them, in its own words.
  static std::string unavailableReason();

 private:
  /// Stops the listener and closes the session; safe to call again.
  void release() noexcept;
  static void onActivated(GDBusConnection* connection, const gchar* sender, const gchar* path,
                          const gchar* interface, const gchar* signal, GVariant* parameters,
                          gpointer self);

  std::shared_ptr<DesktopPortal> portal_;
  std::string session_;
  UniqueFd presses_;
  GMainContextPtr context_;
  GMainLoopPtr loop_;
  guint subscription_ = 0;
  std::thread listener_;
};

}  // namespace brimble::wayland
