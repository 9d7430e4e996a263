#include "tests/Support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <string>
#include <thread>
#include <utility>

#include <poll.h>
#include <unistd.h>

namespace brimble::testing {
namespace {

using MonotonicClock = std::chrono::steady_clock;

std::chrono::milliseconds left(MonotonicClock::time_point deadline) {
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(deadline - MonotonicClock::now()),
                  std::chrono::milliseconds(0));
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const std::optional<std::vector<std::string>>& environment)
    : process_(Subprocess::spawn(arguments,
                                 {.input = StreamConnection::pipe,
                                  .output = StreamConnection::pipe,
                                  .errorOutput = StreamConnection::pipe,
                                  .environment = environment.value_or(std::vector<std::string>{}),
                                  .clearEnvironment = environment.has_value()})) {}

bool ChildProcess::write(std::string_view bytes) {
  // A child that stopped reading must fail the write, not kill the test runner.
  std::signal(SIGPIPE, SIG_IGN);
  while (!bytes.empty()) {
    const ssize_t written = ::write(process_.input().get(), bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
  return true;
}

bool ChildProcess::pump(std::chrono::milliseconds timeout) {
  UniqueFd* fds[2] = {&process_.output(), &process_.errorOutput()};
  pollfd waits[2] = {{fds[0]->get(), POLLIN, 0}, {fds[1]->get(), POLLIN, 0}};
  if (::poll(waits, 2, static_cast<int>(timeout.count())) > 0) {
    for (int i = 0; i < 2; ++i) {
      char buffer[65536];
      const ssize_t got = waits[i].revents != 0 ? ::read(fds[i]->get(), buffer, sizeof buffer) : -1;
      if (got > 0) {
        (i == 0 ? outputBuffer_ : errorBuffer_).append(buffer, static_cast<std::size_t>(got));
      } else if (waits[i].revents != 0 && (got == 0 || errno != EINTR)) {
        fds[i]->reset();
      }
    }
  }
  return static_cast<bool>(process_.output());
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds timeout) {
  const auto deadline = MonotonicClock::now() + timeout;
  while (true) {
    if (const auto newline = outputBuffer_.find('\n'); newline != std::string::npos) {
      std::string line = outputBuffer_.substr(0, newline);
      outputBuffer_.erase(0, newline + 1);
      return line;
    }
    if (left(deadline).count() == 0 || !pump(left(deadline))) {
      return std::nullopt;
    }
  }
}

std::string ChildProcess::readRemainingOutput(std::chrono::milliseconds timeout) {
  const auto deadline = MonotonicClock::now() + timeout;
  while (process_.output() && left(deadline).count() > 0) {
    pump(left(deadline));
  }
  return std::exchange(outputBuffer_, std::string());
}

std::string ChildProcess::errorOutput() {
  std::size_t before = 0;
  do {
    before = outputBuffer_.size() + errorBuffer_.size();
    pump(std::chrono::milliseconds(0));
  } while (process_.errorOutput() && outputBuffer_.size() + errorBuffer_.size() != before);
  return errorBuffer_;
}

bool ChildProcess::waitForError(const std::string& text, std::chrono::milliseconds timeout) {
  const auto deadline = MonotonicClock::now() + timeout;
  do {
    if (const auto at = errorOutput().find(text, errorSeen_); at != std::string::npos) {
      errorSeen_ = at + text.size();
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  } while (left(deadline).count() > 0);
  return false;
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds timeout) {
  const auto deadline = MonotonicClock::now() + timeout;
  // Keep the pipes drained meanwhile, so a child finishing its output is never stuck.
  while (!process_.hasExited() && left(deadline).count() > 0) {
    pump(std::min(left(deadline), std::chrono::milliseconds(5)));
    if (!process_.output() && !process_.errorOutput()) {
      process_.waitFor(left(deadline));
    }
  }
  const auto status = process_.waitFor(std::chrono::milliseconds(0));
  if (!status) {
    return std::nullopt;
  }
  return status->signal != 0 ? -status->signal : status->code;
}

}  // namespace brimble::testing
