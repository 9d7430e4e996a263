#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"

#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Platform/X11/XDisplay.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/X11Helpers.h"

namespace brimble::x11 {
namespace {

TEST(HeadlessDisplay, StartsAServerABusAndAWindowManagerAndStopsThemAll) {
  const char* before = std::getenv("DISPLAY");
  const std::string previous = before != nullptr ? before : "";
  std::vector<pid_t> pids;
  std::filesystem::path folder;
  ::setenv("LC_ALL", "C", 1);
  {
    const auto display = HeadlessDisplay::start();
    pids = {display->serverPid(), display->busPid(), display->windowManagerPid()};
    folder = display->sessionDirectory();
    EXPECT_GE(std::stoi(display->displayName().substr(1)), 99);
    EXPECT_EQ(std::getenv("DISPLAY"), display->displayName());
    EXPECT_EQ(std::getenv("DBUS_SESSION_BUS_ADDRESS"), display->busAddress());
    std::vector<std::string> expected = {
        "XDG_CONFIG_HOME=" + (folder / "config").string(),
        "XDG_CACHE_HOME=" + (folder / "cache").string(),
        "XDG_DATA_HOME=" + (folder / "data").string(),
        "XDG_RUNTIME_DIR=" + (folder / "runtime").string(), "TMPDIR=" + (folder / "tmp").string(),
        "DISPLAY=" + display->displayName(), "SHELL=" + (folder / "demo-shell").string(),
        // this test runs in the C locale
        "LC_ALL=C.UTF-8", "DBUS_SESSION_BUS_ADDRESS=" + display->busAddress()};
    EXPECT_EQ(display->environment(), expected);
    // Terminals run the demo shell only when everyone may execute it (xterm falls back to the
    // password file's shell otherwise); it reads no dotfiles and keeps no history.
    const auto mode = std::filesystem::status(folder / "demo-shell").permissions();
    EXPECT_NE(mode & std::filesystem::perms::others_exec, std::filesystem::perms::none);
    const auto shell =
        testing::runCommand("echo 'echo \"[$HISTFILE][$PS1]\"; exit' | " +
                            testing::shellQuote((folder / "demo-shell").string()) + " 2>/dev/null");
    EXPECT_THAT(shell.output, ::testing::HasSubstr("[][\\[\\e[1;38;5;110m\\]\\W"));
    const XDisplayPtr connection = openDisplay(display->displayName());
    ASSERT_TRUE(connection);
    EXPECT_EQ(screenSize(connection.get()), (ScreenSize{1920, 1080}));
    for (const pid_t pid : pids) {
      EXPECT_TRUE(processAlive(pid)) << pid;
    }
    // The first window, mapped the moment the display is ready, is framed and focused.
    testing::TestWindow window;
    EXPECT_TRUE(window.waitFor("focus in")) << window.errorOutput();
  }
  for (const pid_t pid : pids) {
    EXPECT_FALSE(processAlive(pid)) << pid << " outlived the display";
  }
  EXPECT_FALSE(std::filesystem::exists(folder));
  const char* after = std::getenv("DISPLAY");
  EXPECT_EQ(after != nullptr ? after : "", previous);
}

TEST(HeadlessDisplay, KeepsAcceptingClientsWhenTheLastOneLeaves) {
  // Without a window manager every short connection is the last one, and an X server resets
  // when its last client leaves; connections made during a reset fail.
  const auto display = HeadlessDisplay::start({.sessionBus = false, .windowManager = false});
  int refused = 0;
  for (int i = 0; i < 300; ++i) {
    refused += openDisplay(display->displayName()) ? 0 : 1;
  }
  EXPECT_EQ(refused, 0);
  // A second display takes the next free number.
  const auto second = HeadlessDisplay::start({.sessionBus = false, .windowManager = false});
  EXPECT_NE(second->displayName(), display->displayName());
  EXPECT_TRUE(openDisplay(second->displayName()));
}

TEST(HeadlessDisplay, RunsInATemporaryDirectoryWhoseNameHasSpacesQuotesAndDollars) {
  testing::TempDirectory base;
  const std::filesystem::path odd = base / "my tmp's $HOME";
  std::filesystem::create_directory(odd);
  const char* before = std::getenv("TMPDIR");
  const std::string previous = before != nullptr ? before : "";
  ::setenv("TMPDIR", odd.c_str(), 1);
  {
    const auto display = HeadlessDisplay::start();
    EXPECT_EQ(display->sessionDirectory().parent_path(), odd);
    const auto bus = testing::runCommand(
        "dbus-send --bus=" + testing::shellQuote(display->busAddress()) +
        " --print-reply --dest=org.freedesktop.DBus / org.freedesktop.DBus.GetId 2>&1");
    EXPECT_EQ(bus.exitCode, 0) << bus.output;
    const auto shell = testing::runCommand(
        "echo 'echo \"[$PS1]\"; exit' | " +
        testing::shellQuote((display->sessionDirectory() / "demo-shell").string()) + " 2>&1");
    EXPECT_THAT(shell.output, ::testing::HasSubstr("[\\[\\e[1;38;5;110m\\]\\W"));
  }
  ::setenv("TMPDIR", previous.c_str(), 1);
  if (previous.empty()) {
    ::unsetenv("TMPDIR");
  }
}

}  // namespace
}  // namespace brimble::x11
