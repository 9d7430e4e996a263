#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {

/// Owns a child process that leads a process group of its own, so that it and everything it
/// starts can be stopped together. Its standard input reads /dev/null; its standard output and
/// standard error go into pipes whose read ends this object holds. Destroying it while the child
/// has not been reaped kills the whole group (SIGKILL) and reaps the child, so no process is left
/// behind. Move-only; one thread at a time.
class ChildProcessGroup {
 public:
  /// Starts `arguments[0]` (an absolute path) with `arguments`, in the environment and working
  /// directory of this process, with default signal dispositions and an empty signal mask.
  /// Throws std::system_error when it cannot be started.
  static ChildProcessGroup spawn(const std::vector<std::string>& arguments);

  ChildProcessGroup(ChildProcessGroup&& other) noexcept;
  ChildProcessGroup& operator=(ChildProcessGroup&& other) noexcept;
  ChildProcessGroup(const ChildProcessGroup&) = delete;
  ChildProcessGroup& operator=(const ChildProcessGroup&) = delete;
  ~ChildProcessGroup();

  /// The child's process id, which is also the group's id.
  pid_t pid() const noexcept { return pid_; }

  /// The read ends of the child's standard output and standard error. Close them (reset) at end
  /// of file.
  UniqueFd& output() noexcept { return output_; }
  UniqueFd& errorOutput() noexcept { return errorOutput_; }

  /// A descriptor that polls readable once the child has exited (a pidfd), or -1 where the
  /// kernel has none; then `hasExited` must be polled.
  int exitNotifier() const noexcept { return exitNotifier_.get(); }

  /// Whether the child has exited. It is not reaped, so its process group id stays reserved
  /// until `wait` or `terminateGroup`.
  bool hasExited() const;

  /// Reaps the child, waiting for it if needed, and returns its exit status as a shell reports
  /// it: the exit code, or 128 plus the number of the signal that ended it.
  int wait();

  /// Ends the whole group: SIGTERM, then up to `grace` for its processes to exit, then SIGKILL
  /// to whatever is left; reaps the child. Returns once no process of the group is running.
  void terminateGroup(std::chrono::milliseconds grace);

 private:
  ChildProcessGroup() = default;
  void killAndReap() noexcept;

  pid_t pid_ = -1;
  bool reaped_ = true;
  int status_ = 0;
  UniqueFd exitNotifier_;
  UniqueFd output_;
  UniqueFd errorOutput_;
};

}  // namespace brimble
