// Input through the desktop portal in a real headless GNOME session, into a GTK window read
// back through the accessibility bus.

#include "BrimbleCore/Platform/Wayland/WaylandInputBackend.h"

#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "BrimbleCore/Automation/InputSimulator.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/GtkTestForm.h"
#include "tests/Support/ImageFiles.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/WaylandSession.h"

namespace brimble::wayland {
namespace {

using namespace std::chrono_literals;

// "héllo ✓ Ω": an accent the US keymap lacks, a symbol no keymap has, a Greek capital.
const std::string kUnicode = "h\xc3\xa9llo \xe2\x9c\x93 \xce\xa9";

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(WaylandInputBackend, TypesExactUnicodeIntoAGtkEntryAndAGtkWidgetThatIsNoTextField) {
  const auto session = testing::WaylandSession::start();
  if (!session) {
    GTEST_SKIP() << "no mutter on this machine";
  }
  const std::filesystem::path picture = testing::artifactPath("wayland", "input-typed.png");
  testing::GtkTestForm form("Typing", {.snapshot = picture});
  ASSERT_TRUE(form.shown());
  testing::TempDirectory state;
  WaylandInputBackend backend(
      std::make_shared<DesktopPortal>(),
      {.tokenFile = state / "brimble" / "remote-desktop-token", .dialogTimeout = 30s});
  InputSimulator input(backend, steadyClock());

  session->approveRemoteDesktopAfter(1500ms);
  const ScreenPoint entry = form.middleOf("role:entry");
  input.click(entry.x, entry.y, MouseButton::left);
  EXPECT_TRUE(session->waitForDialogHelper());
  ASSERT_TRUE(form.waitUntilActive());

  // Keys for ASCII, the entry's editable text for the rest, in order.
  auto started = std::chrono::steady_clock::now();
  input.typeText(kUnicode, 0.02, false);
  EXPECT_EQ(form.entryWhen(kUnicode), kUnicode);
  std::cout << "[ measured ] \"" << kUnicode << "\" into a GTK entry: " << secondsSince(started)
            << " s\n";

  // Without a pause, keys and insertions alternate as fast as they go, and still keep order.
  input.pressKey("a", {Modifier::control});
  input.pressKey("delete", {});
  EXPECT_EQ(form.entryWhen(""), "");
  const std::string mixed =
      "a\xc3\xa9"
      "b\xce\xa9"
      "c\xe2\x9c\x93"
      "d\xc3\xb1"
      "e\xe2\x82\xac"
      "f\xe2\x80\x94"
      "g";
  std::string fast;
  for (int i = 0; i < 4; ++i) {
    fast += mixed;
  }
  started = std::chrono::steady_clock::now();
  input.typeText(fast, 0, false);
  EXPECT_EQ(form.entryWhen(fast), fast);
  std::cout << "[ measured ] 52 characters, 24 of them without keys, at full speed: "
            << secondsSince(started) << " s\n";

  // Typing over a selection replaces it, as keys would; the compositor adds Shift where the
  // keymap needs it.
  input.pressKey("a", {Modifier::control});
  const std::string ascii = "Hello, World! 1+1=2 ~ (ok) [x] {y} <z> @#$%^&*_|\\:;\"'?/.,`";
  input.typeText(ascii, 0, false);
  EXPECT_EQ(form.entryWhen(ascii), ascii);
  input.pressKey("a", {Modifier::control});
  input.typeText("\xce\xa9", 0, false);
  EXPECT_EQ(form.entryWhen("\xce\xa9"), "\xce\xa9");

  // A widget that takes keys but is no text field, as a terminal: GTK's Unicode entry.
  const ScreenPoint pad = form.middleOf("role:drawing area/Keys");
  input.click(pad.x, pad.y, MouseButton::left);
  started = std::chrono::steady_clock::now();
  input.typeText(kUnicode, 0.02, false);
  EXPECT_EQ(testing::GtkTestForm::whenEqual([&] { return form.text("label", "keys:"); },
                                            "keys: " + kUnicode),
            "keys: " + kUnicode);
  std::cout << "[ measured ] \"" << kUnicode
            << "\" through GTK's Unicode entry: " << secondsSince(started) << " s\n";
  EXPECT_TRUE(form.snapshot());
}

TEST(WaylandInputBackend, ClicksAGtkButtonAndScrollsTheListUnderThePointer) {
  const auto session = testing::WaylandSession::start();
  if (!session) {
    GTEST_SKIP() << "no mutter on this machine";
  }
  testing::GtkTestForm form("Pointer");
  ASSERT_TRUE(form.shown());
  WaylandInputBackend backend(std::make_shared<DesktopPortal>(), {.dialogTimeout = 30s});
  InputSimulator input(backend, steadyClock());

  session->approveRemoteDesktopAfter(1500ms);
  const ScreenPoint button = form.middleOf("role:push button/Press me");
  input.click(button.x, button.y, MouseButton::left);
  EXPECT_TRUE(session->waitForDialogHelper());
  input.smoothMove(button.x + 100, button.y, 0.2);
  input.click(button.x + 100, button.y, MouseButton::left);
  EXPECT_EQ(
      testing::GtkTestForm::whenEqual([&] { return form.text("label", "clicked"); }, "clicked 2"),
      "clicked 2");
  // A right click is no click of a GTK button.
  input.click(button.x, button.y, MouseButton::right);
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(form.text("label", "clicked"), "clicked 2");
  EXPECT_EQ(input.cursorPosition(), button);

  // The wheel scrolls what is under the pointer, down and back up by as much.
  const auto firstLineShown = [&] {
    for (const DiscoveredElement& element : form.elements().listElements(400)) {
      if (element.role == "label" && element.text.starts_with("line ")) {
        return element.text;
      }
    }
    return std::string("no line");
  };
  EXPECT_EQ(firstLineShown(), "line 0");
  const ScreenPoint list = form.middleOf("text:line 10");
  input.setCursorPosition(list.x, list.y);
  input.scroll(ScrollDirection::down, 5);
  std::this_thread::sleep_for(500ms);
  const std::string scrolled = firstLineShown();
  ASSERT_TRUE(scrolled.starts_with("line ")) << scrolled;
  EXPECT_GT(std::stoi(scrolled.substr(5)), 10);
  input.scroll(ScrollDirection::up, 5);
  EXPECT_EQ(testing::GtkTestForm::whenEqual(firstLineShown, "line 0"), "line 0");

  // Nowhere to go beyond the shared monitor.
  input.setCursorPosition(5000, -20);
  EXPECT_EQ(input.cursorPosition(), (ScreenPoint{1279, 0}));
}

TEST(WaylandInputBackend, AsksOnTheFirstEventAndAgainWhenTheUserCancelled) {
  const auto session = testing::WaylandSession::start();
  if (!session) {
    GTEST_SKIP() << "no mutter on this machine";
  }
  testing::GtkTestForm form("Asking");
  ASSERT_TRUE(form.shown());
  testing::TempDirectory state;
  const std::filesystem::path token = state / "brimble" / "remote-desktop-token";
  auto portal = std::make_shared<DesktopPortal>();
  WaylandInputBackend backend(portal, {.tokenFile = token, .dialogTimeout = 30s});
  InputSimulator input(backend, steadyClock());
  EXPECT_TRUE(backend.available());

  // Windows in the test's session have no focus until clicked.
  const ScreenPoint entry = form.middleOf("role:entry");
  session->cancelDialogAfter(1500ms);
  EXPECT_EQ(
      testing::errorText<PortalError>([&] { input.click(entry.x, entry.y, MouseButton::left); }),
      "Screen sharing was cancelled");
  EXPECT_TRUE(session->waitForDialogHelper());

  session->approveRemoteDesktopAfter(1500ms);
  input.click(entry.x, entry.y, MouseButton::left);
  EXPECT_TRUE(session->waitForDialogHelper());
  ASSERT_TRUE(form.waitUntilActive());
  // Whole: the session was primed, so mutter's habit of dropping the first key costs nothing.
  input.typeText("yes", 0, false);
  EXPECT_EQ(form.entryWhen("yes"), "yes");
  // Only a portal that can remember gives a token to keep (Debian 12's is version 1).
  EXPECT_EQ(std::filesystem::exists(token),
            portal->version("org.freedesktop.portal.RemoteDesktop") >= 2);
}

TEST(WaylandInputBackend, WithoutARemoteDesktopPortalNothingIsAvailableAndItSaysWhy) {
  WaylandInputBackend backend(nullptr, {});
  EXPECT_FALSE(backend.available());
  EXPECT_EQ(backend.unavailableReason(),
            "The desktop portal (xdg-desktop-portal) offers no remote input "
            "(org.freedesktop.portal.RemoteDesktop) on the session bus: install "
            "xdg-desktop-portal and the desktop's backend (xdg-desktop-portal-gnome or "
            "xdg-desktop-portal-kde), or use --headless (no session bus)");
  EXPECT_EQ(testing::errorText<PortalError>([&] { backend.keyDown('a'); }),
            backend.unavailableReason());
}

}  // namespace
}  // namespace brimble::wayland
