#include "cli/DisplayCommand.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "BrimbleCore/Platform/PlatformBackend.h"
#include "BrimbleCore/Scripting/NearestName.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "BrimbleCore/Support/Subprocess.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble::cli {
namespace {

namespace fs = std::filesystem;

// What a shell answers for a command it cannot run.
constexpr int kExitNotRunnable = 127;
// The process `brimble display start` leaves behind to keep the display up; it reports on the
// descriptor that follows. Not for users.
constexpr const char* kHoldOption = "--hold-until-stopped";
constexpr auto kStartTimeout = std::chrono::seconds(30);
constexpr auto kStopTimeout = std::chrono::seconds(15);

/// What main handed over: everything after "display" on the command line.
std::vector<std::string>& displayArguments() {
  static std::vector<std::string> arguments;
  return arguments;
}

/// The display environment worth exporting to a shell: the display and its session bus.
std::vector<std::string> exported(const std::vector<std::string>& environment) {
  std::vector<std::string> entries;
  for (const std::string& entry : environment) {
    if (entry.starts_with("DISPLAY=") || entry.starts_with("DBUS_SESSION_BUS_ADDRESS=")) {
      entries.push_back(entry);
    }
  }
  return entries;
}

std::string valueOf(const std::vector<std::string>& entries, const std::string& name) {
  for (const std::string& entry : entries) {
    if (entry.starts_with(name + "=")) {
      return entry.substr(name.size() + 1);
    }
  }
  return {};
}

/// Runs `command` in the foreground and returns its exit status as a shell would.
int runInside(const std::vector<std::string>& command, const EmbeddedDisplay& display) {
  Subprocess child;
  try {
    // In our process group and on our terminal: it gets the terminal's Ctrl-C itself.
    child = Subprocess::spawn(command, {.input = StreamConnection::inherit,
                                        .output = StreamConnection::inherit,
                                        .errorOutput = StreamConnection::inherit,
                                        .ownProcessGroup = false,
                                        .environment = display.environment()});
  } catch (const std::system_error& error) {
    fmt::print(stderr, "brimble display: cannot run {}: {}\n", command.front(),
               error.code().message());
    return kExitNotRunnable;
  }
  // We only wait for it, then tear down.
  std::signal(SIGINT, SIG_IGN);
  return child.wait().shellStatus();
}

/// Blocks the signals that end a display, so that they wait for `waitForTheEnd`.
sigset_t blockEndingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGHUP);
  ::sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

/// Waits until a signal of `signals` arrives or, with `untilInputEnds`, standard input ends.
void waitForTheEnd(const sigset_t& signals, bool untilInputEnds) {
  const timespec tick{0, 100'000'000};
  pollfd input{0, POLLIN, 0};
  while (::sigtimedwait(&signals, nullptr, &tick) < 0) {
    if (untilInputEnds && ::poll(&input, 1, 0) > 0) {
      char buffer[256];
      if (::read(0, buffer, sizeof buffer) <= 0) {
        return;
      }
    }
  }
}

/// Where `brimble display start` notes the display it keeps up: the user's runtime folder, else
/// a private folder of the user in the temporary directory.
fs::path stateFile() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime != nullptr && *runtime != '\0' && fs::is_directory(runtime)) {
    return fs::path(runtime) / "brimble" / "display";
  }
  return temporaryDirectory() / ("brimble-" + std::to_string(::getuid())) / "display";
}

/// The display `brimble display start` keeps up: the process holding it and its environment.
struct StartedDisplay {
  pid_t holder = 0;
  std::vector<std::string> environment;
};

/// The started display noted in the state file, if its holder still runs.
std::optional<StartedDisplay> startedDisplay() {
  std::ifstream file(stateFile());
  StartedDisplay display;
  if (!(file >> display.holder)) {
    return std::nullopt;
  }
  for (std::string line; std::getline(file >> std::ws, line);) {
    display.environment.push_back(line);
  }
  // A process id can be reused: only a holder of ours counts.
  std::ifstream commandLine("/proc/" + std::to_string(display.holder) + "/cmdline");
  const std::string arguments((std::istreambuf_iterator<char>(commandLine)), {});
  if (!processAlive(display.holder) || arguments.find(kHoldOption) == std::string::npos) {
    return std::nullopt;
  }
  return display;
}

