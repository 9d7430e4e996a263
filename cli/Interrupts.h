#pragma once

#include <mutex>
#include <stop_token>
#include <thread>

namespace brimble::cli {

/// Turns Ctrl-C (SIGINT) and SIGTERM into a stop request that long work polls, so an interrupted
/// encode cleans up after itself. A second signal exits at once. Commands that want this call
/// `watch` before they start any thread: the signals are then blocked for every thread and
/// received by the watcher's own. Commands that never call it keep the default signal handling.
class Interrupts {
 public:
  Interrupts() = default;
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;
  ~Interrupts();

  /// Starts watching (once) and returns the token that a signal stops.
  std::stop_token watch();

  /// For commands whose first signal ends one stage and starts another (a recording, then its
  /// encode): a fresh token that the next signal stops, instead of exiting at once. Call after
  /// `watch`.
  std::stop_token watchAgain();

  /// The exit code of a command that stopped because of a signal.
  static constexpr int kExitInterrupted = 130;

 private:
  std::mutex sourceMutex_;  // guards source_
  std::stop_source source_;
  std::jthread watcher_;
};

}  // namespace brimble::cli
