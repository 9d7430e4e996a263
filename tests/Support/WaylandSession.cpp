#include "tests/Support/WaylandSession.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <thread>

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "BrimbleCore/Platform/ATSPI/ATSPIWindowSystem.h"
#include "BrimbleCore/Support/FileIO.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/RunCommand.h"

namespace brimble::testing {
namespace {

using namespace std::chrono_literals;

constexpr const char* kDisplayName = "wayland-brimble";

/// The first line `fd` gives within `timeout`; empty when none came.
std::string readLine(int fd, std::chrono::milliseconds timeout) {
  std::string line;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (std::chrono::steady_clock::now() < deadline) {
    pollfd waiting{fd, POLLIN, 0};
    if (::poll(&waiting, 1, 50) <= 0) {
      continue;
    }
    char c = 0;
    if (::read(fd, &c, 1) != 1) {
      break;
    }
    if (c == '\n') {
      return line;
    }
    line.push_back(c);
  }
  return {};
}

bool waitFor(const std::function<bool()>& ready, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!ready()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(20ms);
  }
  return true;
}

bool succeeds(const std::vector<std::string>& arguments) {
  Subprocess child = Subprocess::spawn(arguments);
  const auto status = child.waitFor(5s);
  return status && status->code == 0 && status->signal == 0;
}

}  // namespace

std::unique_ptr<WaylandSession> WaylandSession::start(const Options& options) {
  const char* compositor = options.shell ? "gnome-shell" : "mutter";
  for (const char* program : {compositor, "pipewire", "wireplumber", "dbus-daemon"}) {
    if (!findProgram(program)) {
      return nullptr;
    }
  }
  std::unique_ptr<WaylandSession> session(new WaylandSession());
  std::string pattern = (temporaryDirectory() / "brimble-wayland-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("cannot create the session's runtime folder: " +
                             std::string(std::strerror(errno)));
  }
  session->runtime_ = pattern;

  // The bus where a login puts it ($XDG_RUNTIME_DIR/bus), so that a program started without the
  // session's environment can find it as it would a user's.
  session->bus_ = Subprocess::spawn({"dbus-daemon", "--session", "--nofork", "--print-address",
                                     "--address=unix:path=" + pattern + "/bus"},
                                    {.output = StreamConnection::pipe,
                                     .dieWithParent = true,
                                     .environment = {"XDG_RUNTIME_DIR=" + pattern}});
  const std::string address = readLine(session->bus_.output().get(), 10s);
  if (address.empty()) {
    throw std::runtime_error("the session bus did not start");
  }
  session->environment_ = {
      "XDG_RUNTIME_DIR=" + pattern, "DBUS_SESSION_BUS_ADDRESS=" + address,
      "XDG_SESSION_TYPE=wayland",   std::string("WAYLAND_DISPLAY=") + kDisplayName,
      "XDG_CURRENT_DESKTOP=GNOME",  "GDK_BACKEND=wayland"};
  for (const std::string& entry : session->environment_) {
    const auto equals = entry.find('=');
    ::setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
  }
  ::unsetenv("DISPLAY");

  const SpawnOptions daemon{.dieWithParent = true};
  session->pipewire_ = Subprocess::spawn({"pipewire"}, daemon);
  if (!waitFor([&] { return std::filesystem::exists(session->runtime_ / "pipewire-0"); }, 5s)) {
    throw std::runtime_error("PipeWire did not start");
  }
  session->wireplumber_ = Subprocess::spawn({"wireplumber"}, daemon);
  // Services the bus starts later (the portals) take their environment from it, and the portal
  // picks its desktop's backend once, from XDG_CURRENT_DESKTOP: told before anything starts.
  if (!succeeds({"dbus-update-activation-environment", "XDG_RUNTIME_DIR", "WAYLAND_DISPLAY",
                 "XDG_SESSION_TYPE", "XDG_CURRENT_DESKTOP", "GDK_BACKEND"})) {
    throw std::runtime_error("the session bus took no environment");
  }
  SpawnOptions compositorOptions = daemon;
  if (options.shell) {
    // The shell asks the system bus for logind and other system services at start, and stops
    // without one; theirs being absent it takes in its stride.
    const std::string systemBus = "unix:path=" + pattern + "/system-bus";
    session->systemBus_ = Subprocess::spawn(
        {"dbus-daemon", "--session", "--nofork", "--address=" + systemBus}, daemon);
    if (!waitFor([&] { return std::filesystem::exists(session->runtime_ / "system-bus"); }, 5s)) {
      throw std::runtime_error("the private system bus did not start");
    }
    compositorOptions.environment = {"DBUS_SYSTEM_BUS_ADDRESS=" + systemBus};
  }
  session->compositor_ = Subprocess::spawn(
      {compositor, "--wayland", "--headless", "--no-x11",
       std::string("--wayland-display=") + kDisplayName, "--virtual-monitor", "1280x800"},
      compositorOptions);
  if (!waitFor([&] { return std::filesystem::exists(session->runtime_ / kDisplayName); }, 10s)) {
    throw std::runtime_error(std::string(compositor) + " did not start");
  }
  if (!options.shell) {
    if (!waitFor(
            [] {
              return succeeds({"busctl", "--user", "status", "org.gnome.Mutter.RemoteDesktop"});
            },
            10s)) {
      throw std::runtime_error("mutter did not start");
    }
  } else {
    // The shell shows its overview once it has started, where windows are thumbnails; a user
    // leaves it. (busctl cannot read the shell's credentials, so `status` would never answer
    // here: the overview coming says the shell is up, with mutter's interfaces.)
    const auto overview = [] {
      return runCommand(
                 "busctl --user get-property org.gnome.Shell /org/gnome/Shell org.gnome.Shell "
                 "OverviewActive 2>/dev/null")
          .output;
    };
    if (!waitFor([&] { return overview() == "b true\n"; }, 30s) ||
        !succeeds({"busctl", "--user", "set-property", "org.gnome.Shell", "/org/gnome/Shell",
                   "org.gnome.Shell", "OverviewActive", "b", "false"}) ||
        !waitFor([&] { return overview() == "b false\n"; }, 5s)) {
      throw std::runtime_error("GNOME Shell did not start");
    }
  }
  return session;
}

