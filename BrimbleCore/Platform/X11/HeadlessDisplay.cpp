#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <system_error>
#include <thread>
#include <tuple>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include "BrimbleCore/Platform/X11/XDisplay.h"
#include "BrimbleCore/Platform/X11/XHandles.h"
#include "BrimbleCore/Platform/X11/XProperties.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/Text.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble::x11 {
namespace {

constexpr int kDisplaysToTry = 100;
constexpr auto kStartTimeout = std::chrono::seconds(10);

// No root-window menu (a stray right click would open it in a recording), click to focus and
// raise, new windows focused. Nothing is bound in the "Frame" context: openbox keeps a press
// bound there from the application, so left clicks would never reach it.
constexpr const char* kOpenboxConfiguration = R"(<?xml version="1.0" encoding="UTF-8"?>
<openbox_config xmlns="http://openbox.org/3.4/rc">
  <focus><focusNew>yes</focusNew><followMouse>no</followMouse></focus>
  <placement><policy>Smart</policy><center>yes</center></placement>
  <desktops><number>1</number></desktops>
  <keyboard></keyboard>
  <mouse>
    <context name="Client">
      <mousebind button="Left" action="Press"><action name="Focus"/><action name="Raise"/></mousebind>
      <mousebind button="Right" action="Press"><action name="Focus"/><action name="Raise"/></mousebind>
    </context>
    <context name="Titlebar">
      <mousebind button="Left" action="Press"><action name="Focus"/><action name="Raise"/></mousebind>
      <mousebind button="Left" action="Drag"><action name="Move"/></mousebind>
    </context>
  </mouse>
</openbox_config>
)";

// Terminals opened in the embedded display are recorded for demos, so they should look like one:
// an anti-aliased monospace font at a readable size, calm colours, some padding, no blinking
// cursor (a blink is a picture change, which idle detection would never see the end of) and no
// scroll bar. Programs read these from the root window's RESOURCE_MANAGER, as from xrdb; xterm
// runs as class XTerm or, started through uxterm in a UTF-8 locale, UXTerm.
constexpr const char* kFontResources = R"(Xft.antialias: 1
Xft.hinting: 1
Xft.hintstyle: hintslight
Xft.rgba: none
Xft.dpi: 96
)";
constexpr const char* kTerminalResources[] = {
    "faceName: DejaVu Sans Mono",
    "faceSize: 13",
    "renderFont: true",
    "utf8: 1",
    "locale: true",
    "termName: xterm-256color",
    "geometry: 88x24",
    "internalBorder: 16",
    "scrollBar: false",
    "saveLines: 4000",
    "cursorBlink: false",
    "visualBell: false",
    "background: #1d2021",
    "foreground: #e6e1d6",
    "cursorColor: #f2c57c",
    "color0: #2c2f30",
    "color1: #e2786f",
    "color2: #9ccf7a",
    "color3: #ebc06d",
    "color4: #79a7e0",
    "color5: #c997d6",
    "color6: #6fc4bd",
    "color7: #d6d0c4",
    "color8: #5b5f61",
    "color9: #f0938b",
    "color10: #b5e094",
    "color11: #f4d38f",
    "color12: #9cc0ee",
    "color13: #dab3e4",
    "color14: #93d8d2",
    "color15: #f4f0e8",
};

// The temporary directory is the user's to name: a quote or a space in it must stay part of the
// path.
std::string shellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

// D-Bus addresses escape every byte outside a small safe set as %XX.
std::string busAddressValue(const std::string& text) {
  static constexpr std::string_view kSafe =
      "-_/.\\*0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::string escaped;
  for (const char c : text) {
    if (kSafe.find(c) != std::string_view::npos) {
      escaped += c;
    } else {
      static constexpr std::string_view kHex = "0123456789abcdef";
      const auto byte = static_cast<unsigned char>(c);
      escaped += '%';
      escaped += kHex[byte >> 4];
      escaped += kHex[byte & 0xf];
    }
  }
  return escaped;
}

// The shell those terminals run: the user's dotfiles are left out, since a prompt full of host
// names, or a start-up file that waits on a lock, spoils a demo, and typed commands stay out of
// the user's history. A short coloured prompt shows the folder.
std::string demoShell(const std::filesystem::path& bashrc) {
  return "#!/bin/sh\n"
         "if command -v bash >/dev/null 2>&1; then\n"
         "  exec bash --noprofile --rcfile " +
         shellQuoted(bashrc.string()) +
         " -i\n"
         "fi\n"
         "PS1='$ ' exec /bin/sh -i\n";
}
constexpr const char* kDemoBashrc =
    R"(PS1='\[\e[1;38;5;110m\]\W\[\e[0m\] \[\e[1;38;5;114m\]$\[\e[0m\] '
