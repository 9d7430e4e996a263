#include "BrimbleCore/Diagnostics/CrashHandler.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <execinfo.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include "BrimbleCore/Support/Log.h"

namespace brimble::crashHandler {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

// Everything below runs inside a signal handler, after a fault that may have left the heap, a
// lock or a stream half-changed: no allocation, no stdio, no locks, only system calls and the
// fixed buffers of `state`, which is prepared before any crash and never freed.

constexpr std::array<int, 5> kFatalSignals = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr int kMaxFrames = 64;
constexpr int kMaxModules = 24;
constexpr std::size_t kPathBytes = 4096;
// Symbolizing reads the debug information of every module on the stack, which takes a second
// or two for a large binary; a hung symbolizer must not keep a crashed process alive.
constexpr long kSymbolizerMilliseconds = 20000;

struct Module {
  std::array<char, kPathBytes> path{};
  bool replaced = false;  // the file was deleted or replaced since it was loaded
};

struct Frame {
  std::uintptr_t address = 0;
  int module = -1;
  std::uintptr_t relative = 0;
  const char* symbols = nullptr;  // addr2line's lines for this frame, inside symbolOutput
  std::size_t symbolsLength = 0;
};

struct HandlerState {
  std::array<char, kPathBytes> folder{};
  std::array<char, 64> program{};
  std::array<char, 8192> head{};  // "Program: ...\nVersion: ...\nCommand: ...\n"
  std::size_t headLength = 0;
  std::array<char, kPathBytes> symbolizer{};  // empty when none was found
  std::array<void*, kMaxFrames> returnAddresses{};
  std::array<Frame, kMaxFrames> frames{};
  int frameCount = 0;
  std::array<Module, kMaxModules> modules{};
  int moduleCount = 0;
  std::array<char, kPathBytes + 256> mapsLine{};
  std::array<char, kPathBytes> mapsPath{};
  std::array<char, 8192> chunk{};
  std::array<char, 192 * 1024> symbolOutput{};
  std::size_t symbolUsed = 0;
  std::array<std::array<char, 24>, kMaxFrames> addressTexts{};
  std::array<char*, kMaxFrames + 12> arguments{};
  std::array<char, 16 * 1024> logLines{};
  std::array<char, kPathBytes + 128> reportPath{};
  std::array<char, 64 * 1024> alternateStack{};
};

HandlerState state;

std::size_t length(const char* text) noexcept {
  std::size_t n = 0;
  while (text[n] != '\0') {
    ++n;
  }
  return n;
}

// Appends to a fixed buffer, cutting what does not fit; always NUL-terminated.
class Text {
 public:
  Text(char* buffer, std::size_t capacity) noexcept : buffer_(buffer), capacity_(capacity) {
    buffer_[0] = '\0';
  }
  Text& add(const char* text, std::size_t count) noexcept {
    for (std::size_t i = 0; i < count && used_ + 1 < capacity_; ++i) {
      buffer_[used_++] = text[i];
    }
    buffer_[used_] = '\0';
    return *this;
  }
  Text& add(const char* text) noexcept { return add(text, length(text)); }
  Text& decimal(std::uint64_t value, int minimumDigits = 1) noexcept {
    std::array<char, 24> digits{};
    int count = 0;
    do {
      digits[count++] = static_cast<char>('0' + value % 10);
      value /= 10;
    } while (value != 0 || count < minimumDigits);
    while (count > 0) {
      add(&digits[--count], 1);
    }
    return *this;
  }
  Text& hex(std::uint64_t value) noexcept {
    std::array<char, 20> digits{};
    int count = 0;
    do {
      digits[count++] = "0123456789abcdef"[value % 16];
      value /= 16;
    } while (value != 0);
    add("0x", 2);
    while (count > 0) {
      add(&digits[--count], 1);
    }
    return *this;
  }
  std::size_t size() const noexcept { return used_; }

