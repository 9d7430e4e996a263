#include "BrimbleCore/Platform/Wayland/ScreenCastSession.h"

namespace brimble::wayland {
namespace {

std::uint32_t propertyOr(DesktopPortal& portal, const char* property, std::uint32_t fallback) {
  const GVariantPtr reply =
      portal.call("org.freedesktop.DBus.Properties", "Get",
                  g_variant_new("(ss)", DesktopPortal::kScreenCast, property));
  GVariant* value = nullptr;
  g_variant_get(reply.get(), "(v)", &value);
  const GVariantPtr owned(value);
  return g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32) ? g_variant_get_uint32(value)
                                                            : fallback;
}

}  // namespace

bool ScreenCastSession::offersCursorMode(DesktopPortal& portal, CursorMode mode) noexcept {
  try {
    return (propertyOr(portal, "AvailableCursorModes", 0) & static_cast<std::uint32_t>(mode)) != 0;
  } catch (const std::exception&) {
    return false;
  }
}

std::vector<ScreenCastStream> sharedStreams(GVariant* results) {
  std::vector<ScreenCastStream> streams;
  const GVariantPtr list(g_variant_lookup_value(results, "streams", G_VARIANT_TYPE("a(ua{sv})")));
  if (!list) {
    return streams;
  }
  GVariantIter iterator;
  g_variant_iter_init(&iterator, list.get());
  guint32 node = 0;
  GVariant* properties = nullptr;
  while (g_variant_iter_next(&iterator, "(u@a{sv})", &node, &properties)) {
    const GVariantPtr owned(properties);
    ScreenCastStream stream;
    stream.nodeID = node;
    gint32 x = 0;
    gint32 y = 0;
    if (g_variant_lookup(properties, "position", "(ii)", &x, &y)) {
      stream.frame.x = x;
      stream.frame.y = y;
    }
    gint32 width = 0;
    gint32 height = 0;
    if (g_variant_lookup(properties, "size", "(ii)", &width, &height)) {
      stream.frame.width = width;
      stream.frame.height = height;
    }
    guint32 type = 0;
    if (g_variant_lookup(properties, "source_type", "u", &type)) {
      stream.sourceType = type;
    }
    streams.push_back(stream);
  }
  return streams;
}

ScreenCastSession::ScreenCastSession(DesktopPortal& portal, const Options& options)
    : portal_(portal) {
  const unsigned version = portal_.version(DesktopPortal::kScreenCast);
  if (version == 0) {
    throw PortalError::unavailable("screen casting (org.freedesktop.portal.ScreenCast)",
                                   "the interface is missing");
  }
  // The portal offers some of hidden, embedded and metadata; metadata lets us draw the pointer
  // (or leave it out) as on X11, embedded is the next best.
  const std::uint32_t offered = propertyOr(portal_, "AvailableCursorModes", 1);
  const auto wanted = static_cast<std::uint32_t>(options.cursor);
  if ((offered & wanted) != 0) {
    cursorMode_ = options.cursor;
  } else if ((offered & static_cast<std::uint32_t>(CursorMode::embedded)) != 0) {
    cursorMode_ = CursorMode::embedded;
  }

  handle_ = portal_.createSession(DesktopPortal::kScreenCast, "a screen-cast session",
                                  DesktopPortal::kQuickAnswer, options.stop);

  try {
    const auto selectSources = [&](const std::string& restoreToken) {
      portal_.request(
          DesktopPortal::kScreenCast, "SelectSources",
          [&](const std::string& token) {
            GVariantBuilder dict;
            g_variant_builder_init(&dict, G_VARIANT_TYPE_VARDICT);
            g_variant_builder_add(&dict, "{sv}", "handle_token",
                                  g_variant_new_string(token.c_str()));
            g_variant_builder_add(
                &dict, "{sv}", "types",
                g_variant_new_uint32(static_cast<std::uint32_t>(options.sources)));
            g_variant_builder_add(&dict, "{sv}", "multiple", g_variant_new_boolean(FALSE));
            g_variant_builder_add(&dict, "{sv}", "cursor_mode",
                                  g_variant_new_uint32(static_cast<std::uint32_t>(cursorMode_)));
            if (version >= 4) {
              // Remembered until revoked, so only the first capture of a source asks.
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
      selectSources(options.restoreToken);
    } catch (const PortalError& error) {
      // A token the portal does not take (damaged, or from another portal) only means asking
      // the user again.
      if (options.restoreToken.empty() || error.code() != PortalError::Code::failed) {
        throw;
      }
      selectSources({});
    }

    const GVariantPtr started = portal_.startSession(DesktopPortal::kScreenCast, handle_,
                                                     options.dialogTimeout, options.stop);
    restoreToken_ = DesktopPortal::restoreTokenOf(started.get());
    streams_ = sharedStreams(started.get());
    if (streams_.empty()) {
      throw PortalError::failed("share the screen", "no stream was shared");
    }
  } catch (...) {
    portal_.closeSession(handle_);
    throw;
  }
}

ScreenCastSession::~ScreenCastSession() {
  portal_.closeSession(handle_);
}

UniqueFd ScreenCastSession::openPipeWireRemote() {
  GVariantBuilder dict;
  g_variant_builder_init(&dict, G_VARIANT_TYPE_VARDICT);
  return portal_.callForFd(DesktopPortal::kScreenCast, "OpenPipeWireRemote",
                           g_variant_new("(oa{sv})", handle_.c_str(), &dict));
}

}  // namespace brimble::wayland
