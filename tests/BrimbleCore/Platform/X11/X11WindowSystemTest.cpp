#include "BrimbleCore/Platform/X11/X11WindowSystem.h"

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Automation/WindowManager.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "BrimbleCore/Support/XID.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/X11Helpers.h"

namespace brimble::x11 {
namespace {

using testing::eventually;
using testing::TestWindow;

TestWindow windowOfClass(const std::string& windowClass, const std::string& size) {
  return TestWindow({"--class", windowClass, "--title", windowClass + " window", "--size", size});
}

class X11Windows : public ::testing::Test {
 protected:
  std::optional<WindowInfo> listed(std::uint32_t id) {
    for (const WindowInfo& window : windows_.windows()) {
      if (window.id == id) {
        return window;
      }
    }
    return std::nullopt;
  }

  std::unique_ptr<HeadlessDisplay> display_ = HeadlessDisplay::start();
  X11WindowSystem windows_{display_->displayName()};
  DetachedAppLauncher launcher_;
  WindowManager manager_{windows_, launcher_, steadyClock()};
};

TEST_F(X11Windows, ListsTitleClassPidAndFrameFrontmostFirst) {
  const TestWindow back = windowOfClass("Terminal", "300x200");
  const TestWindow front = windowOfClass("Terminal Helper", "320x240");
  // openbox focuses and raises each new window.
  ASSERT_TRUE(eventually([&] { return windows_.activeWindow() == front.id(); }));

  const std::vector<WindowInfo> listing = windows_.windows();
  EXPECT_EQ(listing[0].id, front.id());
  EXPECT_EQ(listing[1].id, back.id());
  const WindowInfo& window = listing[0];
  EXPECT_EQ(window.title, "Terminal Helper window");
  EXPECT_EQ(window.appName, "Terminal Helper");
  EXPECT_EQ(window.pid, front.pid());
  EXPECT_EQ(window.contentFrame.width, 320);
  EXPECT_EQ(window.contentFrame.height, 240);
  // openbox's decorations surround the content, with the title bar above it.
  const ScreenRect& outer = window.frame;
  const ScreenRect& inner = window.contentFrame;
  EXPECT_LE(outer.x, inner.x);
  EXPECT_LT(outer.y + 10, inner.y);
  EXPECT_GE(outer.x + outer.width, inner.x + inner.width);
  EXPECT_GE(outer.y + outer.height, inner.y + inner.height);
}

TEST_F(X11Windows, OpenResizeFocusAndCloseARealTerminal) {
  const std::uint32_t terminal = manager_.openApp("Terminal");
  const auto opened = listed(terminal);
  ASSERT_TRUE(opened);
  EXPECT_THAT(opened->appName, ::testing::HasSubstr("XTerm"));  // UXTerm through lxterm
  EXPECT_EQ(windows_.activeWindow(), terminal);

  manager_.resize("Terminal", 800, 600);
  const auto resized = listed(terminal);
  ASSERT_TRUE(resized);
  EXPECT_EQ(resized->frame.x, 0);
  EXPECT_EQ(resized->frame.y, 0);
  // xterm keeps whole character cells: at most one cell (under 20 pixels) short.
  EXPECT_LE(resized->contentFrame.width, 800);
  EXPECT_GT(resized->contentFrame.width, 780);
  EXPECT_LE(resized->contentFrame.height, 600);
  EXPECT_GT(resized->contentFrame.height, 580);

  const TestWindow other = windowOfClass("Other", "200x100");
  ASSERT_TRUE(eventually([&] { return windows_.activeWindow() == other.id(); }));
  manager_.focusApp("Terminal");
  EXPECT_EQ(windows_.activeWindow(), terminal);

  manager_.close("Terminal", terminal);
  EXPECT_TRUE(eventually([&] { return !listed(terminal); }));
  EXPECT_TRUE(eventually([&] { return !processAlive(opened->pid); })) << opened->pid;
  EXPECT_TRUE(listed(other.id()));
}

TEST_F(X11Windows, AResizeThatTheWindowDoesNotTakeIsAnErrorAndOneCutShortAWarning) {
  // Both windows keep a largest size of their own, which openbox respects.
  const TestWindow fixed({"--class", "Fixed", "--size", "300x200", "--max-size", "300x200"});
  const TestWindow capped({"--class", "Capped", "--size", "300x200", "--max-size", "400x300"});
  ASSERT_TRUE(eventually([&] { return windows_.activeWindow() == capped.id(); }));
  testing::LogCapture log;

  EXPECT_EQ(testing::errorText<WindowManagerError>([&] { manager_.resize("Fixed", 500, 400); }),
            "Cannot resize window " + formatXID(fixed.id()) +
                " to 500x400: it stayed 300x200 (the application or the window manager keeps its "
                "size)");

  const ScreenRect reached = manager_.resize("Capped", 500, 400);
  EXPECT_EQ(std::pair(reached.width, reached.height), std::pair(400, 300));
  EXPECT_EQ(listed(capped.id())->contentFrame, reached);
  EXPECT_THAT(log.lines(),
              ::testing::ElementsAre("Warning: window " + formatXID(capped.id()) +
                                     " is 400x300, not the 500x400 asked for (the application or "
                                     "the window manager limits its size)"));

  // Within its limit it takes the size asked for, and says nothing.
  EXPECT_EQ(manager_.resize("Capped", 350, 250).width, 350);
  EXPECT_EQ(log.lines().size(), 1u);
}

}  // namespace
}  // namespace brimble::x11