 private:
  char* buffer_;
  std::size_t capacity_;
  std::size_t used_ = 0;
};

void writeAll(int fd, const char* bytes, std::size_t count) noexcept {
  while (fd >= 0 && count > 0) {
    const ssize_t written = ::write(fd, bytes, count);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return;
    }
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
}

// The report's lines, a small buffer at a time.
class ReportWriter {
 public:
  explicit ReportWriter(int fd) noexcept : fd_(fd), text_(buffer_.data(), buffer_.size()) {}
  ReportWriter(const ReportWriter&) = delete;
  ReportWriter& operator=(const ReportWriter&) = delete;
  ~ReportWriter() { flush(); }

  Text& line() noexcept {
    flush();
    return text_;
  }
  void raw(const char* bytes, std::size_t count) noexcept {
    flush();
    writeAll(fd_, bytes, count);
  }
  void flush() noexcept {
    writeAll(fd_, buffer_.data(), text_.size());
    text_ = Text(buffer_.data(), buffer_.size());
  }

 private:
  int fd_;
  std::array<char, kPathBytes + 256> buffer_{};
  Text text_;
};

const char* signalName(int signal) noexcept {
  switch (signal) {
    case SIGSEGV:
      return "SIGSEGV";
    case SIGBUS:
      return "SIGBUS";
    case SIGFPE:
      return "SIGFPE";
    case SIGILL:
      return "SIGILL";
    case SIGABRT:
      return "SIGABRT";
    default:
      return "signal";
  }
}

struct CivilTime {
  std::int64_t year;
  unsigned month, day, hour, minute, second;
};

// gmtime_r may take a lock for the time zone; this is the proleptic Gregorian arithmetic alone.
CivilTime civilTime(std::int64_t seconds) noexcept {
  std::int64_t days = seconds / 86400;
  std::int64_t ofDay = seconds % 86400;
  if (ofDay < 0) {
    ofDay += 86400;
    --days;
  }
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
  const unsigned yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const unsigned monthFromMarch = (5 * dayOfYear + 2) / 153;
  const unsigned day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
  const unsigned month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
  const std::int64_t year = static_cast<std::int64_t>(yearOfEra) + era * 400 + (month <= 2);
  return {year,
          month,
          day,
          static_cast<unsigned>(ofDay / 3600),
          static_cast<unsigned>(ofDay / 60 % 60),
          static_cast<unsigned>(ofDay % 60)};
}

std::uintptr_t programCounter(void* context) noexcept {
  const auto* machine = static_cast<const ucontext_t*>(context);
#if defined(__x86_64__)
  return static_cast<std::uintptr_t>(machine->uc_mcontext.gregs[REG_RIP]);
#elif defined(__aarch64__)
  return static_cast<std::uintptr_t>(machine->uc_mcontext.pc);
#else
  (void)machine;
  return 0;
#endif
}

// The interrupted code's frames: the unwinder walks through the handler and the kernel's signal
// frame, which the report leaves out by starting at the interrupted instruction.
void collectFrames(void* context) noexcept {
  const int count = ::backtrace(state.returnAddresses.data(), kMaxFrames);
  const std::uintptr_t pc = context != nullptr ? programCounter(context) : 0;
  int first = 0;
  for (int i = 0; i < count; ++i) {
    if (reinterpret_cast<std::uintptr_t>(state.returnAddresses[i]) == pc) {
      first = i;
      break;
    }
  }
  state.frameCount = 0;
  for (int i = first; i < count; ++i) {
    state.frames[state.frameCount++] =
        Frame{reinterpret_cast<std::uintptr_t>(state.returnAddresses[i])};
  }
}

bool parseHex(const char*& cursor, std::uintptr_t& value) noexcept {
  value = 0;
  const char* start = cursor;
  while (true) {
    const char c = *cursor;
    if (c >= '0' && c <= '9') {
      value = value * 16 + static_cast<std::uintptr_t>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      value = value * 16 + static_cast<std::uintptr_t>(c - 'a' + 10);
    } else {
      break;
    }
    ++cursor;
  }
  return cursor != start;
}

void skipField(const char*& cursor) noexcept {
  while (*cursor != ' ' && *cursor != '\0') {
    ++cursor;
  }
  while (*cursor == ' ') {
    ++cursor;
  }
}

int moduleFor(const char* path) noexcept {
  for (int i = 0; i < state.moduleCount; ++i) {
    if (std::strcmp(state.modules[i].path.data(), path) == 0) {
      return i;
    }
  }
  if (state.moduleCount == kMaxModules) {
    return -1;
  }
  Module& module = state.modules[state.moduleCount];
  Text(module.path.data(), module.path.size()).add(path);
  constexpr const char* kDeleted = " (deleted)";
  const std::size_t size = length(path);
  module.replaced =
      size > length(kDeleted) && std::strcmp(path + size - length(kDeleted), kDeleted) == 0;
  return state.moduleCount++;
}

// One line of /proc/self/maps: "start-end perms offset dev inode path". The module's load base
// is taken from its first mapping (the ELF header at file offset 0), so relative addresses are
// what the symbolizer expects of a shared object or a position-independent executable.
std::uintptr_t currentBase = 0;
void readMapsLine(const char* line) noexcept {
  const char* cursor = line;
  std::uintptr_t start = 0;
  std::uintptr_t end = 0;
  std::uintptr_t offset = 0;
  if (!parseHex(cursor, start) || *cursor++ != '-' || !parseHex(cursor, end) || *cursor != ' ') {
    return;
  }
  ++cursor;
  const char* permissions = cursor;
  skipField(cursor);
  if (!parseHex(cursor, offset)) {
    return;
  }
  skipField(cursor);  // offset's end
  skipField(cursor);  // device
  skipField(cursor);  // inode
  if (*cursor != '/') {
    return;
  }
  if (std::strcmp(cursor, state.mapsPath.data()) != 0) {
    Text(state.mapsPath.data(), state.mapsPath.size()).add(cursor);
    currentBase = start - offset;
    // A fixed-address executable is symbolized by absolute address.
    if (offset == 0 && permissions[0] == 'r') {
      const auto* header = reinterpret_cast<const unsigned char*>(start);
      if (header[0] == 0x7f && header[1] == 'E' && header[16] == 2 && header[17] == 0) {
        currentBase = 0;
      }
    }
  }
  if (permissions[2] != 'x') {
    return;
  }
  for (int i = 0; i < state.frameCount; ++i) {
    Frame& frame = state.frames[i];
    if (frame.module < 0 && frame.address >= start && frame.address < end) {
      frame.module = moduleFor(cursor);
      frame.relative = frame.address - currentBase;
    }
  }
}

void resolveModules() noexcept {
  state.moduleCount = 0;
  state.mapsPath[0] = '\0';
  const int fd = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return;
  }
  std::size_t lineLength = 0;
  while (true) {
    const ssize_t count = ::read(fd, state.chunk.data(), state.chunk.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      break;
    }
    for (ssize_t i = 0; i < count; ++i) {
      const char c = state.chunk[i];
      if (c == '\n') {
        state.mapsLine[lineLength] = '\0';
        readMapsLine(state.mapsLine.data());
        lineLength = 0;
      } else if (lineLength + 1 < state.mapsLine.size()) {
        state.mapsLine[lineLength++] = c;
      }
    }
  }
  ::close(fd);
}

