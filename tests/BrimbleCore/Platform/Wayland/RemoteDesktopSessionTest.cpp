#include "BrimbleCore/Platform/Wayland/RemoteDesktopSession.h"

#include <chrono>

#include <gtest/gtest.h>

#include "tests/Support/GtkTestForm.h"
#include "tests/Support/WaylandSession.h"

namespace brimble::wayland {
namespace {

using namespace std::chrono_literals;

TEST(RemoteDesktopSession, TheUserAllowsRemoteInteractionForTheKeyboardPointerAndMonitor) {
  const auto session = testing::WaylandSession::start();
  if (!session) {
    GTEST_SKIP() << "no mutter on this machine";
  }
  testing::GtkTestForm form("Remote");
  ASSERT_TRUE(form.shown());
  DesktopPortal portal;
  session->approveRemoteDesktopAfter(1500ms);
  RemoteDesktopSession remote(portal, {.dialogTimeout = 30s});
  EXPECT_TRUE(session->waitForDialogHelper());
  EXPECT_GE(remote.version(), 1u);
  ASSERT_EQ(remote.streams().size(), 1u);
  EXPECT_EQ(remote.streams()[0].frame, (ScreenRect{0, 0, 1280, 800}));
  EXPECT_EQ(remote.streams()[0].sourceType, 1u);
  // Only from version 2 does the portal remember (Debian 12 has version 1).
  EXPECT_EQ(remote.restoreToken().empty(), remote.version() < 2);

  // Why a session is primed before its first key: the headless seat has no keyboard until the
  // session's first key makes one, and that key is lost. Only then does the clicked window get
  // the keyboard, and with it the focus.
  const ScreenPoint entry = form.middleOf("role:entry");
  remote.pointerMotionAbsolute(remote.streams()[0].nodeID, entry.x, entry.y);
  remote.pointerButton(0x110, true);
  remote.pointerButton(0x110, false);
  EXPECT_FALSE(form.waitUntilActive(1s));
  remote.keysym('x', true);
  remote.keysym('x', false);
  ASSERT_TRUE(form.waitUntilActive());
  for (const std::uint32_t keysym : {'y', 'z'}) {
    remote.keysym(keysym, true);
    remote.keysym(keysym, false);
  }
  EXPECT_EQ(form.entryWhen("yz"), "yz");
}

TEST(RemoteDesktopSession, ACancelledDialogOrOneWithoutRemoteInteractionStartsNoSession) {
  const auto session = testing::WaylandSession::start();
  if (!session) {
    GTEST_SKIP() << "no mutter on this machine";
  }
  DesktopPortal portal;
  session->cancelDialogAfter(1500ms);
  try {
    RemoteDesktopSession remote(portal, {.dialogTimeout = 20s});
    FAIL() << "started without the user";
  } catch (const PortalError& error) {
    EXPECT_EQ(error.code(), PortalError::Code::cancelled);
    EXPECT_STREQ(error.what(), "Screen sharing was cancelled");
  }
  EXPECT_TRUE(session->waitForDialogHelper());

  // Share pressed without "Allow remote interaction": the screen, but no input.
  session->approveScreenCastAfter(1500ms);
  try {
    RemoteDesktopSession remote(portal, {.dialogTimeout = 20s});
    FAIL() << "started without the keyboard and pointer";
  } catch (const PortalError& error) {
    EXPECT_EQ(error.code(), PortalError::Code::failed);
    EXPECT_STREQ(error.what(),
                 "The desktop portal could not share the keyboard and pointer: remote "
                 "interaction was not allowed in the dialog");
  }
  EXPECT_TRUE(session->waitForDialogHelper());
}

}  // namespace
}  // namespace brimble::wayland
