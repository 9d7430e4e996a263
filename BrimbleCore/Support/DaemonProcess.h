#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace brimble {

/// A long-running helper program we start and must stop (an X server, a session bus, a window
/// manager). It runs in a process group of its own, so a Ctrl-C at the terminal reaches only us
/// and we stop it in our own order; it is told to die with the thread that started it
/// (PR_SET_PDEATHSIG), so even a killed brimble leaves nothing behind. Its standard streams are
/// /dev/null. Move-only; the destructor stops it. One thread at a time; start it from a thread
/// that lives as long as it should.
class DaemonProcess {
 public:
  /// Starts `arguments[0]` (looked up on PATH) with `arguments`. `inheritedFd`, when given, is
  /// kept open in the child under the same number. Throws std::system_error when it cannot start.
  static DaemonProcess start(const std::vector<std::string>& arguments,
                             std::optional<int> inheritedFd = std::nullopt);

  DaemonProcess() = default;
  DaemonProcess(DaemonProcess&& other) noexcept;
  DaemonProcess& operator=(DaemonProcess&& other) noexcept;
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;
  ~DaemonProcess();

  pid_t pid() const noexcept { return pid_; }
  bool running() const noexcept { return pid_ > 0; }

  /// Whether the process has ended (it is reaped then).
  bool hasExited();

  /// SIGTERM to its process group, up to `grace` for it to exit, then SIGKILL to whatever of the
  /// group is left; reaps it and waits (up to a second) until no process of the group is alive.
  /// Does nothing when not running.
  void stop(std::chrono::milliseconds grace = std::chrono::milliseconds(2000)) noexcept;

 private:
  explicit DaemonProcess(pid_t pid) : pid_(pid) {}

  pid_t pid_ = -1;
};

/// Whether `program` can be found on PATH (or is an executable path).
bool programAvailable(const std::string& program);

}  // namespace brimble