long millisecondsNow() noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

// Runs addr2line on one module's frames and hands each frame its lines of the output. A child
// process, since reading debug information needs memory and libraries this process can no
// longer trust; started by the raw system call, because fork(3) runs the program's fork handlers
// and takes the allocator's locks, which the crash may hold.
void symbolizeModule(int module, long deadline) noexcept {
  int given = 0;
  std::array<int, kMaxFrames> order{};
  std::size_t argument = 0;
  static char option[] = "-Cfipa";
  static char executableOption[] = "-e";
  state.arguments[argument++] = state.symbolizer.data();
  state.arguments[argument++] = option;
  state.arguments[argument++] = executableOption;
  state.arguments[argument++] = state.modules[module].path.data();
  for (int i = 0; i < state.frameCount; ++i) {
    const Frame& frame = state.frames[i];
    if (frame.module != module) {
      continue;
    }
    // A return address points after the call; the call is the line the frame was at.
    const std::uintptr_t address = frame.relative - (i > 0 ? 1 : 0);
    Text(state.addressTexts[given].data(), state.addressTexts[given].size()).hex(address);
    state.arguments[argument++] = state.addressTexts[given].data();
    order[given++] = i;
  }
  state.arguments[argument] = nullptr;
  if (given == 0) {
    return;
  }
  std::array<int, 2> pipeEnds{};
  if (::pipe2(pipeEnds.data(), O_CLOEXEC) != 0) {
    return;
  }
  const long child = ::syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0);
  if (child == 0) {
    ::dup2(pipeEnds[1], STDOUT_FILENO);
    const int nothing = ::open("/dev/null", O_RDWR);
    ::dup2(nothing, STDIN_FILENO);
    ::dup2(nothing, STDERR_FILENO);
    static char locale[] = "LC_ALL=C";
    static std::array<char*, 2> environment = {locale, nullptr};
    ::execve(state.symbolizer.data(), state.arguments.data(), environment.data());
    ::_exit(127);
  }
  ::close(pipeEnds[1]);
  if (child < 0) {
    ::close(pipeEnds[0]);
    return;
  }
  const std::size_t outputStart = state.symbolUsed;
  std::array<char, 512> overflow{};
  while (true) {
    const long remaining = deadline - millisecondsNow();
    if (remaining <= 0) {
      break;
    }
    pollfd readable{pipeEnds[0], POLLIN, 0};
    const int ready = ::poll(&readable, 1, static_cast<int>(remaining));
    if (ready < 0 && errno == EINTR) {
      continue;
    }
    if (ready <= 0) {
      break;
    }
    const std::size_t room = state.symbolOutput.size() - state.symbolUsed;
    char* target = room > 0 ? state.symbolOutput.data() + state.symbolUsed : overflow.data();
    const ssize_t count = ::read(pipeEnds[0], target, room > 0 ? room : overflow.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      break;
    }
    if (room > 0) {
      state.symbolUsed += static_cast<std::size_t>(count);
    }
  }
  ::close(pipeEnds[0]);
  int status = 0;
  if (::waitpid(static_cast<pid_t>(child), &status, WNOHANG) == 0) {
    ::kill(static_cast<pid_t>(child), SIGKILL);
    ::waitpid(static_cast<pid_t>(child), &status, 0);
  }
  // With -a each frame's block starts with its address ("0x...: name at file:line"), followed by
  // " (inlined by) ..." lines for the functions inlined there.
  int block = -1;
  for (std::size_t at = outputStart; at < state.symbolUsed;) {
    std::size_t end = at;
    while (end < state.symbolUsed && state.symbolOutput[end] != '\n') {
      ++end;
    }
    const char* lineStart = state.symbolOutput.data() + at;
    if (end - at > 2 && lineStart[0] == '0' && lineStart[1] == 'x') {
      ++block;
      if (block < given) {
        state.frames[order[block]].symbols = lineStart;
      }
    }
    if (block >= 0 && block < given) {
      Frame& frame = state.frames[order[block]];
      frame.symbolsLength =
          static_cast<std::size_t>(state.symbolOutput.data() + end - frame.symbols);
    }
    at = end + 1;
  }
}

