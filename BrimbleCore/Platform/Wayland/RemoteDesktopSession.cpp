#include "BrimbleCore/Platform/Wayland/RemoteDesktopSession.h"

namespace brimble::wayland {
namespace {

constexpr std::uint32_t kKeyboardAndPointer =
    static_cast<std::uint32_t>(RemoteDesktopSession::Devices::keyboard) |
    static_cast<std::uint32_t>(RemoteDesktopSession::Devices::pointer);
constexpr std::uint32_t kMonitor = 1;

/// An options dictionary that carries `token` as "handle_token"; the caller adds the rest.
void beginOptions(GVariantBuilder& dict, const std::string& token) {
  g_variant_builder_init(&dict, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&dict, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
}

}  // namespace

RemoteDesktopSession::RemoteDesktopSession(DesktopPortal& portal, const Options& options)
    : portal_(portal), version_(portal.version(DesktopPortal::kRemoteDesktop)) {
  if (version_ == 0) {
    throw PortalError::unavailable("remote input (org.freedesktop.portal.RemoteDesktop)",
                                   "the interface is missing");
  }
  handle_ = portal_.createSession(DesktopPortal::kRemoteDesktop, "a remote-desktop session",
                                  DesktopPortal::kQuickAnswer, options.stop);

  try {
    const auto selectDevices = [&](const std::string& restoreToken) {
      portal_.request(
          DesktopPortal::kRemoteDesktop, "SelectDevices",
          [&](const std::string& token) {
            GVariantBuilder dict;
            beginOptions(dict, token);
            g_variant_builder_add(&dict, "{sv}", "types",
                                  g_variant_new_uint32(kKeyboardAndPointer));
            // Version 1 knows neither key and cannot remember: there every session asks.
            if (version_ >= 2) {
              g_variant_builder_add(&dict, "{sv}", "persist_mode", g_variant_new_uint32(2));
              if (!restoreToken.empty()) {
                g_variant_builder_add(&dict, "{sv}", "restore_token",
                                      g_variant_new_string(restoreToken.c_str()));
              }
            }
            return g_variant_new("(oa{sv})", handle_.c_str(), &dict);
          },
          DesktopPortal::kQuickAnswer, options.stop);
    };
    try {
      selectDevices(options.restoreToken);
    } catch (const PortalError& error) {
      // A token the portal does not take only means asking the user again.
      if (options.restoreToken.empty() || version_ < 2 ||
          error.code() != PortalError::Code::failed) {
        throw;
      }
      selectDevices({});
    }

    // A monitor of the same session: absolute pointer motion is relative to a shared stream.
    // Its permission is remembered with the devices' (persist_mode belongs to SelectDevices in
    // a remote-desktop session).
    portal_.request(
        DesktopPortal::kScreenCast, "SelectSources",
        [&](const std::string& token) {
          GVariantBuilder dict;
          beginOptions(dict, token);
          g_variant_builder_add(&dict, "{sv}", "types", g_variant_new_uint32(kMonitor));
          g_variant_builder_add(&dict, "{sv}", "multiple", g_variant_new_boolean(FALSE));
          return g_variant_new("(oa{sv})", handle_.c_str(), &dict);
        },
        DesktopPortal::kQuickAnswer, options.stop);

    const GVariantPtr started = portal_.startSession(DesktopPortal::kRemoteDesktop, handle_,
                                                     options.dialogTimeout, options.stop);

    guint32 devices = 0;
    g_variant_lookup(started.get(), "devices", "u", &devices);
    // Without "Allow remote interaction" the session starts with no devices, and every event
    // would be dropped without a word.
    if ((devices & kKeyboardAndPointer) != kKeyboardAndPointer) {
      throw PortalError::failed("share the keyboard and pointer",
                                "remote interaction was not allowed in the dialog");
    }
    restoreToken_ = DesktopPortal::restoreTokenOf(started.get());
    streams_ = sharedStreams(started.get());
    if (streams_.empty()) {
      throw PortalError::failed("share the screen for input", "no stream was shared");
    }
  } catch (...) {
    portal_.closeSession(handle_);
    throw;
  }
}

RemoteDesktopSession::~RemoteDesktopSession() {
  portal_.closeSession(handle_);
}

void RemoteDesktopSession::notify(const char* method, GVariant* arguments) {
  portal_.call(DesktopPortal::kRemoteDesktop, method, arguments);
}

void RemoteDesktopSession::keysym(std::uint32_t keysym, bool pressed) {
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  notify("NotifyKeyboardKeysym", g_variant_new("(oa{sv}iu)", handle_.c_str(), &options,
                                               static_cast<gint32>(keysym), pressed ? 1U : 0U));
}

void RemoteDesktopSession::pointerMotionAbsolute(std::uint32_t streamNodeID, double x, double y) {
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  notify("NotifyPointerMotionAbsolute",
         g_variant_new("(oa{sv}udd)", handle_.c_str(), &options, streamNodeID, x, y));
}

void RemoteDesktopSession::pointerButton(int evdevButton, bool pressed) {
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  notify("NotifyPointerButton", g_variant_new("(oa{sv}iu)", handle_.c_str(), &options,
                                              static_cast<gint32>(evdevButton), pressed ? 1U : 0U));
}

void RemoteDesktopSession::pointerAxisDiscrete(Axis axis, int steps) {
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  notify("NotifyPointerAxisDiscrete",
         g_variant_new("(oa{sv}ui)", handle_.c_str(), &options, static_cast<std::uint32_t>(axis),
                       static_cast<gint32>(steps)));
}

}  // namespace brimble::wayland
