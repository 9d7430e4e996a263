#pragma once

#include <QObject>

#include "Brimble/Recording/SessionScheduler.h"

namespace brimble {

/// SessionScheduler over Qt's event loop: posted calls are queued to the main thread, timers are
/// QTimers and background work runs on the global thread pool. Lives on the main thread.
class QtSessionScheduler final : public QObject, public SessionScheduler {
  Q_OBJECT

 public:
  explicit QtSessionScheduler(QObject* parent = nullptr) : QObject(parent) {}

  void post(std::function<void()> call) override;
  std::unique_ptr<ScheduledTimer> every(double seconds, std::function<void()> tick) override;
  void runInBackground(std::function<void()> work, std::function<void()> done) override;
};

}  // namespace brimble