void symbolize() noexcept {
  state.symbolUsed = 0;
  if (state.symbolizer[0] == '\0') {
    return;
  }
  const long deadline = millisecondsNow() + kSymbolizerMilliseconds;
  for (int module = 0; module < state.moduleCount; ++module) {
    if (!state.modules[module].replaced) {
      symbolizeModule(module, deadline);
    }
  }
}

void writeFrames(ReportWriter& report) noexcept {
  report.line().add("\nBacktrace:\n");
  for (int i = 0; i < state.frameCount; ++i) {
    const Frame& frame = state.frames[i];
    Text& line = report.line().add("#").decimal(static_cast<std::uint64_t>(i)).add(" ");
    if (frame.module < 0) {
      line.hex(frame.address).add(" ??\n");
      continue;
    }
    line.add(state.modules[frame.module].path.data()).add("+").hex(frame.relative).add("\n");
    // addr2line's lines, without the address that starts the block.
    const char* cursor = frame.symbols;
    const char* end = frame.symbols + frame.symbolsLength;
    if (cursor != nullptr) {
      while (cursor < end && *cursor != ' ') {
        ++cursor;
      }
    }
    while (cursor != nullptr && cursor < end) {
      while (cursor < end && *cursor == ' ') {
        ++cursor;
      }
      const char* lineEnd = cursor;
      while (lineEnd < end && *lineEnd != '\n') {
        ++lineEnd;
      }
      if (lineEnd > cursor) {
        // Written as they are, however long a template's name makes them.
        report.raw("    ", 4);
        report.raw(cursor, static_cast<std::size_t>(lineEnd - cursor));
        report.raw("\n", 1);
      }
      cursor = lineEnd + 1;
    }
  }
}

