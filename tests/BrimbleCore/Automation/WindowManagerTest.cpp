#include "BrimbleCore/Automation/WindowManager.h"

#include <chrono>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/FakeAppLauncher.h"
#include "tests/Support/FakeClock.h"
#include "tests/Support/FakeWindowSystem.h"
#include "tests/Support/LogCapture.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::errorText;
using ::testing::IsEmpty;

WindowInfo window(std::uint32_t id, std::string app, int pid = 0,
                  ScreenRect frame = {10, 10, 100, 80}) {
  return {id, "title " + std::to_string(id), std::move(app), pid, frame, frame};
}

struct WindowRig {
  explicit WindowRig(std::set<std::string> installed = {"xterm"})
      : launcher(std::move(installed)) {}
  testing::FakeClock clock;
  testing::FakeWindowSystem system{clock};
  testing::FakeAppLauncher launcher;
  WindowManager manager{system, launcher, clock};
};

TEST(WindowManager, AnExactNameWinsThenTheFrontmostAndTheOthersAreCounted) {
  WindowRig rig;
  rig.system.add(window(1, "Terminal Helper"));
  rig.system.add(window(2, "Terminal"));
  rig.system.add(window(3, "XTerm"));
  rig.system.add(window(4, "Gedit"));
  rig.system.add(window(5, ""));
  rig.system.add(window(7, "tool", 50, {0, 0, 0, 30}));
  rig.system.add(window(8, "tool", 50));

  const auto terminal = rig.manager.find("terminal");
  ASSERT_TRUE(terminal);
  EXPECT_EQ(terminal->window.id, 2u);
  EXPECT_EQ(terminal->otherMatches, 2);  // the helper, and XTerm, a terminal program
  const auto term = rig.manager.find("term");
  ASSERT_TRUE(term);
  EXPECT_EQ(term->window.id, 1u);
  EXPECT_EQ(term->otherMatches, 2);
  EXPECT_EQ(rig.manager.find("XTERM")->window.id, 3u);
  EXPECT_EQ(rig.manager.find("XTERM")->otherMatches, 0);
  EXPECT_EQ(rig.manager.find("TextEdit")->window.id, 4u);
  EXPECT_FALSE(rig.manager.find("Safari"));
  // By owner, windows without width or height do not count; by id, they do.
  EXPECT_EQ(rig.manager.find(OwnerPID{50})->id, 8u);
  EXPECT_FALSE(rig.manager.find(OwnerPID{51}));
  EXPECT_EQ(rig.manager.find(7u)->id, 7u);
  EXPECT_FALSE(rig.manager.find(9u));
}

TEST(WindowManager, OpenAppReturnsTheNewWindowFocusedAndCleanupClosesOnlyIt) {
  WindowRig rig({"konsole", "xterm"});
  rig.system.add(window(1, "XTerm"));
  rig.launcher.onLaunch = [&] { rig.system.addAt(rig.clock.now() + 120ms, window(2, "konsole")); };
  EXPECT_EQ(rig.manager.openApp("Terminal"), 2u);
  EXPECT_THAT(rig.launcher.launches(), ElementsAre("launch konsole"));
  EXPECT_THAT(rig.clock.sleeps(), ElementsAre(50ms, 50ms, 50ms));
  rig.manager.cleanupScriptWindows();
  rig.manager.cleanupScriptWindows();
  EXPECT_THAT(rig.system.lines(), ElementsAre("activate 2", "close 2"));
}

TEST(WindowManager, ADressedTerminalIsAlwaysXtermAndItsWindowIsTheScripts) {
  WindowRig rig({"x-terminal-emulator", "xterm"});
  rig.launcher.onLaunch = [&] { rig.system.add(window(3, "XTerm")); };
  TerminalLook look;
  look.title = "demo";
  EXPECT_EQ(rig.manager.openTerminal(look), 3u);
  ASSERT_EQ(rig.launcher.launches().size(), 1u);
  EXPECT_EQ(rig.launcher.launches()[0].substr(0, 12), "launch xterm");
  rig.manager.cleanupScriptWindows();
  EXPECT_THAT(rig.system.lines(), ElementsAre("activate 3", "close 3"));

  WindowRig without({"x-terminal-emulator", "konsole"});
  EXPECT_EQ(errorText<WindowManagerError>([&] { without.manager.openTerminal(look); }),
            "Failed to open Terminal: xterm is not installed, and only xterm takes a look of "
            "its own");
  EXPECT_THAT(without.launcher.launches(), IsEmpty());
}

