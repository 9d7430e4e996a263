#include "cli/DisplayCommand.h"

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "BrimbleCore/Support/Subprocess.h"
#include "cli/PlatformBackend.h"

namespace brimble::cli {
namespace {

// What a shell answers for a command it cannot run.
constexpr int kExitNotRunnable = 127;

struct DisplayOptions {
  std::vector<std::string> command;
};

/// Runs `command` in the foreground and returns its exit status as a shell would.
int runInside(const std::vector<std::string>& command) {
  Subprocess child;
  try {
    // In our process group and on our terminal: it gets the terminal's Ctrl-C itself.
    child = Subprocess::spawn(command, {.input = StreamConnection::inherit,
                                        .output = StreamConnection::inherit,
                                        .errorOutput = StreamConnection::inherit,
                                        .ownProcessGroup = false});
  } catch (const std::system_error& error) {
    fmt::print(stderr, "brimble display: cannot run {}: {}\n", command.front(),
               error.code().message());
    return kExitNotRunnable;
  }
  // We only wait for it, then tear down.
  ::signal(SIGINT, SIG_IGN);
  return child.wait().shellStatus();
}

/// Waits until standard input ends or a terminating signal arrives.
void waitForTheEnd() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGHUP);
  ::sigprocmask(SIG_BLOCK, &signals, nullptr);
  const timespec tick{0, 100'000'000};
  pollfd input{0, POLLIN, 0};
  while (::sigtimedwait(&signals, nullptr, &tick) < 0) {
    if (::poll(&input, 1, 0) > 0) {
      char buffer[256];
      if (::read(0, buffer, sizeof buffer) <= 0) {
        return;
      }
    }
  }
}

int runDisplay(const DisplayOptions& options) {
  const auto display = platform::startEmbeddedDisplay();
  if (!options.command.empty()) {
    return runInside(options.command);
  }
  for (const std::string& entry : display->environment()) {
    if (entry.starts_with("DISPLAY=") || entry.starts_with("DBUS_SESSION_BUS_ADDRESS=")) {
      fmt::print("{}\n", entry);
    }
  }
  fmt::print("BRIMBLE_DISPLAY_PIDS={}\n", fmt::join(display->processes(), " "));
  std::fflush(stdout);
  waitForTheEnd();
  return kExitSuccess;
}

}  // namespace

Command addDisplayCommand(CLI::App& app) {
  auto options = std::make_shared<DisplayOptions>();
  CLI::App* command = app.add_subcommand(
      "display",
      "Start Brimble's embedded X display (Xvfb, a session bus, openbox) and run a "
      "command in it, or keep it up until standard input closes or Ctrl-C");
  command->add_option("command", options->command, "The command to run inside, after --");
  command->prefix_command();
  return {command, [options] { return runDisplay(*options); }};
}

}  // namespace brimble::cli
