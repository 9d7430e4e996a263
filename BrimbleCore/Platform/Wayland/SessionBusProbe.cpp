#include "BrimbleCore/Platform/Wayland/SessionBusProbe.h"

#include <cstdlib>
#include <filesystem>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>

#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"

namespace brimble::wayland {
namespace {

// How long a cancelled connection attempt may take to wind down before it is left behind.
constexpr std::chrono::milliseconds kCancelGrace{500};

/// The session bus's address, as a login sets it, else the per-user socket of systemd's user
/// bus. GLib's own lookup would fall back to autolaunching a bus for the X display, and a check
/// must not start one.
std::string sessionBusAddress() {
  if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
      address != nullptr && *address != '\0') {
    return address;
  }
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  const std::filesystem::path socket =
      std::filesystem::path(runtime != nullptr && *runtime != '\0'
                                ? runtime
                                : "/run/user/" + std::to_string(::getuid())) /
      "bus";
  struct stat info {};
  if (::stat(socket.c_str(), &info) == 0 && S_ISSOCK(info.st_mode) && info.st_uid == ::getuid()) {
    return "unix:path=" + socket.string();
  }
  return {};
}

struct Connecting {
  bool done = false;
  GObjectPtr<GDBusConnection> connection;
  std::string problem;
};

void onConnected(GObject*, GAsyncResult* result, gpointer data) {
  const std::unique_ptr<std::shared_ptr<Connecting>> held(
      static_cast<std::shared_ptr<Connecting>*>(data));
  Connecting* connecting = held->get();
  GError* error = nullptr;
  connecting->connection.reset(g_dbus_connection_new_for_address_finish(result, &error));
  if (!connecting->connection) {
    connecting->problem = takeMessage(error);
  }
  connecting->done = true;
}

/// Connects to the bus at `address` within `timeout`: a socket that accepts but never speaks
/// (a bus that hangs) must not hold the checklist, and the blocking call has no timeout.
GObjectPtr<GDBusConnection> connectTo(const std::string& address, std::chrono::milliseconds timeout,
                                      std::string& problem) {
  const PrivateMainContext context;
  const GObjectPtr<GCancellable> cancel(g_cancellable_new());
  // Shared with the callback: should a cancelled attempt not finish in time, it is left
  // behind, and its callback (which then never runs) holds the state rather than our stack.
  const auto state = std::make_shared<Connecting>();
  Connecting& connecting = *state;
  g_dbus_connection_new_for_address(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, cancel.get(), onConnected,
      std::make_unique<std::shared_ptr<Connecting>>(state).release());
  bool timedOut = false;
  const auto waitFor = [&](std::chrono::milliseconds limit) {
    timedOut = false;
    GSource* timer = g_timeout_source_new(static_cast<guint>(limit.count()));
    g_source_set_callback(
        timer,
        [](gpointer flag) -> gboolean {
          *static_cast<bool*>(flag) = true;
          return G_SOURCE_REMOVE;
        },
        &timedOut, nullptr);
    g_source_attach(timer, context.get());
    while (!connecting.done && !timedOut) {
      g_main_context_iteration(context.get(), TRUE);
    }
    g_source_destroy(timer);
    g_source_unref(timer);
  };
  waitFor(timeout);
  if (!connecting.done) {
    g_cancellable_cancel(cancel.get());
    waitFor(kCancelGrace);
    problem = "no answer within " + std::to_string(timeout.count()) + " ms";
    return nullptr;
  }
  if (!connecting.connection) {
    problem = connecting.problem;
    return nullptr;
  }
  // A process that keeps running after the bus has gone must not be ended by it.
  g_dbus_connection_set_exit_on_close(connecting.connection.get(), FALSE);
  return std::move(connecting.connection);
}

/// Calls `method` and returns its reply, or null with `problem` set.
GVariantPtr callWithin(GDBusConnection* bus, const char* destination, const char* path,
                       const char* interface, const char* method, GVariant* arguments,
                       const GVariantType* replyType, std::chrono::milliseconds timeout,
                       std::string& problem) {
  GError* error = nullptr;
  GVariantPtr reply(g_dbus_connection_call_sync(
      bus, destination, path, interface, method, arguments, replyType, G_DBUS_CALL_FLAGS_NONE,
      static_cast<int>(timeout.count()), nullptr, &error));
  if (!reply) {
    if (error != nullptr) {
      g_dbus_error_strip_remote_error(error);
    }
    problem = takeMessage(error);
  }
  return reply;
}

}  // namespace

SessionBusProbe::SessionBusProbe(std::chrono::milliseconds timeout)
    : timeout_(timeout), address_(sessionBusAddress()) {
  if (address_.empty()) {
    problem_ = "there is no session bus ($DBUS_SESSION_BUS_ADDRESS is not set)";
    return;
  }
  std::string why;
  bus_ = connectTo(address_, timeout_, why);
  if (!bus_) {
    problem_ = "the session bus does not answer (" + why + ")";
  }
}

SessionBusProbe::PortalInterface SessionBusProbe::portalInterface(const char* interface,
                                                                  const char* typesProperty) {
  PortalInterface offer;
  if (!bus_) {
    offer.problem = problem_;
    return offer;
  }
  std::string problem;
  const GVariantPtr reply =
      callWithin(bus_.get(), DesktopPortal::kBusName, DesktopPortal::kObjectPath,
                 "org.freedesktop.DBus.Properties", "GetAll", g_variant_new("(s)", interface),
                 G_VARIANT_TYPE("(a{sv})"), timeout_, problem);
  if (!reply) {
    offer.problem = "no desktop portal answers on the session bus (" + problem + ")";
    return offer;
  }
  GVariant* properties = nullptr;
  g_variant_get(reply.get(), "(@a{sv})", &properties);
  const GVariantPtr owned(properties);
  guint32 value = 0;
  if (g_variant_lookup(properties, "version", "u", &value)) {
    offer.version = value;
  }
  if (g_variant_lookup(properties, typesProperty, "u", &value)) {
    offer.types = value;
  }
  if (offer.version == 0) {
    offer.problem = std::string("the desktop portal has no ") + interface;
  }
  return offer;
}

SessionBusProbe::AccessibilityBus SessionBusProbe::accessibilityBus() {
  if (!bus_) {
    return {false, problem_};
  }
  std::string problem;
  const GVariantPtr reply =
      callWithin(bus_.get(), "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr,
                 G_VARIANT_TYPE("(s)"), timeout_, problem);
  if (!reply) {
    return {false, "the session bus has no accessibility bus (" + problem + ")"};
  }
  const gchar* address = nullptr;
  g_variant_get(reply.get(), "(&s)", &address);
  const std::string accessibilityAddress = address != nullptr ? address : "";
  const GObjectPtr<GDBusConnection> accessibility =
      connectTo(accessibilityAddress, timeout_, problem);
  if (!accessibility) {
    return {false, "the accessibility bus does not answer (" + problem + ")"};
  }
  // The registry is what applications announce themselves to; the bus starts it on demand.
  if (!callWithin(accessibility.get(), "org.a11y.atspi.Registry", "/org/a11y/atspi/registry",
                  "org.freedesktop.DBus.Peer", "Ping", nullptr, nullptr, timeout_, problem)) {
    return {false, "the AT-SPI registry does not answer (" + problem + ")"};
  }
  return {true, accessibilityAddress};
}

}  // namespace brimble::wayland
