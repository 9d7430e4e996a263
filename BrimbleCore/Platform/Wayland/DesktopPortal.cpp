#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"

#include <atomic>
#include <optional>

#include <gio/gunixfdlist.h>
#include <unistd.h>

namespace brimble::wayland {
namespace {

constexpr int kCallTimeoutMs = 30000;
// How often a wait for a response looks at its stop token.
constexpr guint kStopPollMs = 50;

/// A response as it arrives on the request's object.
struct Response {
  std::optional<guint32> code;
  GVariantPtr results;
};

void onResponse(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                GVariant* parameters, gpointer data) {
  auto* response = static_cast<Response*>(data);
  guint32 code = 2;
  GVariant* results = nullptr;
  g_variant_get(parameters, "(u@a{sv})", &code, &results);
  response->code = code;
  response->results = GVariantPtr(results);
}

gboolean quitLoop(gpointer flag) {
  *static_cast<bool*>(flag) = true;
  return G_SOURCE_REMOVE;
}

}  // namespace

PortalError PortalError::unavailable(const std::string& interface, const std::string& detail) {
  return {Code::unavailable,
          "The desktop portal (xdg-desktop-portal) offers no " + interface +
              " on the session bus: install xdg-desktop-portal and the desktop's backend "
              "(xdg-desktop-portal-gnome or xdg-desktop-portal-kde), or use --headless (" +
              detail + ")"};
}

PortalError PortalError::cancelled() {
  return {Code::cancelled, "Screen sharing was cancelled"};
}

PortalError PortalError::failed(const std::string& what, const std::string& detail) {
  return {Code::failed, "The desktop portal could not " + what + ": " + detail};
}

DesktopPortal::DesktopPortal() {
  GError* error = nullptr;
  bus_.reset(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error));
  if (!bus_) {
    throw PortalError::unavailable("session bus", takeMessage(error));
  }
  // Request objects live at .../request/SENDER/TOKEN, SENDER being our unique name without its
  // colon and with dots as underscores.
  std::string name = g_dbus_connection_get_unique_name(bus_.get());
  if (!name.empty() && name.front() == ':') {
    name.erase(0, 1);
  }
  for (char& c : name) {
    if (c == '.') {
      c = '_';
    }
  }
  sender_ = name;
}

std::string DesktopPortal::newToken() {
  static std::atomic<unsigned> counter{0};
  return "brimble_" + std::to_string(::getpid()) + "_" + std::to_string(++counter);
}

unsigned DesktopPortal::version(const char* interface) {
  GError* error = nullptr;
  const GVariantPtr reply(g_dbus_connection_call_sync(
      bus_.get(), kBusName, kObjectPath, "org.freedesktop.DBus.Properties", "Get",
      g_variant_new("(ss)", interface, "version"), G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NONE,
      kCallTimeoutMs, nullptr, &error));
  if (!reply) {
    g_clear_error(&error);
    return 0;
  }
  GVariant* value = nullptr;
  g_variant_get(reply.get(), "(v)", &value);
  const GVariantPtr owned(value);
  return g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32) ? g_variant_get_uint32(value) : 0;
}

GVariantPtr DesktopPortal::request(const char* interface, const char* method,
                                   const RequestArguments& arguments,
                                   std::chrono::milliseconds timeout, std::stop_token stop) {
  const std::string token = newToken();
  const std::string path = std::string(kObjectPath) + "/request/" + sender_ + "/" + token;
  const PrivateMainContext context;
  Response response;
  // Subscribed before the call, so that a quick answer is not missed: the bus sees the match
  // rule before the call, as messages on one connection keep their order.
  const guint subscription = g_dbus_connection_signal_subscribe(
      bus_.get(), kBusName, "org.freedesktop.portal.Request", "Response", path.c_str(), nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE, onResponse, &response, nullptr);
  const auto cleanUp = [&] { g_dbus_connection_signal_unsubscribe(bus_.get(), subscription); };
  GError* error = nullptr;
  const GVariantPtr reply(g_dbus_connection_call_sync(
      bus_.get(), kBusName, kObjectPath, interface, method, arguments(token), G_VARIANT_TYPE("(o)"),
      G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, &error));
  if (!reply) {
    const bool missing = g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
                         g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD) ||
                         g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_INTERFACE) ||
                         g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER);
    const std::string message = takeMessage(error);
    cleanUp();
    if (missing) {
      throw PortalError::unavailable(interface, message);
    }
    throw PortalError::failed(std::string("start ") + method, message);
  }

  bool timedOut = false;
  GSource* timer = g_timeout_source_new(static_cast<guint>(timeout.count()));
  g_source_set_callback(timer, quitLoop, &timedOut, nullptr);
  g_source_attach(timer, context.get());
  bool pollStop = false;
  GSource* poll = g_timeout_source_new(kStopPollMs);
  g_source_set_callback(
      poll,
      [](gpointer flag) -> gboolean {
        *static_cast<bool*>(flag) = true;
        return G_SOURCE_CONTINUE;
      },
      &pollStop, nullptr);
  g_source_attach(poll, context.get());
  while (!response.code && !timedOut && !stop.stop_requested()) {
    g_main_context_iteration(context.get(), TRUE);
  }
  g_source_destroy(timer);
  g_source_unref(timer);
  g_source_destroy(poll);
  g_source_unref(poll);
  cleanUp();

  if (!response.code) {
    // Nobody answered: close the request, so its dialog goes away.
    const GVariantPtr closed(g_dbus_connection_call_sync(
        bus_.get(), kBusName, path.c_str(), "org.freedesktop.portal.Request", "Close", nullptr,
        nullptr, G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, nullptr));
    if (stop.stop_requested()) {
      throw PortalError::cancelled();
    }
    throw PortalError::failed(std::string("finish ") + method,
                              "no answer within " + std::to_string(timeout.count() / 1000) + " s");
  }
  if (*response.code == 1) {
    throw PortalError::cancelled();
  }
  if (*response.code != 0) {
    throw PortalError::failed(std::string("finish ") + method, "it answered with an error");
  }
  return std::move(response.results);
}