TEST(WindowManager, CleanupClosesTheOtherWindowsWhenThePlatformRefusesToCloseOne) {
  WindowRig rig;
  int launched = 0;
  rig.launcher.onLaunch = [&] { rig.system.add(window(++launched, "XTerm")); };
  rig.manager.openApp("xterm");
  rig.manager.openApp("xterm");
  rig.system.setRefusesClose(2);
  testing::LogCapture log;
  rig.manager.cleanupScriptWindows();
  EXPECT_THAT(rig.system.lines(), ElementsAre("activate 1", "activate 2", "close 2", "close 1"));
  EXPECT_THAT(log.lines(), ElementsAre("BrimbleCore: WindowManager: Cannot close window 2: it has "
                                       "no close button"));
  // Asked directly, the refusal is the caller's to report.
  EXPECT_EQ(errorText<WindowManagerError>([&] { rig.manager.close("xterm", 2); }),
            "Cannot close window 2: it has no close button");
}

TEST(WindowManager, OpenAppFallsBackToTheFrontmostWindowAfterTenSeconds) {
  WindowRig rig;
  rig.system.add(window(1, "XTerm"));
  testing::LogCapture log;
  const auto start = rig.clock.now();
  EXPECT_EQ(rig.manager.openApp("Terminal"), 1u);
  EXPECT_EQ(rig.clock.now() - start, 10s);
  EXPECT_THAT(log.lines(), ElementsAre("BrimbleCore: WindowManager: No new window detected for "
                                       "Terminal, using frontmost (ID: 1)"));
  rig.manager.cleanupScriptWindows();
  EXPECT_THAT(rig.system.lines(), ElementsAre("activate 1"));  // not ours to close

  WindowRig empty({"gedit"});
  EXPECT_EQ(errorText<WindowManagerError>([&] { empty.manager.openApp("gedit"); }),
            "gedit is running but has no window to target. Open a window in gedit (e.g. File > "
            "New, or click its Dock icon), then re-run.");
}

TEST(WindowManager, OpenAppFailures) {
  WindowRig nothing(std::set<std::string>{});
  EXPECT_EQ(errorText<WindowManagerError>([&] { nothing.manager.openApp("Terminal"); }),
            "Failed to open Terminal: none of x-terminal-emulator, gnome-terminal, konsole, "
            "xfce4-terminal, xterm is installed");
  EXPECT_EQ(errorText<WindowManagerError>([&] { nothing.manager.openApp("Gimp"); }),
            "Failed to open Gimp: gimp is not installed");

  WindowRig broken({"gimp"});
  broken.launcher.setFailLaunch(true);
  EXPECT_EQ(errorText<WindowManagerError>([&] { broken.manager.openApp("Gimp"); }),
            "Failed to open Gimp: start gimp: Exec format error");

  WindowRig unlisted({"gimp"});
  unlisted.system.setFailListing(true);
  testing::LogCapture log;
  EXPECT_EQ(errorText<WindowManagerError>([&] { unlisted.manager.openApp("Gimp"); }),
            "Cannot list windows: no window manager");
  EXPECT_THAT(log.lines(),
              ElementsAre("BrimbleCore: WindowManager: Failed to snapshot window IDs for Gimp"));
  EXPECT_THAT(unlisted.launcher.launches(), ElementsAre("launch gimp"));
}

