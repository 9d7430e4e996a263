#include "BrimbleCore/Support/Subprocess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrimbleCore/Support/ProcessTable.h"
#include "BrimbleCore/Support/SystemError.h"

extern char** environ;

namespace brimble {
namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(5);
// After SIGKILL a process still needs to be scheduled to die; this bounds the wait for that.
constexpr auto kKillSettleLimit = std::chrono::seconds(2);

struct Pipe {
  UniqueFd read;
  UniqueFd write;
};

Pipe makePipe(const std::string& program) {
  int fds[2];
  // Close-on-exec, so that children started concurrently elsewhere never hold our ends (which
  // would keep them from reaching end of file).
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    throw systemError(errno, "create a pipe to start", program);
  }
  return {UniqueFd(fds[0]), UniqueFd(fds[1])};
}

std::string variableName(const std::string& entry) {
  return entry.substr(0, entry.find('='));
}

/// Everything the child needs, made before fork: between fork and exec only async-signal-safe
/// calls are allowed, so no allocation happens there.
struct Launch {
  std::string program;
  std::filesystem::path executable;
  std::vector<std::string> environmentStrings;
  std::vector<char*> argv;
  std::vector<char*> envp;
  const SpawnOptions& options;
  // The child's ends of its standard streams: -1 for /dev/null, else the descriptor to use.
  int streams[3] = {-1, -1, -1};
  Pipe pipes[3];

  Launch(const std::vector<std::string>& arguments, const SpawnOptions& spawnOptions)
      : program(arguments.at(0)), options(spawnOptions) {
    if (!options.clearEnvironment) {
      for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string entry(*variable);
        bool replaced = false;
        for (const std::string& override : options.environment) {
          replaced = replaced || variableName(override) == variableName(entry);
        }
        if (!replaced) {
          environmentStrings.push_back(entry);
        }
      }
    }
    std::string searchPath;
    for (const std::string& entry : options.environment) {
      environmentStrings.push_back(entry);
      if (variableName(entry) == "PATH") {
        searchPath = entry.substr(5);
      }
    }
    // A path is executed as given, so that exec tells why it cannot run (not executable, a
    // folder); a name must be found on PATH.
    const auto found = program.find('/') != std::string::npos
                           ? std::optional<std::filesystem::path>(program)
                           : findProgram(program, searchPath);
    if (!found) {
      throw systemError(ENOENT, "start", program);
    }
    executable = *found;
    for (const std::string& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    for (std::string& entry : environmentStrings) {
      envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    const StreamConnection connections[3] = {options.input, options.output, options.errorOutput};
    for (int fd = 0; fd < 3; ++fd) {
      if (connections[fd] == StreamConnection::inherit) {
        streams[fd] = fd;
      } else if (connections[fd] == StreamConnection::pipe) {
        pipes[fd] = makePipe(program);
        streams[fd] = fd == 0 ? pipes[fd].read.get() : pipes[fd].write.get();
      }
    }
  }

  /// Our end of the pipe of standard stream `fd`, if one was asked for.
  UniqueFd parentEnd(int fd) { return std::move(fd == 0 ? pipes[fd].write : pipes[fd].read); }

  /// In the child: sets everything up and executes the program; reports errno on `status` and
  /// exits when that fails. Async-signal-safe calls only.
  [[noreturn]] void execute(int status, pid_t parent, bool ownGroup, bool dieWithParent) const {
    if (dieWithParent) {
      ::prctl(PR_SET_PDEATHSIG, SIGTERM);
      if (::getppid() != parent) {
        ::_exit(127);  // the parent is already gone
      }
    }
    if (ownGroup) {
      ::setpgid(0, 0);
    }
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    // Handlers do not survive exec, but ignored signals (SIGPIPE, commonly) would stay ignored.
    struct sigaction defaults {};
    defaults.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) {
      ::sigaction(number, &defaults, nullptr);
    }
    // glibc refuses the two signals it keeps for itself (32 and 33), which a sanitizer runtime
    // may leave ignored; the kernel takes them. A zeroed kernel sigaction is SIG_DFL.
    for (int number = 32; number < SIGRTMIN; ++number) {
      const std::array<unsigned long, 4> kernelDefaults{};
      ::syscall(SYS_rt_sigaction, number, kernelDefaults.data(), nullptr, sizeof(unsigned long));
    }
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int fd = 0; fd < 3; ++fd) {
      const int source = streams[fd] >= 0 ? streams[fd] : null;
      if (source == fd) {
        ::fcntl(fd, F_SETFD, 0);  // dup2 onto itself would leave close-on-exec set
      } else if (source >= 0) {
        ::dup2(source, fd);
      }
    }
    if (options.inheritedFd) {
      ::fcntl(*options.inheritedFd, F_SETFD, 0);
    }
    if (!options.workingDirectory.empty() && ::chdir(options.workingDirectory.c_str()) != 0) {
      fail(status);
    }
    ::execve(executable.c_str(), argv.data(), envp.data());
    fail(status);
  }

  [[noreturn]] static void fail(int status) {
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(status, &error, sizeof error);
    ::_exit(127);
  }
};