std::string DesktopPortal::createSession(const char* interface, const std::string& what,
                                         std::chrono::milliseconds timeout, std::stop_token stop) {
  const std::string sessionToken = newToken();
  const GVariantPtr created = request(
      interface, "CreateSession",
      [&](const std::string& token) {
        GVariantBuilder dict;
        g_variant_builder_init(&dict, G_VARIANT_TYPE_VARDICT);
        g_variant_builder_add(&dict, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
        g_variant_builder_add(&dict, "{sv}", "session_handle_token",
                              g_variant_new_string(sessionToken.c_str()));
        return g_variant_new("(a{sv})", &dict);
      },
      timeout, std::move(stop));
  const char* handle = nullptr;
  if (!g_variant_lookup(created.get(), "session_handle", "&s", &handle)) {
    throw PortalError::failed("create " + what, "it returned no session");
  }
  return handle;
}

GVariantPtr DesktopPortal::startSession(const char* interface, const std::string& sessionHandle,
                                        std::chrono::milliseconds timeout, std::stop_token stop) {
  return request(
      interface, "Start",
      [&](const std::string& token) {
        GVariantBuilder dict;
        g_variant_builder_init(&dict, G_VARIANT_TYPE_VARDICT);
        g_variant_builder_add(&dict, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
        return g_variant_new("(osa{sv})", sessionHandle.c_str(), "", &dict);
      },
      timeout, std::move(stop));
}

std::string DesktopPortal::restoreTokenOf(GVariant* results) {
  const char* token = nullptr;
  return g_variant_lookup(results, "restore_token", "&s", &token) ? token : "";
}

GVariantPtr DesktopPortal::call(const char* interface, const char* method, GVariant* arguments) {
  GError* error = nullptr;
  GVariantPtr reply(g_dbus_connection_call_sync(bus_.get(), kBusName, kObjectPath, interface,
                                                method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE,
                                                kCallTimeoutMs, nullptr, &error));
  if (!reply) {
    throw PortalError::failed(std::string("call ") + method, takeMessage(error));
  }
  return reply;
}

UniqueFd DesktopPortal::callForFd(const char* interface, const char* method, GVariant* arguments) {
  GError* error = nullptr;
  GUnixFDList* received = nullptr;
  const GVariantPtr reply(g_dbus_connection_call_with_unix_fd_list_sync(
      bus_.get(), kBusName, kObjectPath, interface, method, arguments, G_VARIANT_TYPE("(h)"),
      G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, &received, nullptr, &error));
  const GObjectPtr<GUnixFDList> fds(received);
  if (!reply) {
    throw PortalError::failed(std::string("call ") + method, takeMessage(error));
  }
  gint32 index = -1;
  g_variant_get(reply.get(), "(h)", &index);
  const int fd = fds ? g_unix_fd_list_get(fds.get(), index, &error) : -1;
  if (fd < 0) {
    throw PortalError::failed(std::string("call ") + method,
                              error != nullptr ? takeMessage(error) : "no file descriptor");
  }
  return UniqueFd(fd);
}

void DesktopPortal::closeSession(const std::string& sessionHandle) noexcept {
  if (sessionHandle.empty()) {
    return;
  }
  const GVariantPtr closed(g_dbus_connection_call_sync(
      bus_.get(), kBusName, sessionHandle.c_str(), "org.freedesktop.portal.Session", "Close",
      nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs, nullptr, nullptr));
}

}  // namespace brimble::wayland