TEST(WindowManager, FocusResizeAndClose) {
  WindowRig rig;
  rig.system.add(window(2, "XTerm", 0, {50, 60, 400, 300}));
  rig.system.add(window(3, "Gedit"));
  rig.manager.focusApp("Terminal");
  rig.manager.resize("terminal", 800, 600);
  EXPECT_THAT(rig.system.lines(), ElementsAre("activate 2", "move-resize 2 0,0 800x600"));
  EXPECT_THAT(rig.clock.sleeps(), IsEmpty());  // both were done at once
  EXPECT_EQ(errorText<WindowManagerError>([&] { rig.manager.focusApp("Safari"); }),
            "No window found for app 'Safari'");
  EXPECT_EQ(errorText<WindowManagerError>([&] { rig.manager.resize("Safari", 10, 10); }),
            "No window found for app 'Safari'");

  testing::LogCapture log;
  rig.system.setRefusesFocus(true);
  rig.manager.focusApp("gedit");
  EXPECT_EQ(rig.clock.sleeps().size(), 100u);  // up to a second, every 10 ms
  rig.manager.close("Terminal", 99);
  EXPECT_THAT(log.lines(),
              ElementsAre("BrimbleCore: WindowManager: Window 3 did not become active",
                          "BrimbleCore: WindowManager: Failed to close window 99 for Terminal"));
}

// An accessibility service whose dialogs answer as told, and which records who was asked.
class ScriptedAccessibility final : public AccessibilityBackend {
 public:
  bool answers = true;
  DialogOutcome outcome = DialogOutcome::clicked;
  std::vector<std::string> asked;

  bool available(std::string& reason) override {
    reason = answers ? "" : "the bus is down";
    return answers;
  }
  std::string requirement() const override { return "the test's bus"; }
  std::unique_ptr<ElementDriver> driverFor(int) override { return nullptr; }
  DialogOutcome clickButtonInDialog(int pid, const std::string& button) override {
    asked.push_back("click " + button + " for " + std::to_string(pid));
    return outcome;
  }
  DialogOutcome dismissDialog(int pid) override {
    asked.push_back("dismiss for " + std::to_string(pid));
    return outcome;
  }
};

TEST(WindowManager, DialogsAreAnsweredThroughTheAccessibilityServiceOfTheAppsProcess) {
  testing::FakeClock clock;
  testing::FakeWindowSystem system{clock};
  testing::FakeAppLauncher launcher({"gedit"});
  ScriptedAccessibility accessibility;
  WindowManager manager{system, launcher, clock, &accessibility};
  system.add(window(1, "Gedit", 77));

  EXPECT_EQ(manager.clickButtonInDialog("gedit", "Save"), "Clicked 'Save' in gedit dialog");
  accessibility.outcome = DialogOutcome::noButton;
  EXPECT_EQ(manager.clickButtonInDialog("gedit", "Save"),
            "Warning: click-button-in-dialog found no 'Save' button in a dialog of gedit");
  accessibility.outcome = DialogOutcome::dismissed;
  EXPECT_EQ(manager.dismissDialog("gedit"), "Dismissed dialog in gedit — sent Escape");
  accessibility.outcome = DialogOutcome::noDialog;
  EXPECT_EQ(manager.dismissDialog("gedit"), "Warning: dismiss-dialog found no dialog of gedit");
  EXPECT_EQ(manager.dismissDialog(""),
            "Warning: dismiss-dialog called with no app name — skipping");
  EXPECT_EQ(manager.clickButtonInDialog("", "OK"),
            "Warning: click-button-in-dialog called with no app name — skipping");
  EXPECT_THAT(accessibility.asked, ElementsAre("click Save for 77", "click Save for 77",
                                               "dismiss for 77", "dismiss for 77"));
  EXPECT_EQ(errorText<WindowManagerError>([&] { manager.dismissDialog("mousepad"); }),
            WindowManagerError::windowNotFound("mousepad").what());

  testing::LogCapture log;
  EXPECT_TRUE(manager.accessibilityGranted(false, "fill"));
  accessibility.answers = false;
  EXPECT_FALSE(manager.accessibilityGranted(true, "fill"));
  EXPECT_FALSE(manager.accessibilityGranted(false, "fill"));
  EXPECT_THAT(log.lines(),
              ElementsAre("Warning: fill requires Accessibility (the test's bus). Install "
                          "at-spi2-core and enable accessibility for the app, then re-run."));

  WindowManager without{system, launcher, clock};
  EXPECT_EQ(errorText<DemoDriverError>([&] { without.clickButtonInDialog("gedit", "OK"); }),
            "Permission denied: dialogs are answered through the accessibility service, and "
            "none is available");
}

}  // namespace
}  // namespace brimble
