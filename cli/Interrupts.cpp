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
    return source_.get_token();
  }
  const sigset_t signals = interruptSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  watcher_ = std::jthread([this, signals](std::stop_token stop) {
    // sigtimedwait with a short timeout, so the watcher notices when the program is done.
    const timespec tick{0, 100'000'000};
    while (!stop.stop_requested()) {
      const int signal = sigtimedwait(&signals, nullptr, &tick);
      if (signal < 0) {
        continue;
      }
      if (source_.stop_requested()) {
        std::_Exit(kExitInterrupted);
      }
      source_.request_stop();
    }
  });
  return source_.get_token();
}

Interrupts::~Interrupts() = default;

}  // namespace brimble::cli
