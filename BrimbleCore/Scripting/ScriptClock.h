#pragma once

#include <stop_token>
#include <utility>

#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// The time a script runs on: the engine's clock, in seconds, and the interrupt that cuts the
/// script's waits short. Shared by the engine and the parts it keeps its state in; one thread at
/// a time.
class ScriptClock {
 public:
  ScriptClock(Clock& clock, std::stop_token interrupt)
      : clock_(clock), interrupt_(std::move(interrupt)) {}

  Clock::TimePoint now() const { return clock_.now(); }
  /// `now()` plus `seconds` (none when negative).
  Clock::TimePoint after(double seconds) const { return now() + duration(seconds); }
  /// Seconds from `from` to now.
  double secondsSince(Clock::TimePoint from) const { return secondsBetween(from, now()); }

  /// Whether an interrupt asked the script to stop.
  bool shouldStop() const { return interrupt_.stop_requested(); }

  /// Sleeps `seconds` at once, interrupt or not: for polls that are short anyway.
  void sleep(double seconds) { clock_.sleepFor(duration(seconds)); }

  /// Waits until `seconds` have passed or the script is interrupted. Waits are cut into short
  /// slices, so an interrupt is noticed quickly.
  void wait(double seconds);

  static Clock::Duration duration(double seconds);
  static double secondsBetween(Clock::TimePoint from, Clock::TimePoint to);

  /// How long one slice of a wait lasts.
  static constexpr double kWaitSlice = 0.05;

 private:
  Clock& clock_;
  std::stop_token interrupt_;
};

}  // namespace brimble
