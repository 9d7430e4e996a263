// The accessibility service against real GTK dialogs (zenity) in the embedded display, on the
// accessibility bus its session bus starts.

#include "BrimbleCore/Platform/ATSPI/ATSPIAccessibility.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string_view>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Platform/PlatformBackend.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11InputBackend.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Images.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/X11Helpers.h"

namespace brimble::atspi {
namespace {

using namespace std::chrono_literals;

// A driver for `app`'s elements once its `target` is on screen (GTK builds its tree as it maps).
std::unique_ptr<ElementDriver> driverWhenShown(ATSPIAccessibility& accessibility,
                                               const testing::ChildProcess& app,
                                               const std::string& target) {
  for (int i = 0; i < 100; ++i) {
    try {
      auto driver = accessibility.driverFor(app.pid());
      if (driver->find(target)) {
        return driver;
      }
    } catch (const DemoDriverError&) {
      // not on the bus yet
    }
    std::this_thread::sleep_for(100ms);
  }
  return nullptr;
}

// How the check boxes called "checkbutton" that are on screen stand, in the tree's order, as the
// bus tells an independent reader: "usable" or "greyed", then "checked" and "mixed".
std::vector<std::string> checkButtonStates(int pid) {
  const testing::CommandResult read =
      testing::runCommand(BRIMBLE_SOURCE_DIR "/tests/Support/atspi-states.py " +
                          std::to_string(pid) + " 'check box' checkbutton");
  std::vector<std::string> states;
  std::istringstream lines(read.output);
  for (std::string line; std::getline(lines, line);) {
    states.push_back(line);
  }
  return states;
}

// A process reaches the accessibility bus of one session: the tests share one display.
class ATSPIAccessibilityTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { display_ = x11::HeadlessDisplay::start(); }
  static void TearDownTestSuite() { display_.reset(); }