// mkdir -p, one component at a time in a fixed buffer.
void makeFolders(const char* folder) noexcept {
  std::array<char, kPathBytes> partial{};
  const std::size_t size = std::min(length(folder), partial.size() - 1);
  for (std::size_t i = 1; i <= size; ++i) {
    if (i == size || folder[i] == '/') {
      std::memcpy(partial.data(), folder, i);
      partial[i] = '\0';
      ::mkdir(partial.data(), 0700);
    }
  }
}

void writeReport(int signal, const siginfo_t* info, void* context) noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  const CivilTime time = civilTime(now.tv_sec);
  const auto pid = static_cast<std::uint64_t>(::getpid());

  Text path(state.reportPath.data(), state.reportPath.size());
  path.add(state.folder.data()).add("/").add(state.program.data()).add("-");
  path.decimal(static_cast<std::uint64_t>(time.year), 4)
      .decimal(time.month, 2)
      .decimal(time.day, 2)
      .add("T")
      .decimal(time.hour, 2)
      .decimal(time.minute, 2)
      .decimal(time.second, 2)
      .add("Z-")
      .decimal(pid)
      .add(".crash");
  makeFolders(state.folder.data());
  const int fd = ::open(state.reportPath.data(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  {
    ReportWriter report(fd);
    report.line().add("Brimble crash report\n");
    report.raw(state.head.data(), state.headLength);
    Text& line = report.line().add("Signal: ").add(signalName(signal)).add(" (");
    line.decimal(static_cast<std::uint64_t>(signal)).add(")");
    if (info != nullptr && info->si_code <= 0) {
      if (static_cast<std::uint64_t>(info->si_pid) == pid) {
        line.add(", raised by the program itself");
      } else {
        line.add(", sent by process ").decimal(static_cast<std::uint64_t>(info->si_pid));
      }
    } else if (info != nullptr && (signal == SIGSEGV || signal == SIGBUS)) {
      line.add(", at address ").hex(reinterpret_cast<std::uintptr_t>(info->si_addr));
    }
    line.add("\n");
    report.line()
        .add("Time: ")
        .decimal(static_cast<std::uint64_t>(time.year), 4)
        .add("-")
        .decimal(time.month, 2)
        .add("-")
        .decimal(time.day, 2)
        .add("T")
        .decimal(time.hour, 2)
        .add(":")
        .decimal(time.minute, 2)
        .add(":")
        .decimal(time.second, 2)
        .add("Z\n");
    report.line().add("Pid: ").decimal(pid).add("\n");
    report.flush();
    collectFrames(context);
    resolveModules();
    symbolize();
    writeFrames(report);
    report.line().add("\nRecent log lines:\n");
    report.raw(state.logLines.data(),
               copyRecentLogLines(state.logLines.data(), state.logLines.size()));
  }
  if (fd >= 0) {
    ::close(fd);
  }
  Text notice(state.logLines.data(), state.logLines.size());
  notice.add(state.program.data()).add(": crashed (").add(signalName(signal)).add(")");
  if (fd >= 0) {
    notice.add("; a report was saved: ").add(state.reportPath.data());
  } else {
    notice.add("; no report could be written in ").add(state.folder.data());
  }
  notice.add("\n");
  writeAll(STDERR_FILENO, state.logLines.data(), notice.size());
}

void onFatalSignal(int signal, siginfo_t* info, void* context) {
  const int savedErrno = errno;
  // A second fault while reporting, or another thread's, ends the process at once.
  for (const int each : kFatalSignals) {
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigemptyset(&standard.sa_mask);
    ::sigaction(each, &standard, nullptr);
  }
  writeReport(signal, info, context);
  errno = savedErrno;
  // Blocked until the handler returns, then fatal: the same signal ends the process, with the
  // exit status and core dump it would have had. A fault would also come back by itself.
  ::raise(signal);
}

std::string findSymbolizer() {
  std::string path = "/usr/bin:/bin";
  // MCP hosts start the server with a bare environment, so the usual folders come last.
  if (const char* variable = std::getenv("PATH"); variable != nullptr && *variable != '\0') {
    path = std::string(variable) + ":" + path;
  }
  std::size_t start = 0;
  while (start <= path.size()) {
    const std::size_t end = std::min(path.find(':', start), path.size());
    const std::string folder = path.substr(start, end - start);
    if (!folder.empty() && folder.front() == '/') {
      const std::string candidate = folder + "/addr2line";
      if (::access(candidate.c_str(), X_OK) == 0) {
        return candidate;
      }
    }
    start = end + 1;
  }
  return {};
}

void copyInto(char* target, std::size_t capacity, std::string_view text) {
  Text(target, capacity).add(text.data(), text.size());
}

}  // namespace

