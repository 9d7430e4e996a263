#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Platform/ATSPI/ATSPIAccessibility.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11GlobalHotkey.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "BrimbleCore/Platform/X11/X11WindowSystem.h"
#include "tests/Support/AppEnvironment.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/Files.h"
#include "tests/Support/ImageFiles.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/X11Helpers.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::HasSubstr;

/// brimble-app in an embedded display as a new user starts it: no settings file, its folders
/// private to the test, its widgets shown on the accessibility bus so the test can read them.
class FirstRun : public ::testing::Test {
 protected:
  void startApp() {
    std::vector<std::string> environment = testing::privateAppEnvironment(folder_.path());
    environment.push_back("QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1");
    // No `brimble` on this PATH, so one check is missing and shows its fix.
    environment.push_back("PATH=/usr/bin:/bin");
    app_.emplace(std::vector<std::string>{BRIMBLE_APP_BINARY}, environment);
  }

  void stopApp() {
    app_->signal(SIGTERM);
    EXPECT_TRUE(app_->wait(10s));
    app_.reset();
  }

  void TearDown() override {
    if (app_) {
      stopApp();
    }
  }

  std::optional<WindowInfo> windowTitled(const std::string& title) {
    std::optional<WindowInfo> found;
    testing::eventually([&] {
      for (const WindowInfo& window : windows_.windows()) {
        if (window.title == title) {
          found = window;
          return true;
        }
      }
      return false;
    });
    return found;
  }

  bool anyWindowTitled(const std::string& title) {
    for (const WindowInfo& window : windows_.windows()) {
      if (window.title == title) {
        return true;
      }
    }
    return false;
  }

  /// The app's elements on the accessibility bus, once it is there.
  std::unique_ptr<ElementDriver> elements() { return accessibility_.driverFor(app_->pid()); }

  /// Waits until `target` is on screen in the app.
  bool shows(ElementDriver& driver, const std::string& target) {
    return testing::eventually([&] { return driver.find(target).has_value(); });
  }

  /// Keeps the window (with its frame) as a test artefact, to be looked at.
  void keepWindow(const std::string& title, const std::string& name) {
    const auto window = windowTitled(title);
    ASSERT_TRUE(window);
    const auto stream = screens_.openStream(CaptureTarget::screenAreaOf(window->frame), false);
    const auto image = stream->grab();
    ASSERT_TRUE(image);
    testing::keepArtifact(*image, "first-run", name);
  }

  std::unique_ptr<x11::HeadlessDisplay> display_ = x11::HeadlessDisplay::start();
  testing::TempDirectory folder_;
  x11::X11WindowSystem windows_{display_->displayName()};
  x11::X11ScreenSource screens_{display_->displayName()};
  atspi::ATSPIAccessibility accessibility_;
  std::optional<testing::ChildProcess> app_;
};

TEST_F(FirstRun, ANewUserIsWelcomedOnceWithTheChecklistThatSettingsShowsToo) {
  startApp();
  const auto welcome = windowTitled("Welcome to Brimble");
  ASSERT_TRUE(welcome) << app_->errorOutput();
  const auto driver = elements();
  ASSERT_TRUE(driver);
  EXPECT_TRUE(shows(*driver, "text:Select a region by dragging"));
  EXPECT_TRUE(shows(*driver, "text:Ctrl+Shift+G"));
  for (const char* title : {"Display server", "Screen capture", "Remembered permission",
                            "Input for scripts and assistants", "Accessibility bus", "Sound server",
                            "Command line on PATH", "Free temporary space"}) {
    EXPECT_TRUE(shows(*driver, std::string("text:") + title)) << title;
  }
  EXPECT_TRUE(
      shows(*driver, "text:the X11 display " + display_->displayName() + " can be captured"));
  EXPECT_TRUE(shows(*driver, "text:Brimble can record on this desktop."));
  EXPECT_TRUE(shows(*driver, "text:To fix: choose Install Command-Line Tool"));
  std::this_thread::sleep_for(300ms);
  keepWindow("Welcome to Brimble", "welcome.png");

  ASSERT_TRUE(windows_.close(welcome->id));
  EXPECT_TRUE(testing::eventually([&] { return !anyWindowTitled("Welcome to Brimble"); }));
  const fs::path settings = folder_ / "config" / "brimble" / "brimble.conf";
  EXPECT_TRUE(testing::eventually([&] {
    return testing::readFile(settings).find("firstRunCompleted=true") != std::string::npos;
  }));

  // The Permissions tab of the settings holds the same list.
  driver->press("role:push button/Settings");
  ASSERT_TRUE(windowTitled("Settings — Brimble"));
  driver->press("role:page tab/Permissions");
  EXPECT_TRUE(shows(*driver, "text:What Brimble can use on this desktop"));
  EXPECT_TRUE(
      shows(*driver, "text:the X11 display " + display_->displayName() + " can be captured"));
  EXPECT_TRUE(shows(*driver, "text:To fix: choose Install Command-Line Tool"));
  driver->press("role:push button/Check again");
  EXPECT_TRUE(shows(*driver, "text:Brimble can record on this desktop."));
  std::this_thread::sleep_for(300ms);
  keepWindow("Settings — Brimble", "settings-permissions.png");
  stopApp();

  startApp();
  ASSERT_TRUE(windowTitled("Brimble")) << app_->errorOutput();
  // The welcome would open as soon as the event loop runs; give it well over that.
  std::this_thread::sleep_for(1500ms);
  EXPECT_FALSE(anyWindowTitled("Welcome to Brimble"));
}

TEST_F(FirstRun, WhereTheShortcutCannotBeTakenTheWelcomeSaysWhatADesktopShortcutShouldRun) {
  // Another program holds the app's shortcut, as a desktop without global shortcuts would
  // leave it without one.
  const x11::X11GlobalHotkey taken("Ctrl+Shift+G", display_->displayName());
  startApp();
  ASSERT_TRUE(windowTitled("Welcome to Brimble")) << app_->errorOutput();
  const auto driver = elements();
  ASSERT_TRUE(driver);
  EXPECT_TRUE(shows(*driver, "text:could not take Ctrl+Shift+G as a global shortcut"));
  EXPECT_TRUE(shows(*driver, std::string("text:") + BRIMBLE_APP_BINARY + " --toggle"));
  std::this_thread::sleep_for(300ms);
  keepWindow("Welcome to Brimble", "welcome-without-shortcut.png");
}

}  // namespace
}  // namespace brimble
