#include "BrimbleCore/MCP/MCPStandardStreams.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "BrimbleCore/Support/SystemError.h"

namespace brimble {
namespace {

// Read by the signal handler, which can reach no object.
volatile sig_atomic_t gWakeFd = -1;
volatile sig_atomic_t gStopSignal = 0;

void writeAll(int fd, const char* text) noexcept {
  std::size_t length = std::strlen(text);
  while (length > 0) {
    const ssize_t written = ::write(fd, text, length);
    if (written <= 0) {
      return;
    }
    text += written;
    length -= static_cast<std::size_t>(written);
  }
}

// Async-signal-safe: write(2), signal(2), raise(3) and plain stores only.
void onStopSignal(int signal) {
  const int savedErrno = errno;
  if (gStopSignal != 0) {
    // Asked twice: the server is stuck in a request, so stop the hard way.
    ::signal(signal, SIG_DFL);
    ::raise(signal);
    return;
  }
  gStopSignal = signal;
  const char* message = signal == SIGTERM  ? "[Brimble MCP] Received SIGTERM\n"
                        : signal == SIGHUP ? "[Brimble MCP] Received SIGHUP\n"
                                           : "[Brimble MCP] Received SIGINT\n";
  writeAll(STDERR_FILENO, message);
  if (gWakeFd >= 0) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(gWakeFd, &byte, 1);
  }
  errno = savedErrno;
}

UniqueFd duplicatePrivately(int fd, const char* name) {
  UniqueFd copy(::fcntl(fd, F_DUPFD_CLOEXEC, 3));
  if (!copy) {
    throw systemError(errno, "could not duplicate", name);
  }
  return copy;
}

void redirect(int from, int onto, const char* name) {
  if (::dup2(from, onto) < 0) {
    throw systemError(errno, "could not redirect", name);
  }
}

}  // namespace

MCPStandardStreams::StopPipe MCPStandardStreams::makeStopPipe() {
  int ends[2];
  // Non-blocking, so the signal handler can never block on a full pipe.
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0) {
    throw systemError(errno, "could not create", "the stop pipe");
  }
  return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

MCPStandardStreams::MCPStandardStreams() : MCPStandardStreams(makeStopPipe()) {}

MCPStandardStreams::MCPStandardStreams(StopPipe stopPipe)
    : protocolInput_(duplicatePrivately(STDIN_FILENO, "standard input")),
      protocolOutput_(duplicatePrivately(STDOUT_FILENO, "standard output")),
      wakeRead_(std::move(stopPipe.read)),
      wakeWrite_(std::move(stopPipe.write)),
      inputBuffer_(protocolInput_.get(), wakeRead_.get()),
      outputBuffer_(protocolOutput_.get()),
      input_(&inputBuffer_),
      output_(&outputBuffer_) {
  redirect(STDERR_FILENO, STDOUT_FILENO, "standard output to standard error");
  // Anything printed before this point must not reach the protocol stream either.
  std::fflush(stdout);
  const UniqueFd devNull(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  if (!devNull) {
    throw systemError(errno, "could not open", "/dev/null");
  }
  redirect(devNull.get(), STDIN_FILENO, "standard input from /dev/null");

  gStopSignal = 0;
  gWakeFd = wakeWrite_.get();
  struct sigaction action {};
  action.sa_handler = onStopSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (const auto& [signal, previous] :
       {std::pair{SIGTERM, &previousTerm_}, std::pair{SIGHUP, &previousHup_},
        std::pair{SIGINT, &previousInt_}}) {
    ::sigaction(signal, nullptr, previous);
    // A signal ignored at start stays ignored, as under nohup.
    if (previous->sa_handler != SIG_IGN) {
      ::sigaction(signal, &action, nullptr);
    }
  }
}

MCPStandardStreams::~MCPStandardStreams() {
  ::sigaction(SIGTERM, &previousTerm_, nullptr);
  ::sigaction(SIGHUP, &previousHup_, nullptr);
  ::sigaction(SIGINT, &previousInt_, nullptr);
  gWakeFd = -1;
  output_.flush();
}

void MCPStandardStreams::endInput() noexcept {
  const char byte = 0;
  [[maybe_unused]] const ssize_t ignored = ::write(wakeWrite_.get(), &byte, 1);
}

}  // namespace brimble
