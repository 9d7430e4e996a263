#include "BrimbleCore/Platform/Wayland/ScreenCastSession.h"

#include <chrono>

#include <gtest/gtest.h>

#include "tests/Support/WaylandSession.h"

namespace brimble::wayland {
namespace {

using namespace std::chrono_literals;

TEST(ScreenCastSession, TheUserSharesOnceAndTheTokenSkipsTheDialogButACancelOrAStaleTokenDoesNot) {
  const auto session = testing::WaylandSession::start();
  if (!session) {
    GTEST_SKIP() << "no mutter on this machine";
  }
  DesktopPortal portal;
  EXPECT_GE(portal.version("org.freedesktop.portal.ScreenCast"), 4u);

  std::string token;
  {
    session->approveScreenCastAfter(1500ms);
    const ScreenCastSession cast(portal, {});
    ASSERT_EQ(cast.streams().size(), 1u);
    EXPECT_EQ(cast.streams()[0].frame, (ScreenRect{0, 0, 1280, 800}));
    EXPECT_EQ(cast.streams()[0].sourceType, 1u);
    EXPECT_NE(cast.streams()[0].nodeID, 0u);
    EXPECT_EQ(cast.cursorMode(), ScreenCastSession::CursorMode::metadata);
    EXPECT_FALSE(cast.restoreToken().empty());
    token = cast.restoreToken();
    EXPECT_TRUE(session->waitForDialogHelper());
  }

  // The remembered choice: no dialog, and quickly.
  {
    const auto started = std::chrono::steady_clock::now();
    const ScreenCastSession again(portal, {.restoreToken = token});
    EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);
    ASSERT_EQ(again.streams().size(), 1u);
    EXPECT_EQ(again.streams()[0].frame, (ScreenRect{0, 0, 1280, 800}));
    EXPECT_FALSE(again.restoreToken().empty());
  }

  // A dialog the user cancels.
  session->cancelDialogAfter(1500ms);
  try {
    ScreenCastSession cast(portal, {.dialogTimeout = 20s});
    FAIL() << "shared without the user";
  } catch (const PortalError& error) {
    EXPECT_EQ(error.code(), PortalError::Code::cancelled);
    EXPECT_STREQ(error.what(), "Screen sharing was cancelled");
  }
  EXPECT_TRUE(session->waitForDialogHelper());

  // A token nobody issued, and one that is not even a token: the user is asked again.
  for (const char* stale : {"0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0", "garbage"}) {
    session->approveScreenCastAfter(1500ms);
    const ScreenCastSession cast(portal, {.restoreToken = stale, .dialogTimeout = 20s});
    EXPECT_EQ(cast.streams().size(), 1u) << stale;
    EXPECT_TRUE(session->waitForDialogHelper()) << "the dialog was shown and pressed";
  }
}

}  // namespace
}  // namespace brimble::wayland