std::string describeCommand(std::span<const std::string> arguments) {
  std::string described;
  bool haveWord = false;
  for (const std::string& argument : arguments) {
    if (argument == "--") {
      break;  // only values follow
    }
    std::string part;
    if (argument.starts_with("--")) {
      part = argument.substr(0, argument.find('='));
    } else if (argument.size() > 1 && argument.front() == '-') {
      part = argument.substr(0, 2);  // "-ofile.gif" carries its value
    } else if (!haveWord) {
      part = argument;
      haveWord = true;
    } else {
      continue;
    }
    if (!described.empty()) {
      described += ' ';
    }
    described += part;
  }
  return described;
}

void install(std::string_view program, std::string_view version,
             std::span<const std::string> arguments, const std::filesystem::path& folder) {
  if (kAddressSanitizer) {
    return;
  }
  copyInto(state.folder.data(), state.folder.size(), folder.string());
  copyInto(state.program.data(), state.program.size(), program);
  std::string head = "Program: " + std::string(program) + "\nVersion: " + std::string(version) +
                     "\nCommand: " + std::string(program);
  if (const std::string command = describeCommand(arguments); !command.empty()) {
    head += " " + command;
  }
  head += "\n";
  copyInto(state.head.data(), state.head.size(), head);
  state.headLength = length(state.head.data());
  copyInto(state.symbolizer.data(), state.symbolizer.size(), findSymbolizer());
  // The first backtrace loads the unwinder's library, which allocates: done here, not in a
  // crash.
  std::array<void*, 4> warmUp{};
  ::backtrace(warmUp.data(), static_cast<int>(warmUp.size()));
  // A stack overflow leaves no stack to run the handler on.
  stack_t alternate{};
  alternate.ss_sp = state.alternateStack.data();
  alternate.ss_size = state.alternateStack.size();
  ::sigaltstack(&alternate, nullptr);
  for (const int signal : kFatalSignals) {
    struct sigaction action {};
    action.sa_sigaction = onFatalSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    ::sigaction(signal, &action, nullptr);
  }
}

}  // namespace brimble::crashHandler