void printExports(const StartedDisplay& display) {
  for (const std::string& entry : exported(display.environment)) {
    const std::size_t equals = entry.find('=');
    fmt::print("export {}='{}'\n", entry.substr(0, equals), entry.substr(equals + 1));
  }
  std::fflush(stdout);
}

/// The process `display start` leaves behind: starts the display, notes it in the state file,
/// reports it on `ready` and keeps it up until a signal asks it to stop.
int holdUntilStopped(int ready) {
  const sigset_t signals = blockEndingSignals();
  UniqueFd report(ready);
  // Not for the display's programs: `display start` reads until every holder has closed it.
  ::fcntl(ready, F_SETFD, FD_CLOEXEC);
  const auto display = platform::startEmbeddedDisplay();
  const fs::path file = stateFile();
  fs::create_directories(file.parent_path());
  struct stat folder {};
  if (::stat(file.parent_path().c_str(), &folder) != 0 || folder.st_uid != ::getuid()) {
    fmt::print(stderr, "brimble display start: {} is not a folder of yours\n",
               file.parent_path().string());
    return kExitFailure;
  }
  fs::permissions(file.parent_path(), fs::perms::owner_all);
  const std::vector<std::string> environment = exported(display->environment());
  writeFileAtomically(file, fmt::format("{}\n{}\n", ::getpid(), fmt::join(environment, "\n")),
                      0600);
  const std::string lines = fmt::format("{}\n", fmt::join(environment, "\n"));
  if (::write(report.get(), lines.data(), lines.size()) != static_cast<ssize_t>(lines.size())) {
    return kExitFailure;
  }
  report.reset();
  // Nothing more to say to the terminal `display start` ran in.
  const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  ::dup2(null, STDERR_FILENO);
  waitForTheEnd(signals, false);
  std::error_code ignored;
  fs::remove(file, ignored);
  return kExitSuccess;
}

int runStart() {
  if (const auto running = startedDisplay()) {
    printExports(*running);
    fmt::print(stderr,
               "brimble display start: {} is already running; `brimble display stop` stops it\n",
               valueOf(running->environment, "DISPLAY"));
    return kExitSuccess;
  }
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  UniqueFd read(fds[0]);
  UniqueFd write(fds[1]);
  // A detached brimble of its own keeps the display up: not our child, in a session of its own,
  // so neither the end of this command nor of the terminal stops it.
  Subprocess::launchDetached(
      {fs::read_symlink("/proc/self/exe").string(), "display", kHoldOption,
       std::to_string(write.get())},
      {.errorOutput = StreamConnection::inherit, .inheritedFd = write.get()});
  write.reset();
  std::string reported;
  const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
  pollfd wait{read.get(), POLLIN, 0};
  while (std::chrono::steady_clock::now() < deadline && ::poll(&wait, 1, 100) >= 0) {
    char buffer[512];
    const ssize_t got = wait.revents != 0 ? ::read(read.get(), buffer, sizeof buffer) : -1;
    if (got == 0) {
      break;
    }
    reported.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  }
  const auto running = startedDisplay();
  if (!running || reported.empty()) {
    fmt::print(stderr, "brimble display start: the display did not start\n");
    return kExitFailure;
  }
  printExports(*running);
  fmt::print(stderr, "brimble display start: {} runs until `brimble display stop`\n",
             valueOf(running->environment, "DISPLAY"));
  return kExitSuccess;
}