unset HISTFILE
alias ls='ls --color=auto'
alias grep='grep --color=auto'
)";

std::string demoResources() {
  std::string resources = kFontResources;
  for (const char* terminalClass : {"XTerm", "UXTerm"}) {
    for (const char* resource : kTerminalResources) {
      resources += std::string(terminalClass) + "*" + resource + "\n";
    }
  }
  return resources;
}

std::optional<std::string> environmentVariable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

void restoreEnvironment(const char* name, const std::optional<std::string>& value) {
  if (value) {
    ::setenv(name, value->c_str(), 1);
  } else {
    ::unsetenv(name);
  }
}

/// A pipe whose write end a child inherits to report one line (a display number, a bus address).
struct ReportPipe {
  UniqueFd read;
  UniqueFd write;

  ReportPipe() {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
      throw std::system_error(errno, std::generic_category(), "pipe");
    }
    read.reset(fds[0]);
    write.reset(fds[1]);
  }

  bool timedOut = false;

  /// The first line written, without its newline; no value when the writer closed the pipe
  /// (it exited) or the time ran out first (`timedOut`).
  std::optional<std::string> readLine(std::chrono::milliseconds timeout) {
    write.reset();  // only the child holds it now, so its exit shows as end of file
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) {
        timedOut = true;
        return std::nullopt;
      }
      pollfd wait{read.get(), POLLIN, 0};
      if (::poll(&wait, 1, static_cast<int>(left.count())) <= 0) {
        continue;
      }
      char c = 0;
      const ssize_t got = ::read(read.get(), &c, 1);
      if (got == 1 && c != '\n') {
        line += c;
      } else if (got == 1 || (got == 0 && !line.empty())) {
        return line;
      } else if (got == 0 || errno != EINTR) {
        return std::nullopt;
      }
    }
  }
};

bool rootHasWindowProperty(Display* display, const char* name, bool nonEmpty) {
  const auto windows = longProperty(display, DefaultRootWindow(display), name, XA_WINDOW);
  return windows && (!nonEmpty || !windows->empty());
}

bool windowManagerIsUp(Display* display) {
  // openbox publishes _NET_SUPPORTING_WM_CHECK early in its start-up; a window mapped between
  // then and the (empty) _NET_CLIENT_LIST it sets at the end of it is never managed, and stays
  // unmapped (measured: 9 first windows of 16 lost without waiting for the list, 0 of 16 with).
  return rootHasWindowProperty(display, "_NET_SUPPORTING_WM_CHECK", true) &&
         rootHasWindowProperty(display, "_NET_CLIENT_LIST", false);
}

/// How many windows `_NET_CLIENT_LIST` names.
std::size_t managedWindows(Display* display) {
  const auto windows =
      longProperty(display, DefaultRootWindow(display), "_NET_CLIENT_LIST", XA_WINDOW);
  return windows ? windows->size() : 0;
}

bool isFramed(Display* display, Window window) {
  Window root = 0;
  Window parent = 0;
  Window* children = nullptr;
  unsigned count = 0;
  if (XQueryTree(display, window, &root, &parent, &children, &count) == 0) {
    return false;
  }
  const XFreePtr<Window> ownedChildren(children);
  return parent != root;
}

/// Waits until openbox frames a window of ours, then removes it. openbox publishes its check
/// window before it has finished starting, and a window mapped in between is never managed
/// (measured: the first client of a fresh display stayed unframed for good). A map request that
/// gets no answer is repeated.
bool waitUntilManaging(Display* display, std::chrono::steady_clock::time_point deadline) {
  const Window probe =
      XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 1, 1, 0, 0, 0);
  bool managed = false;
  for (int attempt = 0;
       !managed && !connectionLost(display) && std::chrono::steady_clock::now() < deadline;
       ++attempt) {
    if (attempt % 20 == 0) {
      XUnmapWindow(display, probe);
      XMapWindow(display, probe);
    }
    XSync(display, False);
    managed = isFramed(display, probe);
    if (!managed) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  XDestroyWindow(display, probe);
  XSync(display, False);
  while (managed && managedWindows(display) > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return managed;
}

}  // namespace

HeadlessDisplayError HeadlessDisplayError::missingProgram(const std::string& program,
                                                          const std::string& package) {
  return {Code::missingProgram, "cannot start the embedded display: " + program +
                                    " is not installed (Debian package " + package + ")"};
}

HeadlessDisplayError HeadlessDisplayError::noFreeDisplay(int first, int last) {
  return {Code::noFreeDisplay,
          "cannot start the embedded display: displays :" + std::to_string(first) +
              " to :" + std::to_string(last) + " are all taken"};
}

