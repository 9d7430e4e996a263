#pragma once

#include <functional>
#include <memory>

namespace brimble {

/// A repeating timer; it stops when destroyed.
class ScheduledTimer {
 public:
  virtual ~ScheduledTimer() = default;
};

/// The event loop as the recording session uses it: deferred calls, repeating timers, and work
/// off the main thread whose completion comes back to it. Qt's event loop in the application, a
/// hand-cranked fake in tests. Main thread only, except `post`, which any thread may call.
class SessionScheduler {
 public:
  virtual ~SessionScheduler() = default;

  /// Runs `call` on the main thread soon, after the current event.
  virtual void post(std::function<void()> call) = 0;
  /// Calls `tick` on the main thread every `seconds` until the returned timer is destroyed.
  virtual std::unique_ptr<ScheduledTimer> every(double seconds, std::function<void()> tick) = 0;
  /// Runs `work` on a worker thread, then `done` on the main thread. `work` must not throw.
  virtual void runInBackground(std::function<void()> work, std::function<void()> done) = 0;
};

}  // namespace brimble
