// The window list of a Wayland desktop, from the accessibility bus of a real headless GNOME
// session with GTK windows on it.

#include "BrimbleCore/Platform/ATSPI/ATSPIWindowSystem.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "BrimbleCore/Automation/InputSimulator.h"
#include "BrimbleCore/Automation/WindowManagerError.h"
#include "BrimbleCore/Platform/Wayland/WaylandInputBackend.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/GtkTestForm.h"
#include "tests/Support/WaylandSession.h"

namespace brimble::atspi {
namespace {

using namespace std::chrono_literals;

/// The window of `pid` once the list has one (maximized windows settle at full size), within
/// 20 seconds.
std::optional<WindowInfo> windowOf(WindowSystem& windows, pid_t pid) {
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (std::chrono::steady_clock::now() < deadline) {
    for (const WindowInfo& window : windows.windows()) {
      if (window.pid == pid && window.frame.width == 1280) {
        return window;
      }
    }
    std::this_thread::sleep_for(100ms);
  }
  return std::nullopt;
}

bool eventually(const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(50ms);
  }
  return true;
}

TEST(ATSPIWindowSystem, ListsTheGtkWindowsOfAWaylandDesktopWithoutInventingTheirPlace) {
  const auto session = testing::WaylandSession::start();
  if (!session) {
    GTEST_SKIP() << "no mutter on this machine";
  }
  ATSPIWindowSystem windows;
  testing::GtkTestForm first("First form");
  const auto listed = windowOf(windows, first.pid());
  ASSERT_TRUE(listed);
  testing::GtkTestForm second("Second form");
  const auto other = windowOf(windows, second.pid());
  ASSERT_TRUE(other);

  EXPECT_EQ(listed->title, "First form");
  EXPECT_EQ(listed->appName, "wayland-gtk-form.py");
  EXPECT_EQ(other->title, "Second form");
  EXPECT_NE(listed->id, other->id);
  // Maximized on the 1280x800 monitor, but GTK on Wayland tells only the size.
  EXPECT_FALSE(listed->positionKnown);
  EXPECT_EQ(listed->frame, (ScreenRect{0, 0, 1280, 800}));
  EXPECT_EQ(listed->contentFrame, listed->frame);

  // The same ids from another instance, as another process would see them.
  ATSPIWindowSystem again;
  const auto relisted = windowOf(again, first.pid());
  ASSERT_TRUE(relisted);
  EXPECT_EQ(*relisted, *listed);

  // Nothing has the focus in the test's session until it is clicked; the window clicked is
  // active, and comes first.
  EXPECT_FALSE(windows.activeWindow());
  wayland::WaylandInputBackend backend(std::make_shared<wayland::DesktopPortal>(),
                                       {.dialogTimeout = 30s});
  InputSimulator input(backend, steadyClock());
  session->approveRemoteDesktopAfter(1500ms);
  const ScreenPoint button = second.middleOf("role:push button/Press me");
  input.click(button.x, button.y, MouseButton::left);
  EXPECT_TRUE(session->waitForDialogHelper());
  EXPECT_TRUE(eventually([&] { return windows.activeWindow() == other->id; }));
  EXPECT_EQ(windows.windows().front().id, other->id);
  // Asked through GTK, which presents the window; whether it becomes active is mutter's call
  // (here it does not: a request without the user's activation only marks the window), and the
  // window manager logs when it did not.
  EXPECT_TRUE(windows.activate(listed->id));
  EXPECT_FALSE(windows.activate(12345));
}

TEST(ATSPIWindowSystem, ClosesThroughTheCloseButtonAndRefusesWhatOnlyTheCompositorDoes) {
  const auto session = testing::WaylandSession::start();
  if (!session) {
    GTEST_SKIP() << "no mutter on this machine";
  }
  ATSPIWindowSystem windows;
  testing::GtkTestForm decorated("Closable");
  const auto closable = windowOf(windows, decorated.pid());
  ASSERT_TRUE(closable);
  testing::GtkTestForm bare("Bare", {.undecorated = true});
  const auto unclosable = windowOf(windows, bare.pid());
  ASSERT_TRUE(unclosable);

  EXPECT_EQ(testing::errorText<WindowManagerError>([&] {
              windows.moveResize(closable->id, {0, 0, 640, 480});
            }),
            "Cannot move or resize windows: on Wayland only the compositor moves and sizes "
            "windows, and it takes no requests to do so from other programs");
  EXPECT_FALSE(windows.moveResize(12345, {0, 0, 640, 480}));

  EXPECT_TRUE(windows.close(closable->id));
  EXPECT_TRUE(decorated.process().waitFor(5s)) << "the window closed, and its program ended";
  EXPECT_TRUE(eventually([&] {
    const auto now = windows.windows();
    return std::none_of(now.begin(), now.end(),
                        [&](const WindowInfo& window) { return window.id == closable->id; });
  }));
  EXPECT_FALSE(windows.close(closable->id));

  try {
    windows.close(unclosable->id);
    FAIL() << "closed a window with no close button";
  } catch (const WindowManagerError& error) {
    EXPECT_EQ(error.code(), WindowManagerError::Code::requestRefused);
    EXPECT_STREQ(error.what(),
                 "Cannot close the window 'Bare' of wayland-gtk-form.py: it shows no close "
                 "button on the accessibility bus, and on Wayland only the compositor closes "
                 "windows");
  }
  EXPECT_TRUE(bare.process().running());
}

TEST(ATSPIWindowSystem, WithoutAnAccessibilityBusThereIsNoWindowList) {
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  const std::string saved = address != nullptr ? address : "";
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  ATSPIWindowSystem windows;
  try {
    windows.windows();
    ADD_FAILURE() << "listed windows without a bus";
  } catch (const WindowManagerError& error) {
    EXPECT_EQ(error.code(), WindowManagerError::Code::windowListUnavailable);
    // A process keeps the bus it first reached: alone in its process (as under ctest), this
    // test is the first to ask.
    EXPECT_STREQ(error.what(),
                 "Cannot list windows: there is no session bus ($DBUS_SESSION_BUS_ADDRESS is not "
                 "set)");
  }
  EXPECT_FALSE(windows.activeWindow());
  if (!saved.empty()) {
    ::setenv("DBUS_SESSION_BUS_ADDRESS", saved.c_str(), 1);
  }
}

}  // namespace
}  // namespace brimble::atspi