HeadlessDisplayError HeadlessDisplayError::serverFailed(const std::string& reason) {
  return {Code::serverFailed, "cannot start the embedded display: Xvfb " + reason};
}

HeadlessDisplayError HeadlessDisplayError::sessionBusFailed(const std::string& reason) {
  return {Code::sessionBusFailed, "cannot start the embedded display's session bus: " + reason};
}

HeadlessDisplayError HeadlessDisplayError::windowManagerFailed(const std::string& reason) {
  return {Code::windowManagerFailed,
          "cannot start the embedded display's window manager: " + reason};
}

std::unique_ptr<HeadlessDisplay> HeadlessDisplay::start(const Options& options) {
  for (const auto& [program, package, needed] :
       {std::tuple{"Xvfb", "xvfb", true},
        std::tuple{"dbus-daemon", "dbus-daemon", options.sessionBus},
        std::tuple{"openbox", "openbox", options.windowManager}}) {
    if (needed && !findProgram(program)) {
      throw HeadlessDisplayError::missingProgram(program, package);
    }
  }
  std::unique_ptr<HeadlessDisplay> display(new HeadlessDisplay());
  display->previousDisplay_ = environmentVariable("DISPLAY");
  display->previousBusAddress_ = environmentVariable("DBUS_SESSION_BUS_ADDRESS");
  display->makeSessionDirectory();
  display->startServer(options);
  if (options.sessionBus) {
    display->startSessionBus();
  }
  if (options.windowManager) {
    display->startWindowManager();
  }
  return display;
}

HeadlessDisplay::~HeadlessDisplay() {
  windowManager_.terminate();
  bus_.terminate();
  server_.terminate();
  if (!sessionDirectory_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(sessionDirectory_, ignored);
  }
  restoreEnvironment("DISPLAY", previousDisplay_);
  restoreEnvironment("DBUS_SESSION_BUS_ADDRESS", previousBusAddress_);
}

void HeadlessDisplay::makeSessionDirectory() {
  std::string pattern = (temporaryDirectory() / "brimble-display-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw HeadlessDisplayError::serverFailed("cannot create its session folder " + pattern + ": " +
                                             std::strerror(errno));
  }
  sessionDirectory_ = pattern;
  // mkdtemp made the folder private (0700), as XDG_RUNTIME_DIR must be.
  for (const char* folder : {"config", "cache", "data", "runtime", "tmp"}) {
    std::filesystem::create_directory(sessionDirectory_ / folder);
    std::filesystem::permissions(sessionDirectory_ / folder, std::filesystem::perms::owner_all);
  }
  std::ofstream(sessionDirectory_ / "demo-shell") << demoShell(sessionDirectory_ / "demo-bashrc");
  // xterm runs $SHELL only when everyone may execute it, and otherwise falls back to the
  // password file's shell; the session directory itself stays private.
  using std::filesystem::perms;
  std::filesystem::permissions(sessionDirectory_ / "demo-shell",
                               perms::owner_all | perms::group_read | perms::group_exec |
                                   perms::others_read | perms::others_exec);
  std::ofstream(sessionDirectory_ / "demo-bashrc") << kDemoBashrc;
}

std::vector<std::string> HeadlessDisplay::privateFolders() const {
  return {"XDG_CONFIG_HOME=" + (sessionDirectory_ / "config").string(),
          "XDG_CACHE_HOME=" + (sessionDirectory_ / "cache").string(),
          "XDG_DATA_HOME=" + (sessionDirectory_ / "data").string(),
          "XDG_RUNTIME_DIR=" + (sessionDirectory_ / "runtime").string(),
          "TMPDIR=" + (sessionDirectory_ / "tmp").string()};
}

std::vector<std::string> HeadlessDisplay::environment() const {
  std::vector<std::string> entries = privateFolders();
  entries.push_back("DISPLAY=" + displayName_);
  entries.push_back("SHELL=" + (sessionDirectory_ / "demo-shell").string());
  // Terminals show what scripts type, in any language, only in a UTF-8 locale; every Debian
  // system has C.UTF-8.
  const auto locale = environmentVariable("LC_ALL").value_or(
      environmentVariable("LC_CTYPE").value_or(environmentVariable("LANG").value_or("")));
  if (lowercased(locale).find("utf-8") == std::string::npos &&
      lowercased(locale).find("utf8") == std::string::npos) {
    entries.push_back("LC_ALL=C.UTF-8");
  }
  if (!busAddress_.empty()) {
    entries.push_back("DBUS_SESSION_BUS_ADDRESS=" + busAddress_);
  }
  return entries;
}