/// Reads one int from `fd`; false at end of file.
bool readInt(int fd, int& value) {
  ssize_t got = 0;
  do {
    got = ::read(fd, &value, sizeof value);
  } while (got < 0 && errno == EINTR);
  return got == sizeof value;
}

void reap(pid_t pid, int* status) {
  while (::waitpid(pid, status, 0) < 0 && errno == EINTR) {
  }
}

ExitStatus exitStatus(int status) {
  if (WIFSIGNALED(status)) {
    return {0, WTERMSIG(status)};
  }
  return {WIFEXITED(status) ? WEXITSTATUS(status) : status, 0};
}

bool groupRuns(pid_t pid, bool ownGroup, const Subprocess& child) {
  return ownGroup ? liveProcessesInGroup(pid) > 0 : !child.hasExited();
}

}  // namespace

std::optional<std::filesystem::path> findProgram(const std::string& program,
                                                 const std::string& searchPath) {
  const auto runnable = [](const std::filesystem::path& file) {
    struct stat info {};
    return ::stat(file.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(file.c_str(), X_OK) == 0;
  };
  if (program.empty()) {
    return std::nullopt;
  }
  if (program.find('/') != std::string::npos) {
    return runnable(program) ? std::optional<std::filesystem::path>(program) : std::nullopt;
  }
  const char* ours = std::getenv("PATH");
  std::istringstream directories(!searchPath.empty() ? searchPath
                                 : ours != nullptr   ? ours
                                                     : "/usr/local/bin:/usr/bin:/bin");
  std::string directory;
  while (std::getline(directories, directory, ':')) {
    const std::filesystem::path candidate =
        std::filesystem::path(directory.empty() ? "." : directory) / program;
    if (runnable(candidate)) {
      return candidate;
    }
  }
  return std::nullopt;
}

Subprocess Subprocess::spawn(const std::vector<std::string>& arguments,
                             const SpawnOptions& options) {
  Launch launch(arguments, options);
  // A pipe that closes on a successful exec tells us whether the program started.
  Pipe status = makePipe(launch.program);
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) {
    throw systemError(errno, "start", launch.program);
  }
  if (pid == 0) {
    launch.execute(status.write.get(), parent, options.ownProcessGroup, options.dieWithParent);
  }
  if (options.ownProcessGroup) {
    // Also here, so that the group exists before we return, whatever the child has done yet.
    ::setpgid(pid, pid);
  }
  status.write.reset();
  int error = 0;
  if (readInt(status.read.get(), error)) {
    reap(pid, nullptr);
    throw systemError(error, "start", launch.program);
  }
  Subprocess child;
  child.pid_ = pid;
  child.ownGroup_ = options.ownProcessGroup;
  child.reaped_ = false;
  child.input_ = launch.parentEnd(0);
  child.output_ = launch.parentEnd(1);
  child.errorOutput_ = launch.parentEnd(2);
  // Where pidfds are missing (kernels before 5.3) callers fall back to polling hasExited().
  child.exitNotifier_.reset(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  return child;
}

pid_t Subprocess::launchDetached(const std::vector<std::string>& arguments,
                                 const SpawnOptions& options) {
  if (options.input == StreamConnection::pipe || options.output == StreamConnection::pipe ||
      options.errorOutput == StreamConnection::pipe) {
    throw std::invalid_argument("a detached program cannot have pipes to us");
  }
  Launch launch(arguments, options);
  // The middle process reports the program's pid on one pipe; the program reports a failed
  // exec on the other, which closes when exec succeeds. Two pipes, because the two writers race.
  Pipe report = makePipe(launch.program);
  Pipe status = makePipe(launch.program);
  const pid_t middle = ::fork();
  if (middle < 0) {
    throw systemError(errno, "start", launch.program);
  }
  if (middle == 0) {
    // The middle process exits at once, so the program is nobody's child and init reaps it.
    ::setsid();
    const pid_t launched = ::fork();
    if (launched != 0) {
      const int message = launched > 0 ? launched : -errno;
      [[maybe_unused]] const ssize_t written =
          ::write(report.write.get(), &message, sizeof message);
      ::_exit(0);
    }
    launch.execute(status.write.get(), 0, false, false);
  }
  report.write.reset();
  status.write.reset();
  reap(middle, nullptr);
  int pid = 0;
  if (!readInt(report.read.get(), pid)) {
    throw systemError(ECHILD, "start", launch.program);
  }
  if (pid < 0) {
    throw systemError(-pid, "start", launch.program);
  }
  int error = 0;
  if (readInt(status.read.get(), error)) {
    throw systemError(error, "start", launch.program);
  }
  return pid;
}

Subprocess::Subprocess(Subprocess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      ownGroup_(other.ownGroup_),
      reaped_(std::exchange(other.reaped_, true)),
      status_(other.status_),
      exitNotifier_(std::move(other.exitNotifier_)),
      input_(std::move(other.input_)),
      output_(std::move(other.output_)),
      errorOutput_(std::move(other.errorOutput_)) {}

Subprocess& Subprocess::operator=(Subprocess&& other) noexcept {
  if (this != &other) {
    terminateQuietly();
    pid_ = std::exchange(other.pid_, -1);
    ownGroup_ = other.ownGroup_;
    reaped_ = std::exchange(other.reaped_, true);
    status_ = other.status_;
    exitNotifier_ = std::move(other.exitNotifier_);
    input_ = std::move(other.input_);
    output_ = std::move(other.output_);
    errorOutput_ = std::move(other.errorOutput_);
  }
  return *this;
}

Subprocess::~Subprocess() {
  terminateQuietly();
}

void Subprocess::terminateQuietly() noexcept {
  try {
    terminate();
  } catch (...) {
    // Nothing more can be done for a child we cannot wait for.
  }
}

bool Subprocess::hasExited() const {
  if (reaped_) {
    return true;
  }
  siginfo_t info{};
  // WNOWAIT leaves the child a zombie, which keeps its ids reserved.
  while (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) < 0) {
    if (errno != EINTR) {
      throw systemError(errno, "wait for process", std::to_string(pid_));
    }
  }
  return info.si_pid == pid_;
}

ExitStatus Subprocess::wait() {
  if (!reaped_) {
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0) {
      if (errno != EINTR) {
        throw systemError(errno, "wait for process", std::to_string(pid_));
      }
    }
    reaped_ = true;
    status_ = exitStatus(status);
  }
  return status_;
}

std::optional<ExitStatus> Subprocess::waitFor(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!hasExited()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      return std::nullopt;
    }
    if (exitNotifier_) {
      pollfd exited{exitNotifier_.get(), POLLIN, 0};
      ::poll(&exited, 1, static_cast<int>(left.count()));
    } else {
      std::this_thread::sleep_for(std::min<std::chrono::milliseconds>(left, kPollInterval));
    }
  }
  return wait();
}

void Subprocess::signal(int signal) const noexcept {
  if (!reaped_) {
    ::kill(pid_, signal);
  }
}

ExitStatus Subprocess::terminate(std::chrono::milliseconds grace) {
  if (reaped_) {
    return status_;
  }
  // Until the child is reaped its group id cannot have been reused by anyone else.
  const pid_t target = ownGroup_ ? -pid_ : pid_;
  const auto waitWhileRunning = [&](std::chrono::steady_clock::duration limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (groupRuns(pid_, ownGroup_, *this) && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(kPollInterval);
    }
  };
  ::kill(target, SIGTERM);
  waitWhileRunning(grace);
  ::kill(target, SIGKILL);
  waitWhileRunning(kKillSettleLimit);
  return wait();
}

}  // namespace brimble