WaylandSession::~WaylandSession() {
  // Each ends with everything it started, in the reverse order of their start.
  applications_.clear();
  dialog_ = Subprocess();
  compositor_ = Subprocess();
  systemBus_ = Subprocess();
  wireplumber_ = Subprocess();
  pipewire_ = Subprocess();
  bus_ = Subprocess();
  std::error_code ignored;
  std::filesystem::remove_all(runtime_, ignored);
}

void WaylandSession::dialogHelper(std::chrono::milliseconds delay, const char* mode,
                                  const std::string& argument) {
  std::vector<std::string> arguments{BRIMBLE_SOURCE_DIR "/tests/Support/wayland-approve.py",
                                     std::to_string(delay.count() / 1000.0), mode};
  if (!argument.empty()) {
    arguments.push_back(argument);
  }
  dialog_ = Subprocess::spawn(arguments, {.dieWithParent = true});
}

void WaylandSession::approveWindowAfter(std::chrono::milliseconds delay, const std::string& title) {
  dialogHelper(delay, "window", title);
}

void WaylandSession::approveScreenCastAfter(std::chrono::milliseconds delay) {
  dialogHelper(delay, "screencast");
}

void WaylandSession::approveRemoteDesktopAfter(std::chrono::milliseconds delay) {
  dialogHelper(delay, "remote");
}

void WaylandSession::cancelDialogAfter(std::chrono::milliseconds delay) {
  dialogHelper(delay, "cancel");
}

bool WaylandSession::waitForDialogHelper(std::chrono::milliseconds timeout) {
  if (!dialog_.running()) {
    return false;
  }
  const auto status = dialog_.waitFor(timeout);
  return status && status->code == 0 && status->signal == 0;
}

void WaylandSession::startApplication(const std::vector<std::string>& arguments) {
  applications_.push_back(Subprocess::spawn(arguments, {.dieWithParent = true}));
}

std::optional<std::uint32_t> WaylandSession::startColourWindow(const std::string& app,
                                                               const std::string& title, int width,
                                                               int height,
                                                               const std::string& colour) {
  startApplication({BRIMBLE_SOURCE_DIR "/tests/Support/wayland-colour-window.py", app, title,
                    std::to_string(width), std::to_string(height), colour});
  atspi::ATSPIWindowSystem windows;
  std::optional<std::uint32_t> id;
  waitFor(
      [&] {
        try {
          for (const WindowInfo& window : windows.windows()) {
            if (window.title == title) {
              id = window.id;
            }
          }
        } catch (const std::exception&) {
          // The accessibility bus starts with the first application on it.
        }
        return id.has_value();
      },
      20s);
  return id;
}

bool WaylandSession::movePointer(int x, int y) {
  Subprocess helper = Subprocess::spawn({BRIMBLE_SOURCE_DIR "/tests/Support/wayland-pointer.py",
                                         std::to_string(x), std::to_string(y)},
                                        {.dieWithParent = true});
  const auto status = helper.waitFor(20s);
  return status && status->code == 0 && status->signal == 0;
}

bool WaylandSession::input(const std::vector<std::string>& actions) {
  std::vector<std::string> arguments{BRIMBLE_SOURCE_DIR "/tests/Support/wayland-input.py"};
  arguments.insert(arguments.end(), actions.begin(), actions.end());
  Subprocess helper = Subprocess::spawn(arguments, {.dieWithParent = true});
  const auto status = helper.waitFor(30s);
  return status && status->code == 0 && status->signal == 0;
}

std::optional<std::string> WaylandSession::withKeyboard(const std::vector<std::string>& command) {
  std::vector<std::string> arguments{BRIMBLE_SOURCE_DIR "/tests/Support/wayland-input.py", "--"};
  arguments.insert(arguments.end(), command.begin(), command.end());
  ChildProcess helper(arguments);
  std::string output = helper.readRemainingOutput(20s);
  const auto status = helper.wait(5s);
  if (!status || *status != 0) {
    std::fprintf(stderr, "%s failed: %s\n", command.front().c_str(), helper.errorOutput().c_str());
    return std::nullopt;
  }
  return output;
}

void WaylandSession::killCompositor() {
  compositor_.signal(SIGKILL);
  compositor_.waitFor(10s);
}

}  // namespace brimble::testing
