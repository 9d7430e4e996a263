#include "BrimbleCore/Support/ChildProcessGroup.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrimbleCore/Support/SystemError.h"

extern char** environ;

namespace brimble {
namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(5);
// After SIGKILL a process still needs to be scheduled to die; this bounds the wait for that.
constexpr auto kKillSettleLimit = std::chrono::seconds(2);

// Owns the attributes and file actions of posix_spawn for the duration of one call.
class SpawnSetup {
 public:
  SpawnSetup() {
    posix_spawnattr_init(&attributes_);
    posix_spawn_file_actions_init(&actions_);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;
  SpawnSetup(SpawnSetup&&) = delete;
  SpawnSetup& operator=(SpawnSetup&&) = delete;
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  posix_spawnattr_t* attributes() noexcept { return &attributes_; }
  posix_spawn_file_actions_t* actions() noexcept { return &actions_; }

 private:
  posix_spawnattr_t attributes_{};
  posix_spawn_file_actions_t actions_{};
};

struct Pipe {
  UniqueFd read;
  UniqueFd write;
};

Pipe makePipe() {
  int fds[2];
  // Close-on-exec, so that children started concurrently elsewhere never hold our write ends
  // (which would keep them from reaching end of file).
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    throw systemError(errno, "create a pipe for", "/bin/sh");
  }
  return {UniqueFd(fds[0]), UniqueFd(fds[1])};
}

int shellStatus(int status) {
  if (WIFEXITED(status)) {
    return WEXITSTATUS(status);
  }
  if (WIFSIGNALED(status)) {
    return 128 + WTERMSIG(status);
  }
  return status;
}

// Field 3 of /proc/<pid>/stat is the state and field 5 the process group; the command name
// before them is in parentheses and may itself contain spaces and parentheses.
bool runsInGroup(const std::filesystem::path& statFile, pid_t group) {
  std::ifstream in(statFile);
  std::string stat;
  if (!std::getline(in, stat)) {
    return false;
  }
  const std::size_t close = stat.rfind(')');
  if (close == std::string::npos || close + 2 >= stat.size()) {
    return false;
  }
  const char state = stat[close + 2];
  if (state == 'Z' || state == 'X') {
    return false;
  }
  int parent = 0;
  int processGroup = 0;
  if (std::sscanf(stat.c_str() + close + 3, "%d %d", &parent, &processGroup) != 2) {
    return false;
  }
  return processGroup == group;
}

bool processGroupHasRunningMembers(pid_t group) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename().string();
    if (!name.empty() && name.find_first_not_of("0123456789") == std::string::npos &&
        runsInGroup(entry.path() / "stat", group)) {
      return true;
    }
  }
  return false;
}

void waitWhileGroupRuns(pid_t group, std::chrono::steady_clock::duration limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (processGroupHasRunningMembers(group) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kPollInterval);
  }
}

}  // namespace

ChildProcessGroup ChildProcessGroup::spawn(const std::vector<std::string>& arguments) {
  Pipe output = makePipe();
  Pipe errorOutput = makePipe();

  SpawnSetup setup;
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(setup.attributes(), &signals);
  // Signals this process ignores (SIGPIPE, commonly) would stay ignored in the child.
  sigfillset(&signals);
  posix_spawnattr_setsigdefault(setup.attributes(), &signals);
  posix_spawnattr_setpgroup(setup.attributes(), 0);
  posix_spawnattr_setflags(setup.attributes(),
                           POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  posix_spawn_file_actions_addopen(setup.actions(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(setup.actions(), output.write.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(setup.actions(), errorOutput.write.get(), STDERR_FILENO);

  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);

  ChildProcessGroup child;
  const int error =
      posix_spawn(&child.pid_, argv[0], setup.actions(), setup.attributes(), argv.data(), environ);
  if (error != 0) {
    child.pid_ = -1;
    throw systemError(error, "start", arguments.front());
  }
  child.reaped_ = false;
  child.output_ = std::move(output.read);
  child.errorOutput_ = std::move(errorOutput.read);
  // Where pidfds are missing (kernels before 5.3) callers fall back to polling hasExited().
  child.exitNotifier_.reset(static_cast<int>(::syscall(SYS_pidfd_open, child.pid_, 0)));
  return child;
}

ChildProcessGroup::ChildProcessGroup(ChildProcessGroup&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      reaped_(std::exchange(other.reaped_, true)),
      status_(other.status_),
      exitNotifier_(std::move(other.exitNotifier_)),
      output_(std::move(other.output_)),
      errorOutput_(std::move(other.errorOutput_)) {}

ChildProcessGroup& ChildProcessGroup::operator=(ChildProcessGroup&& other) noexcept {
  if (this != &other) {
    killAndReap();
    pid_ = std::exchange(other.pid_, -1);
    reaped_ = std::exchange(other.reaped_, true);
    status_ = other.status_;
    exitNotifier_ = std::move(other.exitNotifier_);
    output_ = std::move(other.output_);
    errorOutput_ = std::move(other.errorOutput_);
  }
  return *this;
}

ChildProcessGroup::~ChildProcessGroup() {
  killAndReap();
}

void ChildProcessGroup::killAndReap() noexcept {
  if (reaped_) {
    return;
  }
  // The child is not reaped yet, so the group id cannot have been reused by anyone else.
  ::kill(-pid_, SIGKILL);
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  reaped_ = true;
}

bool ChildProcessGroup::hasExited() const {
  if (reaped_) {
    return true;
  }
  siginfo_t info{};
  // WNOWAIT leaves the child a zombie, which keeps its process group id reserved.
  while (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) < 0) {
    if (errno != EINTR) {
      throw systemError(errno, "wait for process", std::to_string(pid_));
    }
  }
  return info.si_pid == pid_;
}

int ChildProcessGroup::wait() {
  if (!reaped_) {
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0) {
      if (errno != EINTR) {
        throw systemError(errno, "wait for process", std::to_string(pid_));
      }
    }
    reaped_ = true;
    status_ = shellStatus(status);
  }
  return status_;
}

void ChildProcessGroup::terminateGroup(std::chrono::milliseconds grace) {
  if (reaped_) {
    return;
  }
  ::kill(-pid_, SIGTERM);
  waitWhileGroupRuns(pid_, grace);
  ::kill(-pid_, SIGKILL);
  waitWhileGroupRuns(pid_, kKillSettleLimit);
  wait();
}

}  // namespace brimble