int runStop() {
  const auto running = startedDisplay();
  if (!running) {
    std::error_code ignored;
    fs::remove(stateFile(), ignored);  // a holder that was killed leaves its note behind
    fmt::print(stderr,
               "brimble display stop: no display started by `brimble display start` runs\n");
    return kExitSuccess;
  }
  ::kill(running->holder, SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + kStopTimeout;
  while (processAlive(running->holder) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (processAlive(running->holder)) {
    // Its display's programs die with it.
    ::kill(running->holder, SIGKILL);
    std::error_code ignored;
    fs::remove(stateFile(), ignored);
  }
  fmt::print(stderr, "brimble display stop: stopped {}\n",
             valueOf(running->environment, "DISPLAY"));
  return kExitSuccess;
}

int keepUp() {
  const sigset_t signals = blockEndingSignals();
  const auto display = platform::startEmbeddedDisplay();
  for (const std::string& entry : exported(display->environment())) {
    fmt::print("{}\n", entry);
  }
  fmt::print("BRIMBLE_DISPLAY_PIDS={}\n", fmt::join(display->processes(), " "));
  std::fflush(stdout);
  waitForTheEnd(signals, true);
  return kExitSuccess;
}

// Whether `program` names something to run: a path to an executable file, or a name found so
// on the PATH.
bool isRunnable(const std::string& program) {
  const auto executable = [](const fs::path& path) {
    std::error_code error;
    return fs::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
  };
  if (program.find('/') != std::string::npos) {
    return executable(program);
  }
  const char* path = std::getenv("PATH");
  std::string_view folders = path != nullptr ? path : "/usr/bin:/bin";
  for (;;) {
    const std::size_t colon = folders.find(':');
    const std::string_view folder = folders.substr(0, colon);
    if (executable(fs::path(folder.empty() ? "." : folder) / program)) {
      return true;
    }
    if (colon == std::string_view::npos) {
      return false;
    }
    folders.remove_prefix(colon + 1);
  }
}

int runWith(const std::vector<std::string>& command) {
  // Checked before a display is started for nothing: `brimble display status` is more often a
  // form that does not exist than a program.
  if (!isRunnable(command.front())) {
    const std::vector<std::string> forms = {"start", "stop"};
    const auto nearest = nearestName(command.front(), forms);
    fmt::print(stderr,
               "brimble display: no program '{}' to run (the display's own commands "
               "are start and stop{})\n",
               command.front(), nearest ? "; did you mean '" + *nearest + "'?" : std::string());
    return kExitNotRunnable;
  }
  const auto display = platform::startEmbeddedDisplay();
  return runInside(command, *display);
}

int usageError(const std::string& message) {
  fmt::print(stderr, "brimble display: {}\nRun 'brimble display --help' for the forms it takes.\n",
             message);
  return kExitUsage;
}

int runDisplay(const CLI::App& command, const std::vector<std::string>& arguments) {
  if (arguments.empty()) {
    return keepUp();
  }
  const std::string& first = arguments.front();
  if ((first == "start" || first == "stop") && arguments.size() > 1) {
    return usageError(first + " takes no arguments; to run a program called " + first +
                      ", give it after --");
  }
  if (first == "start") {
    return runStart();
  }
  if (first == "stop") {
    return runStop();
  }
  if (first == "--help" || first == "-h") {
    fmt::print("{}", command.help());
    return kExitSuccess;
  }
  if (first == kHoldOption && arguments.size() == 2) {
    return holdUntilStopped(std::stoi(arguments[1]));
  }
  if (first == "--") {
    if (arguments.size() == 1) {
      return usageError("give the program to run after --");
    }
    return runWith({arguments.begin() + 1, arguments.end()});
  }
  if (first.starts_with("-")) {
    return usageError("unknown option " + first +
                      "; a program to run and its options come first, or after --");
  }
  return runWith(arguments);
}

}  // namespace

int takeDisplayArguments(int argc, char** argv) {
  // Global options (`--verbose`; none takes a value) may stand before the command.
  int command = 1;
  while (command < argc && argv[command][0] == '-' && std::string_view(argv[command]) != "--") {
    ++command;
  }
  if (command >= argc || std::string_view(argv[command]) != "display") {
    return argc;
  }
  displayArguments().assign(argv + command + 1, argv + argc);
  return command + 1;
}

Command addDisplayCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "display",
      "Start Brimble's embedded X display (Xvfb, a session bus, openbox) and run a program in "
      "it, keep it up until standard input closes or Ctrl-C, or keep one up for other commands");
  command->footer(
      "Forms:\n"
      "  brimble display PROGRAM [ARGS...]   run PROGRAM in a display of its own; every argument\n"
      "                                      after it is its own (also after --)\n"
      "  brimble display                     keep a display up until standard input closes or\n"
      "                                      Ctrl-C, printing DISPLAY= and the session bus\n"
      "  brimble display start               start a display that stays up and print the\n"
      "                                      variables to export: eval \"$(brimble display "
      "start)\"\n"
      "  brimble display stop                stop the display that start started");
  return {command, [command] { return runDisplay(*command, displayArguments()); }};
}

}  // namespace brimble::cli
