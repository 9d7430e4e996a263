#include "Brimble/Settings/BackgroundUpdateCheck.h"

#include <QMetaObject>

#include "BrimbleCore/Updates/PackageOwner.h"

namespace brimble {

QString BackgroundUpdateCheck::Outcome::text() const {
  return QString::fromStdString(result ? describeUpdate(*result, package) : error);
}

BackgroundUpdateCheck::BackgroundUpdateCheck(std::string feed, std::string currentVersion,
                                             QObject* parent)
    : QObject(parent), feed_(std::move(feed)), currentVersion_(std::move(currentVersion)) {}

BackgroundUpdateCheck::~BackgroundUpdateCheck() = default;

bool BackgroundUpdateCheck::start(std::function<void(const Outcome&)> done) {
  if (running_) {
    return false;
  }
  running_ = true;
  // The previous worker has posted its outcome and ended; joining it costs nothing.
  worker_ = std::jthread([this, done = std::move(done)] {
    Outcome outcome;
    try {
      outcome.result = checkForUpdate(feed_, currentVersion_);
      if (outcome.result->status == UpdateStatus::updateAvailable) {
        outcome.package = packageOwning("/proc/self/exe");
      }
    } catch (const std::exception& error) {
      outcome.error = error.what();
    }
    // Posted to this object: dropped by Qt if it is gone by then.
    QMetaObject::invokeMethod(
        this,
        [this, done, outcome] {
          running_ = false;
          done(outcome);
        },
        Qt::QueuedConnection);
  });
  return true;
}

}  // namespace brimble