  static std::unique_ptr<x11::HeadlessDisplay> display_;
  ATSPIAccessibility accessibility;
};
std::unique_ptr<x11::HeadlessDisplay> ATSPIAccessibilityTest::display_;

TEST_F(ATSPIAccessibilityTest, ListsFindsFillsAndPressesTheElementsOfAGtkDialog) {
  std::string reason;
  ASSERT_TRUE(accessibility.available(reason)) << reason;
  testing::ChildProcess zenity({"zenity", "--entry", "--title", "Greeter", "--text", "Your name:"});
  const auto driver = driverWhenShown(accessibility, zenity, "text:OK");
  ASSERT_TRUE(driver) << zenity.errorOutput();

  const std::vector<DiscoveredElement> elements = driver->listElements(100);
  const auto listed = [&](const std::string& role, const std::string& text) {
    return std::any_of(elements.begin(), elements.end(), [&](const DiscoveredElement& e) {
      return e.role == role && e.text == text && !e.rect.empty() &&
             driver->find(e.selector) == e.rect;
    });
  };
  EXPECT_TRUE(listed("push button", "OK"));
  EXPECT_TRUE(listed("push button", "Cancel"));
  EXPECT_TRUE(listed("label", "Your name:"));
  EXPECT_EQ(driver->listElements(2).size(), 2u);
  EXPECT_FALSE(driver->find("text:Nowhere"));
  EXPECT_THAT(testing::errorText<DemoDriverError>([&] { driver->find("css:#name"); }),
              ::testing::HasSubstr("css: selectors require Chrome"));
  EXPECT_EQ(testing::errorText<DemoDriverError>([&] { driver->press("text:Nowhere"); }),
            "Element not found: text:Nowhere");
  // A label takes no text; the engine types into such elements instead.
  EXPECT_EQ(testing::errorText<DemoDriverError>([&] { driver->setValue("text:Your name", "x"); }),
            "Unsupported: Element does not support direct value-setting");

  // The entry's rectangle is where a capture shows its white field.
  const auto entry = std::find_if(elements.begin(), elements.end(),
                                  [](const DiscoveredElement& e) { return e.role == "entry"; });
  ASSERT_NE(entry, elements.end());
  x11::X11ScreenSource screen(display_->displayName());
  const auto picture = screen.openStream(CaptureTarget::screenAreaOf(entry->rect), false)->grab();
  ASSERT_TRUE(picture);
  const testing::Pixel middle =
      testing::pixelAt(*picture, entry->rect.width / 2, entry->rect.height / 2);
  EXPECT_GT(middle.r + middle.g + middle.b, 3 * 240) << "not the entry's field";

  // Filled through the editable text, sent with the OK button: zenity prints what it holds.
  driver->setValue(entry->selector, "Ada Lovelace");
  driver->press("role:AXButton/OK");
  EXPECT_EQ(zenity.readLine(5000ms), "Ada Lovelace");
  EXPECT_EQ(zenity.wait(5000ms), 0);
}

TEST_F(ATSPIAccessibilityTest, FindsFillsAndPressesTheElementsOfAQtApplication) {
  // Qt shows its tree only when asked, as the apps Brimble launches are.
  std::vector<std::string> environment{"QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1"};
  for (char** entry = environ; *entry != nullptr; ++entry) {
    environment.emplace_back(*entry);
  }
  testing::ChildProcess app({BRIMBLE_QT_FORM_APP}, environment);
  const auto driver = driverWhenShown(accessibility, app, "role:push button/Greet");
  ASSERT_TRUE(driver) << app.errorOutput();
  const std::vector<DiscoveredElement> elements = driver->listElements(50);
  const auto selectors = [&] {
    std::vector<std::string> listed;
    for (const DiscoveredElement& element : elements) {
      listed.push_back(element.selector);
    }
    return listed;
  }();
  EXPECT_THAT(selectors, ::testing::IsSupersetOf({"role:entry/Name", "role:push button/Greet",
                                                  "role:label/Nobody greeted yet"}));
  // The AX name of a field finds the line edit, as the toolkit's own name for it does.
  EXPECT_EQ(driver->find("role:AXTextField/Name"), driver->find("role:text/Name"));
  driver->setValue("role:AXTextField/Name", "Grace Hopper");
  driver->press("text:Greet");
  EXPECT_EQ(app.readLine(5000ms), "Grace Hopper");
  EXPECT_TRUE(
      testing::eventually([&] { return driver->find("text:Hello, Grace Hopper").has_value(); }));
}

TEST_F(ATSPIAccessibilityTest, AnswersDialogsByTheirButtonsOrWithEscape) {
  const std::vector<std::string> question = {
      "zenity", "--question", "--text", "Ship it?", "--ok-label", "Ship", "--cancel-label", "Wait"};
  testing::ChildProcess first(question);
  ASSERT_TRUE(driverWhenShown(accessibility, first, "text:Ship")) << first.errorOutput();
  EXPECT_EQ(accessibility.clickButtonInDialog(first.pid(), "Maybe"), DialogOutcome::noButton);
  EXPECT_EQ(accessibility.clickButtonInDialog(first.pid(), "ship"), DialogOutcome::clicked);
  EXPECT_EQ(first.wait(5000ms), 0) << "Ship answers yes";

  testing::ChildProcess second(question);
  ASSERT_TRUE(driverWhenShown(accessibility, second, "text:Ship")) << second.errorOutput();
  EXPECT_EQ(accessibility.dismissDialog(second.pid()), DialogOutcome::dismissed);
  EXPECT_EQ(second.wait(5000ms), 1) << "Escape answers no";
  // A process with no window on the bus has no dialog.
  EXPECT_EQ(accessibility.dismissDialog(second.pid()), DialogOutcome::noDialog);
}

TEST_F(ATSPIAccessibilityTest, ATargetOfSeveralElementsTakesAnEnabledOneAndSaysWhichOne) {
  // GTK's widget gallery shows six check boxes of the same name, some of them greyed out; the
  // first in its tree is one of those.
  std::vector<std::string> environment{"DISPLAY=" + display_->displayName()};
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (!std::string_view(*entry).starts_with("DISPLAY=")) {
      environment.emplace_back(*entry);
    }
  }
  testing::ChildProcess gallery({"gtk3-widget-factory"}, environment);
  const std::string target = "role:check box/checkbutton";
  const auto driver = driverWhenShown(accessibility, gallery, target + "[6]");
  ASSERT_TRUE(driver) << gallery.errorOutput();
  const std::vector<std::string> before = checkButtonStates(gallery.pid());
  ASSERT_EQ(before.size(), 6u);
  ASSERT_THAT(before.front(), ::testing::StartsWith("greyed"));
  const auto usable = std::find_if(before.begin(), before.end(), [](const std::string& state) {
    return state.starts_with("usable");
  });
  ASSERT_NE(usable, before.end());
  const auto picked = static_cast<std::size_t>(usable - before.begin());

