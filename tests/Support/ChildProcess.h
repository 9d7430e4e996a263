#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "BrimbleCore/Support/Subprocess.h"

namespace brimble::testing {

/// A program started with pipes on its standard input, output and error, for tests and
/// benchmarks that talk to a real process. Standard error is collected in the background of
/// every read, so a chatty child never blocks on a full pipe. One thread at a time; the
/// destructor ends a child that is still running, with everything it started.
class ChildProcess {
 public:
  /// Starts `arguments[0]` (looked up on PATH when it has no slash) with `arguments`. With
  /// `environment` ("NAME=value" entries) the child gets exactly that environment. Throws
  /// std::system_error when the program cannot be started.
  explicit ChildProcess(const std::vector<std::string>& arguments,
                        const std::optional<std::vector<std::string>>& environment = std::nullopt);

  pid_t pid() const noexcept { return process_.pid(); }

  /// Writes all of `bytes` to the child's standard input. False when the child closed it.
  bool write(std::string_view bytes);
  /// Closes the child's standard input: end of input for the child.
  void closeInput() { process_.input().reset(); }

  /// The next line of standard output without its "\n"; no value at end of output or when
  /// `timeout` passes first.
  std::optional<std::string> readLine(std::chrono::milliseconds timeout);
  /// Everything left on standard output until the child closes it, or until `timeout`.
  std::string readRemainingOutput(std::chrono::milliseconds timeout);
  /// What the child wrote to standard error so far (collects what is pending first).
  std::string errorOutput();
  /// Waits for `text` on standard error after where the last text found this way ended (a log
  /// line the child writes on its way); false when `timeout` passes first.
  bool waitForError(const std::string& text, std::chrono::milliseconds timeout);

  /// Sends `signal` to the child.
  void signal(int signal) { process_.signal(signal); }
  /// Waits for the child to end: its exit code, or minus the signal that ended it. No value when
  /// `timeout` passes first.
  std::optional<int> wait(std::chrono::milliseconds timeout);

 private:
  /// Reads what is available on the pipes within `timeout`; false when nothing can come any more
  /// on standard output.
  bool pump(std::chrono::milliseconds timeout);

  Subprocess process_;
  std::string outputBuffer_;
  std::string errorBuffer_;
  std::size_t errorSeen_ = 0;
};

}  // namespace brimble::testing
