#pragma once

#include <stop_token>
#include <thread>

namespace brimble::cli {

/// Turns Ctrl-C (SIGINT) and SIGTERM into a stop request that long work polls, so an interrupted
/// encode cleans up after itself. A second signal exits at once. Create it in `main` before any
/// other thread starts: the signals are blocked for every thread and received by its own.
class Interrupts {
 public:
  Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;
  ~Interrupts();

  std::stop_token token() const noexcept { return source_.get_token(); }
  bool interrupted() const noexcept { return source_.stop_requested(); }

  /// The exit code of a command that stopped because of a signal.
  static constexpr int kExitInterrupted = 130;

 private:
  std::stop_source source_;
  std::jthread watcher_;
};

}  // namespace brimble::cli
