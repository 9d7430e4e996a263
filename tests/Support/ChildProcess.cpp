#include "tests/Support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace brimble::testing {
namespace {

using Clock = std::chrono::steady_clock;

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  for (std::string& text : strings) {
    result.push_back(text.data());
  }
  result.push_back(nullptr);
  return result;
}

void closeIfOpen(int& fd) {
  if (fd >= 0) {
    ::close(fd);
    fd = -1;
  }
}

int remainingMilliseconds(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const std::optional<std::vector<std::string>>& environment) {
  int in[2], out[2], err[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
  // A child must not inherit a blocked or ignored signal from the test runner.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  std::vector<std::string> argv = arguments;
  std::vector<std::string> envp = environment.value_or(std::vector<std::string>{});
  std::vector<char*> argvPointers = pointers(argv);
  std::vector<char*> envpPointers = pointers(envp);
  const int result =
      ::posix_spawnp(&pid_, argv.at(0).c_str(), &actions, &attributes, argvPointers.data(),
                     environment ? envpPointers.data() : environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  input_ = in[1];
  output_ = out[0];
  error_ = err[0];
  if (result != 0) {
    closeIfOpen(input_);
    closeIfOpen(output_);
    closeIfOpen(error_);
    throw std::system_error(result, std::generic_category(), "could not start " + argv.at(0));
  }
}

ChildProcess::~ChildProcess() {
  closeIfOpen(input_);
  if (!status_) {
    ::kill(pid_, SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
  }
  closeIfOpen(output_);
  closeIfOpen(error_);
}

bool ChildProcess::write(std::string_view bytes) {
  // A child that stopped reading must fail the write, not kill the test runner.
  std::signal(SIGPIPE, SIG_IGN);
  while (!bytes.empty()) {
    const ssize_t written = ::write(input_, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

void ChildProcess::closeInput() {
  closeIfOpen(input_);
}

bool ChildProcess::pump(std::chrono::milliseconds timeout) {
  if (output_ < 0 && error_ < 0) {
    return false;
  }
  pollfd fds[2] = {{output_, POLLIN, 0}, {error_, POLLIN, 0}};
  const int ready = ::poll(fds, 2, static_cast<int>(timeout.count()));
  if (ready <= 0) {
    return output_ >= 0;
  }
  char buffer[65536];
  for (int i = 0; i < 2; ++i) {
    int& fd = i == 0 ? output_ : error_;
    if (fd < 0 || fds[i].revents == 0) {
      continue;
    }
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got > 0) {
      (i == 0 ? outputBuffer_ : errorBuffer_).append(buffer, static_cast<std::size_t>(got));
    } else if (got == 0 || errno != EINTR) {
      closeIfOpen(fd);
    }
  }
  return output_ >= 0;
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (true) {
    if (const auto newline = outputBuffer_.find('\n'); newline != std::string::npos) {
      std::string line = outputBuffer_.substr(0, newline);
      outputBuffer_.erase(0, newline + 1);
      return line;
    }
    const int left = remainingMilliseconds(deadline);
    if (left == 0 || !pump(std::chrono::milliseconds(left))) {
      return std::nullopt;
    }
  }
}

std::string ChildProcess::readRemainingOutput(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (output_ >= 0) {
    const int left = remainingMilliseconds(deadline);
    if (left == 0) {
      break;
    }
    pump(std::chrono::milliseconds(left));
  }
  return std::exchange(outputBuffer_, std::string());
}

std::string ChildProcess::errorOutput() {
  while (error_ >= 0) {
    pollfd fd = {error_, POLLIN, 0};
    if (::poll(&fd, 1, 0) <= 0) {
      break;
    }
    char buffer[65536];
    const ssize_t got = ::read(error_, buffer, sizeof buffer);
    if (got <= 0) {
      closeIfOpen(error_);
      break;
    }
    errorBuffer_.append(buffer, static_cast<std::size_t>(got));
  }
  return errorBuffer_;
}

void ChildProcess::signal(int signal) {
  ::kill(pid_, signal);
}

std::optional<int> ChildProcess::wait(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (!status_) {
    int status = 0;
    const pid_t result = ::waitpid(pid_, &status, WNOHANG);
    if (result == pid_) {
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
      break;
    }
    if (remainingMilliseconds(deadline) == 0) {
      return std::nullopt;
    }
    // Keep the pipes drained meanwhile, so a child finishing its output is never stuck.
    if (output_ >= 0 || error_ >= 0) {
      pump(std::chrono::milliseconds(5));
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  return status_;
}

}  // namespace brimble::testing
