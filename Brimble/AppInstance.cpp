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
  const QDBusMessage call = QDBusMessage::createMethodCall(
      kAppId, kObjectPath, kAppId, request == Request::toggle ? "Toggle" : "Activate");
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

void AppInstance::Toggle() {
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
