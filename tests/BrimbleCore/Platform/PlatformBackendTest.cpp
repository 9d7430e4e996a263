#include "BrimbleCore/Platform/PlatformBackend.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/WaylandSession.h"

namespace brimble {
namespace {

using platform::DesktopChoice;
using platform::openDesktop;

std::optional<std::string> environmentDisplay() {
  const char* value = std::getenv("DISPLAY");
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

// Each test runs in a process of its own, so the environment is ours to change.
TEST(PlatformBackend, TheUsersSessionIsTheOneTheEnvironmentNamesAndWithoutOneNothingIsStarted) {
  ::unsetenv("DISPLAY");
  ::unsetenv("WAYLAND_DISPLAY");
  ::unsetenv("XDG_SESSION_TYPE");
  EXPECT_EQ(testing::errorText<DesktopError>([] { openDesktop(DesktopChoice::user); }),
            "$WAYLAND_DISPLAY and $DISPLAY are not set");
  EXPECT_EQ(environmentDisplay(), std::nullopt) << "no display was started for it";

  // A display of the user's (here one of ours, which sets $DISPLAY while it lives).
  const auto users = x11::HeadlessDisplay::start();
  for (const DesktopChoice choice :
       {DesktopChoice::user, DesktopChoice::script, DesktopChoice::userFoundElseEmbedded}) {
    const auto desktop = openDesktop(choice);
    EXPECT_EQ(desktop->session().name, users->displayName());
    EXPECT_FALSE(desktop->session().embedded);
    EXPECT_EQ(desktop->session().reason, "$DISPLAY names it");
    EXPECT_EQ(desktop->session().server, DesktopSession::Server::x11);
    EXPECT_EQ(desktop->embeddedDisplay(), nullptr);
    ASSERT_EQ(desktop->screen().displays().size(), 1u);
    EXPECT_EQ(desktop->screen().displays()[0].frame, (ScreenRect{0, 0, 1920, 1080}));
    EXPECT_TRUE(desktop->input().available());
    EXPECT_NO_THROW(desktop->windows().windows());
  }
}

TEST(PlatformBackend, HeadlessStartsBrimblesOwnDisplayBesideTheUsersAndStopsItWithTheDesktop) {
  const auto users = x11::HeadlessDisplay::start();
  pid_t server = 0;
  {
    const auto desktop = openDesktop(DesktopChoice::embedded);
    ASSERT_NE(desktop->embeddedDisplay(), nullptr);
    EXPECT_TRUE(desktop->session().embedded);
    EXPECT_EQ(desktop->session().reason, "--headless was given");
    EXPECT_NE(desktop->session().name, users->displayName());
    EXPECT_EQ(desktop->embeddedDisplay()->name(), desktop->session().name);
    // Programs started there reach it, whatever this process's environment says.
    EXPECT_NE(std::find(desktop->environment().begin(), desktop->environment().end(),
                        "DISPLAY=" + desktop->session().name),
              desktop->environment().end());
    EXPECT_EQ(desktop->screen().displays().size(), 1u);
    server = desktop->embeddedDisplay()->processes().front();
    EXPECT_TRUE(processAlive(server));
  }
  EXPECT_FALSE(processAlive(server));
  EXPECT_EQ(environmentDisplay(), users->displayName()) << "the user's display is named again";
}

TEST(PlatformBackend, OnAWaylandDesktopTheUsersScreenIsTheWaylandOneAndScriptsRunInTheirOwn) {
  // A Wayland desktop with XWayland sets both; the X server there sees only some windows.
  ::setenv("DISPLAY", ":59998", 1);
  const auto session = testing::WaylandSession::start();
  if (!session) {
    GTEST_SKIP() << "no mutter on this machine";
  }
  ::setenv("DISPLAY", ":59998", 1);
  const std::string name = std::getenv("WAYLAND_DISPLAY");
  for (const DesktopChoice choice : {DesktopChoice::user, DesktopChoice::userFoundElseEmbedded}) {
    const auto desktop = openDesktop(choice);
    EXPECT_EQ(desktop->session().server, DesktopSession::Server::wayland);
    EXPECT_EQ(desktop->session().name, name);
    EXPECT_EQ(desktop->session().reason, "$WAYLAND_DISPLAY names it");
    EXPECT_FALSE(desktop->session().embedded);
    EXPECT_EQ(desktop->embeddedDisplay(), nullptr);
    EXPECT_EQ(desktop->makeEventCapture(), nullptr) << "Wayland lets no client hear others' input";
  }
  EXPECT_EQ(platform::texts().toolScreenRecordingRequired,
            "Screen Recording permission is required. The desktop portal did not share the "
            "screen: allow Brimble in the screen-sharing dialog, or start the server with "
            "--headless.");
  const auto script = openDesktop(DesktopChoice::script);
  EXPECT_TRUE(script->session().embedded);
  EXPECT_EQ(script->session().server, DesktopSession::Server::x11);

  // Started by a host with a bare environment, the MCP server finds the user's session.
  ::unsetenv("WAYLAND_DISPLAY");
  ::unsetenv("DISPLAY");
  ::unsetenv("XDG_SESSION_TYPE");
  const auto found = openDesktop(DesktopChoice::userFoundElseEmbedded);
  EXPECT_EQ(found->session().server, DesktopSession::Server::wayland);
  EXPECT_EQ(found->session().name, name);
  EXPECT_EQ(found->session().reason,
            "$WAYLAND_DISPLAY was not set; found the user's running Wayland session");
  EXPECT_EQ(environmentDisplay(), std::nullopt);
  EXPECT_STREQ(std::getenv("WAYLAND_DISPLAY"), name.c_str()) << "programs started later find it";
}

}  // namespace
}  // namespace brimble
