#pragma once

#include <mutex>
#include <vector>

#include "BrimbleCore/Support/Clock.h"

namespace brimble::testing {

/// A clock that only moves when something sleeps on it (or a test advances it), and remembers
/// every sleep, so timing logic is tested exactly and instantly.
class FakeClock final : public Clock {
 public:
  TimePoint now() const override {
    std::scoped_lock lock(mutex_);
    return now_;
  }
  void sleepFor(Duration duration) override {
    std::scoped_lock lock(mutex_);
    sleeps_.push_back(duration);
    if (duration > Duration::zero()) {
      now_ += duration;
    }
  }
  void sleepUntil(TimePoint time) override {
    std::scoped_lock lock(mutex_);
    sleeps_.push_back(time > now_ ? time - now_ : Duration::zero());
    if (time > now_) {
      now_ = time;
    }
  }
  void advance(Duration duration) {
    std::scoped_lock lock(mutex_);
    now_ += duration;
  }
  std::vector<Duration> sleeps() const {
    std::scoped_lock lock(mutex_);
    return sleeps_;
  }

 private:
  mutable std::mutex mutex_;  // guards the fields below
  TimePoint now_{};
  std::vector<Duration> sleeps_;
};

}  // namespace brimble::testing
