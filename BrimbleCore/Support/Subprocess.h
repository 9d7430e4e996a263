#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {

/// Where a child's standard stream goes.
enum class StreamConnection {
  null,     // /dev/null
  pipe,     // a pipe whose other end the Subprocess holds
  inherit,  // the same file as ours
};

/// How a child is started. The defaults suit a helper we own: its own process group, every
/// standard stream on /dev/null, our environment and working directory.
struct SpawnOptions {
  StreamConnection input = StreamConnection::null;
  StreamConnection output = StreamConnection::null;
  StreamConnection errorOutput = StreamConnection::null;
  /// A process group of its own, so it and everything it starts stop together and a Ctrl-C at
  /// the terminal reaches only us. False keeps it in ours: a foreground program the terminal's
  /// Ctrl-C should reach as well.
  bool ownProcessGroup = true;
  /// SIGTERM for the child when the thread that started it ends (PR_SET_PDEATHSIG), so even a
  /// killed brimble leaves nothing behind.
  bool dieWithParent = false;
  /// A descriptor the child keeps open under the same number (to report readiness on it).
  std::optional<int> inheritedFd{};
  /// "NAME=value" entries that are added to our environment or replace its entries of that name.
  std::vector<std::string> environment{};
  /// Only `environment`, none of ours.
  bool clearEnvironment = false;
  /// Empty: ours.
  std::filesystem::path workingDirectory{};
};

/// How a process ended.
struct ExitStatus {
  int code = 0;    // its exit code when it exited
  int signal = 0;  // the signal that ended it, else 0

  /// As a shell reports it: the exit code, or 128 plus the number of the signal.
  int shellStatus() const noexcept { return signal != 0 ? 128 + signal : code; }
  bool operator==(const ExitStatus&) const = default;
};

/// A child process we started and own. The program is looked up on PATH (the child's, when
/// `environment` sets one); the child starts with default signal dispositions and an empty
/// signal mask, whatever ours are. Until it is reaped its process id (and group id) cannot be
/// reused, so signals always reach the right processes. Destroying it while it runs ends it as
/// `terminate` does. Move-only; one thread at a time.
class Subprocess {
 public:
  static constexpr std::chrono::milliseconds kDefaultGrace{2000};

  /// Starts `arguments[0]` with `arguments`. Throws std::system_error ("start <program>") when
  /// the program is not found or cannot be executed, or when no process can be made.
  static Subprocess spawn(const std::vector<std::string>& arguments,
                          const SpawnOptions& options = {});

  /// Starts a program the way a desktop launcher does: in a session of its own, not our child,
  /// so it outlives us and never lingers as our zombie. Streams can be null or inherited, not
  /// piped; the process group and die-with-parent options do not apply. Returns its process id.
  /// Throws std::system_error as `spawn` does.
  static pid_t launchDetached(const std::vector<std::string>& arguments,
                              const SpawnOptions& options = {});

  Subprocess() = default;
  Subprocess(Subprocess&& other) noexcept;
  Subprocess& operator=(Subprocess&& other) noexcept;
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;
  ~Subprocess();

  /// -1 when empty. With its own process group, this is also the group's id.
  pid_t pid() const noexcept { return pid_; }
  bool running() const noexcept { return !reaped_; }

  /// Our ends of the pipes asked for; empty otherwise. Reset them at end of file.
  UniqueFd& input() noexcept { return input_; }
  UniqueFd& output() noexcept { return output_; }
  UniqueFd& errorOutput() noexcept { return errorOutput_; }

  /// A descriptor that polls readable once the child has exited (a pidfd), or -1 where the
  /// kernel has none; then `hasExited` must be polled.
  int exitNotifier() const noexcept { return exitNotifier_.get(); }

  /// Whether the child has exited. It is not reaped, so its ids stay reserved.
  bool hasExited() const;

  /// Reaps the child, waiting for it as long as it runs. Throws std::system_error.
  ExitStatus wait();
  /// Reaps the child if it ends within `timeout`; no value otherwise.
  std::optional<ExitStatus> waitFor(std::chrono::milliseconds timeout);

  /// Sends `signal` to the child alone.
  void signal(int signal) const noexcept;

  /// Ends the child and, with its own process group, everything in that group: SIGTERM, up to
  /// `grace` for them to exit, then SIGKILL to whatever is left. Returns once none of them runs,
  /// with the child reaped. Does nothing when it was already reaped.
  ExitStatus terminate(std::chrono::milliseconds grace = kDefaultGrace);

 private:
  void terminateQuietly() noexcept;

  pid_t pid_ = -1;
  bool ownGroup_ = false;
  bool reaped_ = true;
  ExitStatus status_;
  UniqueFd exitNotifier_;
  UniqueFd input_;
  UniqueFd output_;
  UniqueFd errorOutput_;
};

/// The path `program` runs from: itself when it holds a slash, else the first executable of
/// that name in `searchPath` (a PATH value; empty means our PATH). No value when there is none.
std::optional<std::filesystem::path> findProgram(const std::string& program,
                                                 const std::string& searchPath = {});

}  // namespace brimble
