#include "BrimbleCore/Support/DaemonProcess.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrimbleCore/Support/SystemError.h"

namespace brimble {
namespace {

/// Whether a process of `group` is still alive. Zombies do not count: they are gone but for
/// their exit status, which whoever adopted them collects.
bool groupHasLiveMembers(pid_t group) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename().string();
    if (name.empty() || name.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    std::ifstream file(entry.path() / "stat");
    std::string stat;
    std::getline(file, stat);
    // "pid (comm) state ppid pgrp ...": the name may hold spaces and parentheses.
    const std::size_t end = stat.rfind(')');
    if (end == std::string::npos) {
      continue;
    }
    std::istringstream fields(stat.substr(end + 1));
    char state = 0;
    long parent = 0;
    long processGroup = 0;
    if (fields >> state >> parent >> processGroup && processGroup == group && state != 'Z') {
      return true;
    }
  }
  return false;
}

}  // namespace

DaemonProcess DaemonProcess::start(const std::vector<std::string>& arguments,
                                   std::optional<int> inheritedFd) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  // A pipe that closes on a successful exec tells the parent whether the program started.
  int status[2];
  if (::pipe2(status, O_CLOEXEC) != 0) {
    throw systemError(errno, "pipe for", arguments.front());
  }
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) {
    const int error = errno;
    ::close(status[0]);
    ::close(status[1]);
    throw systemError(error, "fork for", arguments.front());
  }
  if (pid == 0) {
    // Only async-signal-safe calls from here to exec.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) {
      ::_exit(127);  // the parent is already gone
    }
    ::setpgid(0, 0);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    const int null = ::open("/dev/null", O_RDWR);
    if (null >= 0) {
      ::dup2(null, 0);
      ::dup2(null, 1);
      ::dup2(null, 2);
    }
    if (inheritedFd) {
      const int flags = ::fcntl(*inheritedFd, F_GETFD);
      ::fcntl(*inheritedFd, F_SETFD, flags & ~FD_CLOEXEC);
    }
    ::execvp(argv[0], argv.data());
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(status[1], &error, sizeof error);
    ::_exit(127);
  }
  ::close(status[1]);
  int error = 0;
  ssize_t got = 0;
  do {
    got = ::read(status[0], &error, sizeof error);
  } while (got < 0 && errno == EINTR);
  ::close(status[0]);
  if (got == sizeof error) {
    ::waitpid(pid, nullptr, 0);
    throw systemError(error, "start", arguments.front());
  }
  return DaemonProcess(pid);
}

DaemonProcess::DaemonProcess(DaemonProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)) {}

DaemonProcess& DaemonProcess::operator=(DaemonProcess&& other) noexcept {
  if (this != &other) {
    stop();
    pid_ = std::exchange(other.pid_, -1);
  }
  return *this;
}

DaemonProcess::~DaemonProcess() {
  stop();
}

bool DaemonProcess::hasExited() {
  if (pid_ <= 0) {
    return true;
  }
  if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
    pid_ = -1;
    return true;
  }
  return false;
}

void DaemonProcess::stop(std::chrono::milliseconds grace) noexcept {
  if (pid_ <= 0) {
    return;
  }
  // The whole group: a browser's renderers and helpers must go with it.
  ::kill(-pid_, SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + grace;
  bool exited = false;
  while (!exited && std::chrono::steady_clock::now() < deadline) {
    exited = ::waitpid(pid_, nullptr, WNOHANG) == pid_;
    if (!exited) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  // Whatever of the group is still there (the leader too, if it ignored SIGTERM) is killed.
  ::kill(-pid_, SIGKILL);
  if (!exited) {
    ::waitpid(pid_, nullptr, 0);
  }
  // The rest of the group (a browser's renderers) are not our children and die in their own
  // time; stopped means gone, so wait for them a little.
  const auto killDeadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  while (groupHasLiveMembers(pid_) && std::chrono::steady_clock::now() < killDeadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  pid_ = -1;
}

bool programAvailable(const std::string& program) {
  if (program.find('/') != std::string::npos) {
    return ::access(program.c_str(), X_OK) == 0;
  }
  const char* path = std::getenv("PATH");
  std::stringstream directories(path != nullptr ? path : "/usr/bin:/bin");
  std::string directory;
  while (std::getline(directories, directory, ':')) {
    if (!directory.empty() && ::access((directory + "/" + program).c_str(), X_OK) == 0) {
      return true;
    }
  }
  return false;
}

}  // namespace brimble
