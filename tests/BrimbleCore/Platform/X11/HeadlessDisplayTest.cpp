#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <signal.h>

#include "BrimbleCore/Platform/X11/XDisplay.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/X11Helpers.h"

namespace brimble::x11 {
namespace {

bool processAlive(pid_t pid) {
  // A zombie still answers kill(0); look at its state instead.
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string pidText, name, state;
  return stat >> pidText >> name >> state && state != "Z";
}

TEST(HeadlessDisplay, StartsAServerABusAndAWindowManagerAndStopsThemAll) {
  const char* before = std::getenv("DISPLAY");
  const std::string previous = before != nullptr ? before : "";
  pid_t server = 0;
  pid_t bus = 0;
  pid_t windowManager = 0;
  {
    const auto display = HeadlessDisplay::start();
    server = display->serverPid();
    bus = display->busPid();
    windowManager = display->windowManagerPid();
    EXPECT_EQ(display->displayName().rfind(':', 0), 0u);
    EXPECT_GE(std::stoi(display->displayName().substr(1)), 99);
    EXPECT_EQ(std::getenv("DISPLAY"), display->displayName());
    EXPECT_EQ(std::getenv("DBUS_SESSION_BUS_ADDRESS"), display->busAddress());

    XDisplayPtr connection = openDisplay();
    ASSERT_TRUE(connection);
    EXPECT_EQ(screenSize(connection.get()), (ScreenSize{1920, 1080}));
    for (const pid_t pid : {server, bus, windowManager}) {
      EXPECT_TRUE(processAlive(pid)) << pid;
    }
  }
  for (const pid_t pid : {server, bus, windowManager}) {
    EXPECT_FALSE(processAlive(pid)) << pid << " outlived the display";
  }
  const char* after = std::getenv("DISPLAY");
  EXPECT_EQ(after != nullptr ? after : "", previous);
}

TEST(HeadlessDisplay, ItsFirstWindowIsManagedAndFocused) {
  // A window mapped the moment the display is ready: openbox frames it and focuses it.
  const auto display = HeadlessDisplay::start();
  testing::ChildProcess client({BRIMBLE_X11_TEST_CLIENT});
  std::optional<std::string> line;
  std::string seen;
  do {
    line = client.readLine(std::chrono::seconds(5));
    seen += line.value_or("(nothing)") + "|";
  } while (line && *line != "focus in");
  EXPECT_EQ(line, "focus in") << client.errorOutput() << seen;
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
}

TEST(HeadlessDisplay, TwoDisplaysGetDifferentNumbers) {
  const auto first = HeadlessDisplay::start({.windowManager = false});
  const auto second = HeadlessDisplay::start({.sessionBus = false, .windowManager = false});
  EXPECT_NE(first->displayName(), second->displayName());
  EXPECT_TRUE(openDisplay(first->displayName()));
  EXPECT_TRUE(openDisplay(second->displayName()));
}

TEST(HeadlessDisplay, ItsProgramsDieWithAKilledBrimble) {
  // A child process starts a display and is then killed outright: no destructor runs, yet Xvfb,
  // the bus and openbox must go with it.
  testing::ChildProcess holder({BRIMBLE_BINARY, "display"});
  std::string line;
  for (int i = 0; i < 3 && line.rfind("BRIMBLE_DISPLAY_PIDS=", 0) != 0; ++i) {
    line = holder.readLine(std::chrono::seconds(20)).value_or("");
  }
  ASSERT_EQ(line.rfind("BRIMBLE_DISPLAY_PIDS=", 0), 0u) << holder.errorOutput();
  std::istringstream fields(line.substr(std::string("BRIMBLE_DISPLAY_PIDS=").size()));
  pid_t pids[3] = {};
  fields >> pids[0] >> pids[1] >> pids[2];
  holder.signal(SIGKILL);
  holder.wait(std::chrono::seconds(5));
  for (const pid_t pid : pids) {
    bool gone = false;
    for (int i = 0; i < 200 && !gone; ++i) {
      gone = !processAlive(pid);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(gone) << pid;
  }
}

}  // namespace
}  // namespace brimble::x11
