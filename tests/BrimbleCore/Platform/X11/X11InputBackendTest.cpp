#include "BrimbleCore/Platform/X11/X11InputBackend.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Automation/InputSimulator.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11WindowSystem.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/X11Helpers.h"

namespace brimble::x11 {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

/// Our test client in an embedded display, focused. What clicks, scrolls and moves send is
/// checked by X11EventCaptureTest.cpp, which sees them arrive.
class X11Input : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(client_.waitFor("focus in")) << client_.errorOutput();
    ASSERT_TRUE(backend_.available());
  }

  std::unique_ptr<HeadlessDisplay> display_ = HeadlessDisplay::start();
  testing::TestWindow client_{{"--position", "100,100", "--size", "400x300"}};
  X11InputBackend backend_{display_->displayName()};
  InputSimulator input_{backend_, steadyClock()};
};

TEST_F(X11Input, KeyChordsAndUnmappedCharactersArriveAsSent) {
  input_.pressKey("c", {Modifier::control});
  input_.pressKey("tab", {Modifier::shift});
  input_.pressKey("f5", {Modifier::alt, Modifier::super});
  input_.typeText("A€", 0, false);
  // The state field is what the server says is held: Shift 1, Control 4, Mod1 8, Mod4 64.
  EXPECT_THAT(client_.lines(20),
              ElementsAre("key press Control_L 0", "key press c 4", "key release c 4",
                          "key release Control_L 4", "key press Shift_L 0", "key press Tab 1",
                          "key release Tab 1", "key release Shift_L 1", "key press Alt_L 0",
                          "key press Super_L 8", "key press F5 72", "key release F5 72",
                          "key release Super_L 72", "key release Alt_L 8", "key press Shift_L 0",
                          "key press a 1", "key release a 1", "key release Shift_L 1",
                          "key press U20AC 0", "key release U20AC 0"));
}

TEST(X11Typing, ARealTerminalGetsExactlyTheTextTyped) {
  const auto display = HeadlessDisplay::start();
  testing::TempDirectory directory;
  const auto file = directory / "typed.txt";
  testing::ChildProcess terminal({"env", "LC_ALL=C.UTF-8", "xterm", "-u8", "-e", "sh", "-c",
                                  "cat > " + testing::shellQuote(file.string())});
  X11WindowSystem windows(display->displayName());
  ASSERT_TRUE(testing::eventually([&] {
    for (const WindowInfo& window : windows.windows()) {
      if (windows.activeWindow() == window.id && window.pid == terminal.pid()) {
        return std::filesystem::exists(file);
      }
    }
    return false;
  })) << terminal.errorOutput();

  X11InputBackend backend(display->displayName());
  InputSimulator input(backend, steadyClock());
  // Plain and shifted ASCII, Latin-1 and characters no key of the US map has.
  const std::string text =
      "Hello, World! ~`|\\\"'<>{}[]()_+=-*&^%$#@\n"
      "héllo ✓ 日本 Ω ½ €\n";
  input.typeText(text, 0.005, false);
  input.pressKey("d", {Modifier::control});  // end of input: cat exits, and xterm with it
  ASSERT_EQ(terminal.wait(10s), 0);
  std::ifstream typed(file, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(typed), {}), text);
}

}  // namespace
}  // namespace brimble::x11
