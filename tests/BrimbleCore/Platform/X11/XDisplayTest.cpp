#include "BrimbleCore/Platform/X11/XDisplay.h"

#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11EventCapture.h"
#include "BrimbleCore/Platform/X11/X11InputBackend.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "BrimbleCore/Platform/X11/X11WindowSystem.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/LogCapture.h"

namespace brimble::x11 {
namespace {

using testing::errorText;

TEST(XDisplay, EveryConnectionReportsItsServerEndingInsteadOfExitingTheProcess) {
  const auto display = HeadlessDisplay::start({.sessionBus = false});
  const std::string name = display->displayName();
  X11ScreenSource source(name);
  const auto region = source.openStream(CaptureTarget::screenAreaOf({0, 0, 64, 64}), true);
  ASSERT_TRUE(region->grab());
  X11InputBackend input(name);
  X11WindowSystem windows(name);
  X11EventCapture events(name, steadyClock());
  ASSERT_TRUE(events.start());
  testing::LogCapture log;

  ::kill(display->serverPid(), SIGKILL);
  for (int i = 0; i < 500 && processAlive(display->serverPid()); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  const std::string lost = "Lost the connection to the X display " + name + ": the X server ended.";
  EXPECT_EQ(
      errorText<ScreenCaptureError>([&] { region->grab(); }),
      "Lost the connection to the X display \"" + name + "\" being recorded: the X server ended.");
  EXPECT_EQ(errorText<XDisplayError>([&] { input.keyDown(38); }), lost);
  EXPECT_EQ(errorText<XDisplayError>([&] { input.cursorPosition(); }), lost);
  EXPECT_EQ(errorText<XDisplayError>([&] { windows.windows(); }), lost);
  EXPECT_EQ(errorText<XDisplayError>([&] { windows.activeWindow(); }), lost);
  EXPECT_TRUE(events.stopAndCollectEvents().empty());
  EXPECT_THAT(log.lines(), ::testing::Contains("BrimbleCore: Event capture stopped: " + lost));
  EXPECT_EQ(errorText<ScreenCaptureError>([&] { source.displays(); }),
            "Couldn't connect to the X display \"" + name + "\" to record it.");
}

}  // namespace
}  // namespace brimble::x11
