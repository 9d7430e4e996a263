#pragma once

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>

#include <QApplication>

namespace brimble::testing {

/// The application object widgets need, on Qt's offscreen platform (no display involved), for
/// one test: made first and gone last, before the program's own exit.
class OffscreenApplication {
 public:
  OffscreenApplication() {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    application_ = std::make_unique<QApplication>(argc_, argv_);
  }

 private:
  int argc_ = 1;
  char name_[16] = "BrimbleAppTests";
  char* argv_[2] = {name_, nullptr};
  std::unique_ptr<QApplication> application_;
};

/// Runs the event loop until `done` or `timeout`; whether `done` came true.
inline bool processEventsUntil(const std::function<bool()>& done,
                               std::chrono::milliseconds timeout = std::chrono::seconds(15)) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!done() && std::chrono::steady_clock::now() < deadline) {
    QApplication::processEvents(QEventLoop::AllEvents, 20);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return done();
}

}  // namespace brimble::testing
