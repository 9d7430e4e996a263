#pragma once

#include <istream>
#include <ostream>

#include <signal.h>

#include "BrimbleCore/Support/FdStreamBuffer.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {

/// The process's standard input and output taken over for the MCP protocol. Construction keeps
/// private duplicates of descriptors 0 and 1 for protocol lines, then points descriptor 1 at
/// standard error and descriptor 0 at /dev/null, so that nothing a library or a child process
/// prints can corrupt the stream and no child can swallow requests. SIGTERM, SIGHUP and SIGINT
/// end the input (logged as "[Brimble MCP] Received SIGTERM" and so on), so a server reading
/// `input()` returns promptly; a second such signal ends the process at once. A signal that was
/// ignored when the process started (SIGHUP under nohup) stays ignored.
///
/// At most one instance per process, created and used on one thread. Throws std::system_error
/// when the descriptors cannot be set up.
class MCPStandardStreams {
 public:
  MCPStandardStreams();
  MCPStandardStreams(const MCPStandardStreams&) = delete;
  MCPStandardStreams& operator=(const MCPStandardStreams&) = delete;
  /// Restores the previous signal dispositions. Descriptors 0 and 1 stay redirected.
  ~MCPStandardStreams();

  std::istream& input() noexcept { return input_; }
  /// Ends the input as a signal would, so a reader blocked on it returns. Any thread.
  void endInput() noexcept;
  std::ostream& output() noexcept { return output_; }

 private:
  struct StopPipe {
    UniqueFd read;
    UniqueFd write;
  };
  static StopPipe makeStopPipe();
  explicit MCPStandardStreams(StopPipe stopPipe);

  UniqueFd protocolInput_;
  UniqueFd protocolOutput_;
  UniqueFd wakeRead_;
  UniqueFd wakeWrite_;
  FdInputBuffer inputBuffer_;
  FdOutputBuffer outputBuffer_;
  std::istream input_;
  std::ostream output_;
  struct sigaction previousTerm_ {};
  struct sigaction previousHup_ {};
  struct sigaction previousInt_ {};
};

}  // namespace brimble
