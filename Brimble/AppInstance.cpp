#include "Brimble/AppInstance.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include "BrimbleCore/Support/Log.h"

namespace brimble {

namespace {

constexpr const char* kObjectPath = "/org/brimble/Brimble";

}  // namespace

bool AppInstance::forward(Request request) {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected() || !bus.interface()->isServiceRegistered(kAppId).value()) {
    return false;
  }
  QDBusMessage call = QDBusMessage::createMethodCall(
      kAppId, kObjectPath, kAppId, request == Request::toggle ? "Toggle" : "Activate");
  if (request == Request::toggle) {
    call << qEnvironmentVariable("XDG_ACTIVATION_TOKEN");
  }
  const QDBusMessage reply = bus.call(call, QDBus::Block, 5000);
  return reply.type() == QDBusMessage::ReplyMessage;
}

bool AppInstance::claim() {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) {
    logLine("Brimble: no session bus, so brimble-app --toggle cannot reach this app");
    return true;
  }
  if (!bus.registerService(kAppId)) {
    return false;
  }
  bus.registerObject(kObjectPath, this, QDBusConnection::ExportScriptableSlots);
  return true;
}

void AppInstance::Toggle(const QString& activationToken) {
  // The desktop lets the window that opens take the keyboard when it comes with the token it
  // gave the program its shortcut started; Qt uses one found in the environment.
  if (!activationToken.isEmpty()) {
    qputenv("XDG_ACTIVATION_TOKEN", activationToken.toUtf8());
  }
  if (onToggle) {
    onToggle();
  }
}

void AppInstance::Activate() {
  if (onActivate) {
    onActivate();
  }
}

}  // namespace brimble
