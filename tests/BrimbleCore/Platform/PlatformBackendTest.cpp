#include "BrimbleCore/Platform/PlatformBackend.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "tests/Support/ErrorText.h"

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
  EXPECT_EQ(testing::errorText<DesktopError>([] { openDesktop(DesktopChoice::user); }),
            "$DISPLAY is not set");
  EXPECT_EQ(environmentDisplay(), std::nullopt) << "no display was started for it";

  // A display of the user's (here one of ours, which sets $DISPLAY while it lives).
  const auto users = x11::HeadlessDisplay::start();
  for (const DesktopChoice choice : {DesktopChoice::user, DesktopChoice::userElseEmbedded,
                                     DesktopChoice::userFoundElseEmbedded}) {
    const auto desktop = openDesktop(choice);
    EXPECT_EQ(desktop->session().name, users->displayName());
    EXPECT_FALSE(desktop->session().embedded);
    EXPECT_EQ(desktop->session().reason, "$DISPLAY names it");
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

}  // namespace
}  // namespace brimble
