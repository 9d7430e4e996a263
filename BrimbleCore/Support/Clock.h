#pragma once

#include <chrono>

namespace brimble {

/// Time for code that waits or paces itself (capture ticks, typing jitter, eased moves): the
/// steady clock in the product, a fake one in tests, which then never sleep. Implementations are
/// thread-safe.
class Clock {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  using Duration = std::chrono::steady_clock::duration;

  virtual ~Clock() = default;

  virtual TimePoint now() const = 0;
  virtual void sleepFor(Duration duration) = 0;
  virtual void sleepUntil(TimePoint time) = 0;
};

/// The real steady clock and real sleeps.
class SteadyClock final : public Clock {
 public:
  TimePoint now() const override { return std::chrono::steady_clock::now(); }
  void sleepFor(Duration duration) override;
  void sleepUntil(TimePoint time) override;
};

/// The process's one real clock, for composition roots to hand out.
SteadyClock& steadyClock();

}  // namespace brimble
