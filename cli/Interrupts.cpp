#include "cli/Interrupts.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include <signal.h>

namespace brimble::cli {
namespace {

sigset_t interruptSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

}  // namespace

std::stop_token Interrupts::watch() {
  if (watcher_.joinable()) {
    std::scoped_lock lock(sourceMutex_);
    return source_.get_token();
  }
  const sigset_t signals = interruptSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const std::stop_token token = source_.get_token();  // before the watcher can swap the source
  watcher_ = std::jthread([this, signals](std::stop_token stop) {
    // sigtimedwait with a short timeout, so the watcher notices when the program is done.
    const timespec tick{0, 100'000'000};
    while (!stop.stop_requested()) {
      const int signal = sigtimedwait(&signals, nullptr, &tick);
      if (signal < 0) {
        continue;
      }
      std::stop_source current;
      {
        std::scoped_lock lock(sourceMutex_);
        current = source_;
      }
      if (current.stop_requested()) {
        std::_Exit(kExitInterrupted);
      }
      current.request_stop();
    }
  });
  return token;
}

std::stop_token Interrupts::watchAgain() {
  std::scoped_lock lock(sourceMutex_);
  source_ = std::stop_source();
  return source_.get_token();
}

Interrupts::~Interrupts() = default;

}  // namespace brimble::cli
