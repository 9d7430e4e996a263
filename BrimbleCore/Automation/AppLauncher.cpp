#include "BrimbleCore/Automation/AppLauncher.h"

#include <cerrno>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrimbleCore/Support/DaemonProcess.h"
#include "BrimbleCore/Support/SystemError.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {
namespace {

/// Reads one int from `fd`; false at end of file.
bool readInt(int fd, int& value) {
  ssize_t got = 0;
  do {
    got = ::read(fd, &value, sizeof value);
  } while (got < 0 && errno == EINTR);
  return got == sizeof value;
}

}  // namespace

bool DetachedAppLauncher::isInstalled(const std::string& program) const {
  return programAvailable(program);
}

int DetachedAppLauncher::launch(const std::string& program) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    throw systemError(errno, "pipe for", program);
  }
  UniqueFd reportRead(fds[0]);
  UniqueFd reportWrite(fds[1]);
  char* argv[] = {const_cast<char*>(program.c_str()), nullptr};
  const pid_t child = ::fork();
  if (child < 0) {
    throw systemError(errno, "fork for", program);
  }
  if (child == 0) {
    // Only async-signal-safe calls from here to exec. The middle process reports the program's
    // pid and exits at once, so the program is nobody's child and init reaps it.
    ::setsid();
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    struct sigaction defaults {};
    defaults.sa_handler = SIG_DFL;
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGCHLD}) {
      ::sigaction(number, &defaults, nullptr);
    }
    const pid_t launched = ::fork();
    if (launched != 0) {
      const int report = launched > 0 ? launched : -errno;
      [[maybe_unused]] const ssize_t written = ::write(reportWrite.get(), &report, sizeof report);
      ::_exit(0);
    }
    const int null = ::open("/dev/null", O_RDWR);
    if (null >= 0) {
      ::dup2(null, 0);
      ::dup2(null, 1);
      ::dup2(null, 2);
    }
    ::execvp(argv[0], argv);
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(reportWrite.get(), &error, sizeof error);
    ::_exit(127);
  }
  reportWrite.reset();
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  int pid = 0;
  if (!readInt(reportRead.get(), pid)) {
    throw systemError(ECHILD, "start", program);
  }
  if (pid < 0) {
    throw systemError(-pid, "fork for", program);
  }
  // The pipe closes on a successful exec; an errno arrives when exec failed.
  int error = 0;
  if (readInt(reportRead.get(), error)) {
    throw systemError(error, "start", program);
  }
  return pid;
}

}  // namespace brimble
