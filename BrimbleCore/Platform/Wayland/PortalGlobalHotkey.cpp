#include "BrimbleCore/Platform/Wayland/PortalGlobalHotkey.h"

#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

namespace brimble::wayland {

std::string PortalGlobalHotkey::unavailableReason() {
  return "This desktop's portal offers no global shortcuts (org.freedesktop.portal."
         "GlobalShortcuts, which comes with xdg-desktop-portal 1.17 and GNOME 48 or KDE Plasma "
         "5.27).";
}

std::string PortalGlobalHotkey::portalTrigger(const KeyChord& chord) {
  std::string trigger;
  for (const auto& [modifier, name] :
       {std::pair{Modifier::control, "CTRL"}, std::pair{Modifier::alt, "ALT"},
        std::pair{Modifier::shift, "SHIFT"}, std::pair{Modifier::super, "LOGO"}}) {
    if (chord.modifiers.contains(modifier)) {
      trigger += std::string(name) + "+";
    }
  }
  return trigger + keysymNameOf(chord.key);
}

PortalGlobalHotkey::PortalGlobalHotkey(std::shared_ptr<DesktopPortal> portal,
                                       const std::string& shortcut, Options options)
    : portal_(std::move(portal)) {
  const std::string trigger = portalTrigger(parseShortcut(shortcut));
  // The portal tells apps apart by their .desktop file; a program outside a sandbox has to say
  // which is its own before anything else it asks. Portals before 1.19 have no registry and
  // guess it instead, so a refusal here changes nothing.
  try {
    const GVariantPtr registered(portal_->call(
        kRegistry, "Register", g_variant_new("(sa{sv})", options.appID.c_str(), nullptr)));
  } catch (const PortalError&) {
  }
  if (portal_->version(kInterface) == 0) {
    throw GlobalHotkeyError::unavailable(unavailableReason());
  }

  const auto refused = [&](const PortalError& error) {
    return GlobalHotkeyError::unavailable(
        error.code() == PortalError::Code::cancelled
            ? "The desktop's shortcut dialog was closed without binding " + shortcut + "."
            : std::string(error.what()));
  };
  try {
    session_ = portal_->createSession(kInterface, "a global-shortcuts session",
                                      DesktopPortal::kQuickAnswer);
  } catch (const PortalError& error) {
    throw refused(error);
  }

  presses_ = UniqueFd(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
  if (!presses_) {
    portal_->closeSession(session_);
    throw GlobalHotkeyError::unavailable("No event file descriptor for the shortcut's presses.");
  }
  context_.reset(g_main_context_new());
  loop_.reset(g_main_loop_new(context_.get(), FALSE));
  // Subscribed with the listener's context as this thread's default, so the signal is handled on
  // the listener's thread whatever the caller's thread iterates (Qt's loop, or none).
  g_main_context_push_thread_default(context_.get());
  subscription_ = g_dbus_connection_signal_subscribe(
      portal_->connection(), DesktopPortal::kBusName, kInterface, "Activated",
      DesktopPortal::kObjectPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE, onActivated, this, nullptr);
  g_main_context_pop_thread_default(context_.get());
  listener_ = std::thread([loop = loop_.get()] { g_main_loop_run(loop); });

  try {
    const GVariantPtr bound = portal_->request(
        kInterface, "BindShortcuts",
        [&](const std::string& token) {
          GVariantBuilder info;
          g_variant_builder_init(&info, G_VARIANT_TYPE_VARDICT);
          g_variant_builder_add(&info, "{sv}", "description",
                                g_variant_new_string(options.description.c_str()));
          g_variant_builder_add(&info, "{sv}", "preferred_trigger",
                                g_variant_new_string(trigger.c_str()));
          GVariantBuilder shortcuts;
          g_variant_builder_init(&shortcuts, G_VARIANT_TYPE("a(sa{sv})"));
          g_variant_builder_add(&shortcuts, "(sa{sv})", kShortcutID, &info);
          GVariantBuilder dict;
          g_variant_builder_init(&dict, G_VARIANT_TYPE_VARDICT);
          g_variant_builder_add(&dict, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
          return g_variant_new("(oa(sa{sv})sa{sv})", session_.c_str(), &shortcuts, "", &dict);
        },
        options.dialogTimeout);
    // The desktop answers with what it bound; the user may have left ours out.
    bool ours = false;
    GVariant* list = g_variant_lookup_value(bound.get(), "shortcuts", G_VARIANT_TYPE("a(sa{sv})"));
    const GVariantPtr owned(list);
    for (gsize i = 0; list != nullptr && i < g_variant_n_children(list); ++i) {
      const char* id = nullptr;
      const GVariantPtr entry(g_variant_get_child_value(list, i));
      g_variant_get_child(entry.get(), 0, "&s", &id);
      ours = ours || std::string(id) == kShortcutID;
    }
    if (!ours) {
      throw GlobalHotkeyError::unavailable("The desktop did not bind " + shortcut + ".");
    }
  } catch (const PortalError& error) {
    release();
    throw refused(error);
  } catch (...) {
    // The listener must not outlive a hotkey that was never made.
    release();
    throw;
  }
}

PortalGlobalHotkey::~PortalGlobalHotkey() {
  release();
}

void PortalGlobalHotkey::release() noexcept {
  if (subscription_ != 0) {
    g_dbus_connection_signal_unsubscribe(portal_->connection(), subscription_);
    subscription_ = 0;
  }
  if (listener_.joinable()) {
    g_main_loop_quit(loop_.get());
    listener_.join();
  }
  portal_->closeSession(session_);
  session_.clear();
}

int PortalGlobalHotkey::takePresses() {
  std::uint64_t count = 0;
  if (::read(presses_.get(), &count, sizeof count) != static_cast<ssize_t>(sizeof count)) {
    return 0;  // EAGAIN: none since the last call
  }
  return static_cast<int>(count);
}

void PortalGlobalHotkey::onActivated(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                     const gchar*, GVariant* parameters, gpointer data) {
  auto* self = static_cast<PortalGlobalHotkey*>(data);
  if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(osta{sv})"))) {
    return;
  }
  const char* session = nullptr;
  const char* id = nullptr;
  g_variant_get_child(parameters, 0, "&o", &session);
  g_variant_get_child(parameters, 1, "&s", &id);
  // The portal sends Activated once a press and Deactivated at the release, so a held key is one
  // press whatever its repeats.
  if (self->session_ == session && std::string(id) == kShortcutID) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(self->presses_.get(), &one, sizeof one);
  }
}

}  // namespace brimble::wayland
