#include "BrimbleCore/Scripting/ScriptTerminalText.h"

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/SystemError.h"

namespace brimble {
namespace {

constexpr std::size_t kLogReadChunk = 64 * 1024;
// A look reads at most this much; what a program wrote beyond it is read at the next look, so a
// look stays short while `cat` pours out a huge file.
constexpr std::uint64_t kMostPerLook = 64ull * 1024 * 1024;
// The part of a log already read is handed back to the file system in pieces this big, so a
// terminal that prints for a long time does not fill the temporary folder.
constexpr std::uint64_t kReleaseStep = 4ull * 1024 * 1024;

}  // namespace

ScriptTerminalText::~ScriptTerminalText() {
  terminals_.clear();
  if (!folder_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
}

std::filesystem::path ScriptTerminalText::newLog() {
  if (folder_.empty()) {
    std::string pattern = (temporaryDirectory() / "brimble-terminals-XXXXXX").string();
    // mkdtemp makes the folder for our user alone: what a terminal shows may be private.
    if (::mkdtemp(pattern.data()) == nullptr) {
      throw systemError(errno, "create", pattern);
    }
    folder_ = pattern;
  }
  const std::filesystem::path log = folder_ / ("terminal-" + std::to_string(++logsMade_) + ".log");
  // The terminal appends to the file; it exists, empty, before the terminal starts.
  const UniqueFd file(::open(log.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) {
    throw systemError(errno, "create", log);
  }
  return log;
}

void ScriptTerminalText::follow(std::uint32_t window, const std::filesystem::path& log, int columns,
                                int rows) {
  // Read and write: the part already read is given back to the file system (see screen).
  UniqueFd file(::open(log.c_str(), O_RDWR | O_CLOEXEC));
  if (!file) {
    throw systemError(errno, "open", log);
  }
  terminals_.erase(window);
  Terminal& terminal =
      terminals_
          .emplace(window, Terminal{log, std::move(file), 0, 0, TerminalTranscript(columns, rows)})
          .first->second;
  followSize(window, terminal);
}

void ScriptTerminalText::followSize(std::uint32_t window, Terminal& terminal) {
  try {
    if (auto told = windows_.sizeSteps(window)) {
      terminal.steps = told;
    }
    const std::optional<WindowSizeSteps>& steps = terminal.steps;
    const auto shown = windows_.find(window);
    if (!steps || !shown) {
      return;
    }
    const int columns = (shown->contentFrame.width - steps->baseWidth) / steps->stepWidth;
    const int rows = (shown->contentFrame.height - steps->baseHeight) / steps->stepHeight;
    if (columns > 0 && rows > 0) {
      terminal.transcript.resize(columns, rows);
    }
  } catch (const std::exception&) {
    // A window that cannot be asked keeps the size it had: its text is still worth reading.
  }
}

const TerminalTranscript& ScriptTerminalText::screen(std::uint32_t window) {
  Terminal& terminal = terminals_.at(window);
  // The text since the last look went to the terminal at its size now (it may have been
  // resized since the last look): the nearest there is to the size it had when it came.
  followSize(window, terminal);
  std::vector<std::uint8_t> buffer(kLogReadChunk);
  std::uint64_t read = 0;
  while (read < kMostPerLook) {
    const std::size_t got = readAt(terminal.file.get(), buffer, terminal.offset, terminal.log);
    if (got == 0) {
      break;
    }
    terminal.transcript.write(std::string_view(reinterpret_cast<const char*>(buffer.data()), got));
    terminal.offset += got;
    read += got;
    if (got < buffer.size()) {
      break;
    }
  }
  if (terminal.offset - terminal.released >= kReleaseStep) {
    // The terminal appends, so the file keeps its length (and our offsets stay valid) while the
    // blocks behind the offset are freed. A file system that cannot punch holes keeps them.
    const std::uint64_t upTo = terminal.offset / kReleaseStep * kReleaseStep;
    if (::fallocate(terminal.file.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0,
                    static_cast<off_t>(upTo)) == 0) {
      terminal.released = upTo;
    } else {
      terminal.released = terminal.offset;  // no use asking again for every look
    }
  }
  return terminal.transcript;
}

}  // namespace brimble