  testing::LogCapture log;
  driver->press(target);
  std::vector<std::string> after;
  ASSERT_TRUE(testing::eventually([&] {
    after = checkButtonStates(gallery.pid());
    return after != before;
  }));
  for (std::size_t i = 0; i < before.size(); ++i) {
    EXPECT_EQ(after[i] != before[i], i == picked) << "check box " << i + 1 << ": " << after[i];
  }
  const std::string named = target + "[" + std::to_string(picked + 1) + "]";
  const char* const ordinals[] = {"1st", "2nd", "3rd", "4th", "5th", "6th"};
  EXPECT_THAT(log.lines(),
              ::testing::ElementsAre("Warning: 'role:check box/checkbutton' matches 6 elements; "
                                     "using the " +
                                     std::string(ordinals[picked]) +
                                     " (the first that is enabled): " + named));
  // Said once for the target, however often it is used.
  EXPECT_EQ(driver->find(target), driver->find(named));
  EXPECT_EQ(log.lines().size(), 1u);

  // Each listed target names its own element: the six check boxes are told apart by number.
  const std::vector<DiscoveredElement> elements = driver->listElements(1000);
  std::set<std::string> selectors;
  std::vector<std::string> checkBoxes;
  for (const DiscoveredElement& element : elements) {
    EXPECT_TRUE(selectors.insert(element.selector).second) << element.selector;
    if (element.role == "check box" && element.text == "checkbutton") {
      checkBoxes.push_back(element.selector);
      EXPECT_EQ(driver->find(element.selector), element.rect) << element.selector;
    }
  }
  EXPECT_THAT(checkBoxes, ::testing::ElementsAre(target + "[1]", target + "[2]", target + "[3]",
                                                 target + "[4]", target + "[5]", target + "[6]"));
  EXPECT_EQ(testing::errorText<DemoDriverError>([&] { driver->press(target + "[7]"); }),
            "Element not found: role:check box/checkbutton[7] (6 elements match)");
  EXPECT_EQ(log.lines().size(), 1u) << "a numbered target is no ambiguity";
}

TEST_F(ATSPIAccessibilityTest, WithoutTheBusOrXTestTheGateSaysWhatIsMissingWithoutWaiting) {
  const testing::ChildProcess xterm({"xterm"});
  testing::CommandResult result;
  EXPECT_TRUE(testing::eventually([&] {
    result = testing::runCommand("env -u DBUS_SESSION_BUS_ADDRESS " +
                                 testing::brimbleCommand("inspect --app xterm 2>&1"));
    return result.output.find("no window") == std::string::npos;
  }));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, ::testing::HasSubstr("Accessibility permission is required to "
                                                  "inspect xterm. Enable the AT-SPI accessibility "
                                                  "bus (package at-spi2-core) for it. (there is no "
                                                  "session bus"));
  // With it, the same command finds the dialog's button, as JSON.
  testing::ChildProcess zenity({"zenity", "--info", "--text", "Done"});
  ASSERT_TRUE(driverWhenShown(accessibility, zenity, "text:OK"));
  result = testing::runCommand(
      testing::brimbleCommand("inspect --app zenity --target 'role:AXButton/OK' --json"));
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.output, ::testing::HasSubstr(R"({"found":true,"rect":{)"));

  // The bus answers, but a display without XTest takes no synthesized keys: the desktop the
  // platform opens there says so.
  testing::ChildProcess keyless(
      {"Xvfb", "-displayfd", "1", "-extension", "XTEST", "-nolisten", "tcp"});
  const auto number = keyless.readLine(10000ms);
  ASSERT_TRUE(number) << keyless.errorOutput();
  ::setenv("DISPLAY", (":" + *number).c_str(), 1);
  const auto desktop = platform::openDesktop(platform::DesktopChoice::user);
  ASSERT_NE(desktop->accessibility(), nullptr);
  std::string reason;
  EXPECT_FALSE(desktop->accessibility()->available(reason));
  EXPECT_EQ(reason, "the display has no XTest extension, so keys cannot be sent to it");
  EXPECT_EQ(desktop->accessibility()->requirement(), "the XTest extension and the AT-SPI bus");
}

}  // namespace
}  // namespace brimble::atspi
