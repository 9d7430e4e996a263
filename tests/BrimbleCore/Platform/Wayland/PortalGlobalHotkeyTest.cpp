#include "BrimbleCore/Platform/Wayland/PortalGlobalHotkey.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>

#include "BrimbleCore/Platform/PlatformBackend.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/WaylandSession.h"

namespace brimble::wayland {
namespace {

using namespace std::chrono_literals;

/// A session bus of its own with tests/Support/portal-global-shortcuts.py as the desktop portal,
/// and this process's environment pointed at it as a Wayland login's would be.
class ShortcutPortalRig {
 public:
  explicit ShortcutPortalRig(const std::vector<std::string>& portalOptions = {})
      : bus_({"dbus-daemon", "--session", "--nofork", "--print-address"}) {
    const auto address = bus_.readLine(10s);
    if (!address || address->empty()) {
      throw std::runtime_error("the private session bus did not start");
    }
    ::setenv("DBUS_SESSION_BUS_ADDRESS", address->c_str(), 1);
    // Named, never connected to: a Wayland desktop's parts connect to what they use, and a
    // shortcut uses only the portal.
    ::setenv("WAYLAND_DISPLAY", "wayland-brimble-unused", 1);
    ::unsetenv("DISPLAY");
    std::vector<std::string> arguments{BRIMBLE_SOURCE_DIR
                                       "/tests/Support/portal-global-shortcuts.py"};
    arguments.insert(arguments.end(), portalOptions.begin(), portalOptions.end());
    portal_.emplace(arguments);
    if (portal_->readLine(10s) != "ready") {
      throw std::runtime_error("the test portal did not start: " + portal_->errorOutput());
    }
  }

  /// The next thing the portal was asked, or "(nothing)".
  std::string nextRequest() { return portal_->readLine(10s).value_or("(nothing)"); }
  /// Presses every bound shortcut `count` times, as the desktop would on its keys.
  void press(int count) {
    portal_->write("press " + std::to_string(count) + "\n");
    EXPECT_EQ(nextRequest(), "pressed " + std::to_string(count));
  }

 private:
  testing::ChildProcess bus_;
  std::optional<testing::ChildProcess> portal_;
};

/// Every press that arrives within `timeout`, up to `expected`.
int portalPresses(GlobalHotkey& hotkey, int expected, std::chrono::milliseconds timeout = 5s) {
  int total = 0;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (total < expected && std::chrono::steady_clock::now() < deadline) {
    pollfd ready{hotkey.eventFd(), POLLIN, 0};
    if (::poll(&ready, 1, 50) > 0) {
      total += hotkey.takePresses();
    }
  }
  return total;
}

TEST(PortalGlobalHotkey, RegistersTheAppThenBindsThePreferredTriggerAndCountsEachPress) {
  ShortcutPortalRig rig;
  const auto desktop = platform::openDesktop(platform::DesktopChoice::user);
  std::string session;
  {
    const auto hotkey = desktop->makeGlobalHotkey("Ctrl+Shift+G");
    // The registry first: the portal knows the app by its id only if told before anything else.
    EXPECT_EQ(rig.nextRequest(), "register org.brimble.Brimble");
    const std::string created = rig.nextRequest();
    ASSERT_TRUE(created.starts_with("create-session /org/freedesktop/portal/desktop/session/"))
        << created;
    session = created.substr(created.find(' ') + 1);
    EXPECT_EQ(rig.nextRequest(),
              "bind " + session + " record CTRL+SHIFT+g Record a region of the screen");

    EXPECT_EQ(hotkey->takePresses(), 0);
    rig.press(3);
    EXPECT_EQ(portalPresses(*hotkey, 3), 3);
    rig.press(1);
    EXPECT_EQ(portalPresses(*hotkey, 2, 1s), 1);
    EXPECT_EQ(hotkey->takePresses(), 0);
  }
  // Gone with the hotkey, so the desktop stops sending presses to an app that no longer listens.
  EXPECT_EQ(rig.nextRequest(), "close " + session);
}

TEST(PortalGlobalHotkey, APortalWithoutTheRegistryStillBindsAndKeysAreNamedAsDesktopsDo) {
  ShortcutPortalRig rig({"--no-registry"});
  auto portal = std::make_shared<DesktopPortal>();
  const PortalGlobalHotkey hotkey(portal, "Meta+Alt+F9");
  EXPECT_TRUE(rig.nextRequest().starts_with("create-session "));
  const std::string bound = rig.nextRequest();
  EXPECT_TRUE(bound.ends_with(" record ALT+LOGO+F9 Record a region of the screen")) << bound;
  const PortalGlobalHotkey other(portal, "Ctrl+/");
  EXPECT_TRUE(rig.nextRequest().starts_with("create-session "));
  EXPECT_TRUE(rig.nextRequest().ends_with(" record CTRL+slash Record a region of the screen"));
}

TEST(PortalGlobalHotkey, ADeclinedDialogOrANonsenseShortcutIsAClearErrorAndLeavesNoSession) {
  ShortcutPortalRig rig({"--decline"});
  const auto desktop = platform::openDesktop(platform::DesktopChoice::user);
  EXPECT_EQ(
      testing::errorText<GlobalHotkeyError>([&] { desktop->makeGlobalHotkey("Ctrl+Shift+G"); }),
      "The desktop's shortcut dialog was closed without binding Ctrl+Shift+G.");
  EXPECT_EQ(rig.nextRequest(), "register org.brimble.Brimble");
  const std::string created = rig.nextRequest();
  const std::string session = created.substr(created.find(' ') + 1);
  EXPECT_TRUE(rig.nextRequest().starts_with("bind " + session + " record "));
  EXPECT_EQ(rig.nextRequest(), "close " + session);

  try {
    desktop->makeGlobalHotkey("Ctrl+Shfit+G");
    FAIL() << "bound a shortcut with a misspelt modifier";
  } catch (const GlobalHotkeyError& error) {
    EXPECT_EQ(error.code(), GlobalHotkeyError::Code::invalidShortcut);
  }
}

TEST(PortalGlobalHotkey, GNOMEBefore48SaysItHasNoPortalShortcutsAtOnce) {
  const auto session = testing::WaylandSession::start();
  if (!session) {
    GTEST_SKIP() << "no mutter on this machine";
  }
  const auto desktop = platform::openDesktop(platform::DesktopChoice::user);
  const auto started = std::chrono::steady_clock::now();
  try {
    desktop->makeGlobalHotkey("Ctrl+Shift+G");
    FAIL() << "a portal shortcut on a portal without them";
  } catch (const GlobalHotkeyError& error) {
    EXPECT_EQ(error.code(), GlobalHotkeyError::Code::unavailable);
    EXPECT_STREQ(error.what(), PortalGlobalHotkey::unavailableReason().c_str());
  }
  // The portal is started for the question; it must not be waited on for the 30 s a request
  // may take.
  EXPECT_LT(std::chrono::steady_clock::now() - started, 10s);
}

}  // namespace
}  // namespace brimble::wayland
