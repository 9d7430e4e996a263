#include "Brimble/Recording/QtSessionScheduler.h"

#include <QMetaObject>
#include <QPointer>
#include <QThreadPool>
#include <QTimer>

namespace brimble {

namespace {

class QtTimer final : public ScheduledTimer {
 public:
  QtTimer(double seconds, std::function<void()> tick) {
    timer_.setInterval(static_cast<int>(seconds * 1000));
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, [tick = std::move(tick)] { tick(); });
    timer_.start();
  }

 private:
  QTimer timer_;
};

}  // namespace

void QtSessionScheduler::post(std::function<void()> call) {
  QMetaObject::invokeMethod(
      this, [call = std::move(call)] { call(); }, Qt::QueuedConnection);
}

std::unique_ptr<ScheduledTimer> QtSessionScheduler::every(double seconds,
                                                          std::function<void()> tick) {
  return std::make_unique<QtTimer>(seconds, std::move(tick));
}

void QtSessionScheduler::runInBackground(std::function<void()> work, std::function<void()> done) {
  QPointer<QtSessionScheduler> self(this);
  QThreadPool::globalInstance()->start([self, work = std::move(work), done = std::move(done)] {
    work();
    // The completion goes back through the event loop; if the scheduler is gone, so is the
    // session that waited for it.
    if (self) {
      QMetaObject::invokeMethod(
          self, [done] { done(); }, Qt::QueuedConnection);
    }
  });
}

}  // namespace brimble