void HeadlessDisplay::startServer(const Options& options) {
  const std::string screen =
      std::to_string(options.width) + "x" + std::to_string(options.height) + "x24";
  for (int number = options.firstDisplay; number < options.firstDisplay + kDisplaysToTry;
       ++number) {
    ReportPipe ready;
    // Xvfb writes the display number to -displayfd once it accepts connections; if the number is
    // taken it exits instead, and the pipe ends empty. -noreset: an X server resets when its last
    // client leaves, and connections made meanwhile fail (16 of 300 without a window manager).
    Subprocess server = Subprocess::spawn(
        {"Xvfb", ":" + std::to_string(number), "-screen", "0", screen, "-nolisten", "tcp",
         "-noreset", "-displayfd", std::to_string(ready.write.get())},
        {.dieWithParent = true, .inheritedFd = ready.write.get(), .environment = privateFolders()});
    const auto reported = ready.readLine(kStartTimeout);
    if (reported && !reported->empty()) {
      displayName_ = ":" + *reported;
      server_ = std::move(server);
      ::setenv("DISPLAY", displayName_.c_str(), 1);
      loadDemoResources();
      return;
    }
    // The pipe ends a moment before the process does; terminate() reaps it either way.
    server.terminate();
    if (ready.timedOut) {
      throw HeadlessDisplayError::serverFailed("did not become ready within 10 seconds");
    }
  }
  throw HeadlessDisplayError::noFreeDisplay(options.firstDisplay,
                                            options.firstDisplay + kDisplaysToTry - 1);
}

void HeadlessDisplay::loadDemoResources() {
  XDisplayPtr connection = openDisplay(displayName_);
  if (!connection) {
    throw HeadlessDisplayError::serverFailed("accepted no connection on " + displayName_);
  }
  Display* display = connection.get();
  const std::string resources = demoResources();
  XChangeProperty(display, DefaultRootWindow(display), XA_RESOURCE_MANAGER, XA_STRING, 8,
                  PropModeReplace, reinterpret_cast<const unsigned char*>(resources.data()),
                  static_cast<int>(resources.size()));
  XSync(display, False);
}

void HeadlessDisplay::startSessionBus() {
  // Without a bus of our own, toolkits and accessibility would autolaunch stray daemons that
  // outlive us. What the bus starts on demand (dconf, AT-SPI) inherits its private folders.
  ReportPipe address;
  std::vector<std::string> environment = privateFolders();
  environment.push_back("DISPLAY=" + displayName_);
  std::vector<std::string> arguments = {"dbus-daemon", "--session", "--nofork",
                                        "--print-address=" + std::to_string(address.write.get())};
  // Its socket in the session folder too, not in /tmp, unless that path would be too long for a
  // socket's name (108 bytes with the "dbus-XXXXXXXXXX" it adds).
  const std::string runtime = (sessionDirectory_ / "runtime").string();
  if (runtime.size() < 80) {
    arguments.push_back("--address=unix:dir=" + busAddressValue(runtime));
  }
  bus_ = Subprocess::spawn(arguments, {.dieWithParent = true,
                                       .inheritedFd = address.write.get(),
                                       .environment = std::move(environment)});
  const auto reported = address.readLine(kStartTimeout);
  if (!reported || reported->empty()) {
    bus_.terminate();
    throw HeadlessDisplayError::sessionBusFailed("dbus-daemon reported no address");
  }
  busAddress_ = *reported;
  ::setenv("DBUS_SESSION_BUS_ADDRESS", busAddress_.c_str(), 1);
}

void HeadlessDisplay::startWindowManager() {
  const auto configuration = sessionDirectory_ / "openbox.xml";
  std::ofstream(configuration) << kOpenboxConfiguration;
  windowManager_ =
      Subprocess::spawn({"openbox", "--sm-disable", "--config-file", configuration.string()},
                        {.dieWithParent = true, .environment = environment()});

  // openbox is ready once it has published _NET_SUPPORTING_WM_CHECK on the root window.
  XDisplayPtr connection = openDisplay(displayName_);
  if (!connection) {
    throw HeadlessDisplayError::windowManagerFailed("cannot connect to " + displayName_);
  }
  const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
  while (!windowManagerIsUp(connection.get())) {
    if (connectionLost(connection.get())) {
      throw HeadlessDisplayError::windowManagerFailed("Xvfb ended");
    }
    if (windowManager_.hasExited()) {
      throw HeadlessDisplayError::windowManagerFailed("openbox exited");
    }
    if (std::chrono::steady_clock::now() > deadline) {
      throw HeadlessDisplayError::windowManagerFailed("openbox did not start within 10 seconds");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (!waitUntilManaging(connection.get(), deadline)) {
    throw HeadlessDisplayError::windowManagerFailed(
        "openbox did not manage windows within 10 seconds");
  }
}

}  // namespace brimble::x11
