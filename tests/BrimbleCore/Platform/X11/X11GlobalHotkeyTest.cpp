#include "BrimbleCore/Platform/X11/X11GlobalHotkey.h"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "BrimbleCore/Automation/InputSimulator.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11InputBackend.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/X11Helpers.h"

namespace brimble::x11 {
namespace {

/// Presses counted until none has come for a while.
int pressesArriving(GlobalHotkey& hotkey, int expected) {
  int total = 0;
  testing::eventually([&] {
    total += hotkey.takePresses();
    return total >= expected;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  return total + hotkey.takePresses();
}

TEST(X11GlobalHotkey, FiresOnceAPressWhateverTheLocksAndNotForOtherChords) {
  const auto display = HeadlessDisplay::start();
  X11GlobalHotkey hotkey("Ctrl+Shift+G", display->displayName());
  X11InputBackend backend(display->displayName());
  InputSimulator input(backend, steadyClock());

  input.pressKey("g", {Modifier::control, Modifier::shift});
  EXPECT_EQ(pressesArriving(hotkey, 1), 1);

  input.pressKey("g", {Modifier::control});  // a different chord
  input.pressKey("h", {Modifier::control, Modifier::shift});
  EXPECT_EQ(pressesArriving(hotkey, 1), 0);

  // NumLock and CapsLock are modifiers to X: each combination has its own grab.
  for (const auto& [caps, num] : {std::pair{true, false}, {false, true}, {true, true}}) {
    testing::setLocks(display->displayName(), caps, num);
    input.pressKey("g", {Modifier::control, Modifier::shift});
    EXPECT_EQ(pressesArriving(hotkey, 1), 1) << "CapsLock " << caps << ", NumLock " << num;
  }
  testing::setLocks(display->displayName(), false, false);
}

TEST(X11GlobalHotkey, AShortcutHeldByAnotherProgramOrNotAKeyIsAClearError) {
  const auto display = HeadlessDisplay::start();
  X11GlobalHotkey first("Ctrl+Alt+R", display->displayName());
  EXPECT_EQ(testing::errorText<GlobalHotkeyError>(
                [&] { X11GlobalHotkey second("Ctrl+Alt+R", display->displayName()); }),
            "The shortcut Ctrl+Alt+R is already used by another program. Choose another one in "
            "Brimble's settings, or free it in that program.");
  // The refused program holds nothing afterwards, and another chord is free for it.
  EXPECT_NO_THROW(X11GlobalHotkey("Ctrl+Alt+T", display->displayName()));

  for (const char* bad : {"Ctrl+Hyper+G", "Ctrl+", "Ctrl+NoSuchKey", ""}) {
    EXPECT_EQ(testing::errorText<GlobalHotkeyError>(
                  [&] { X11GlobalHotkey hotkey(bad, display->displayName()); }),
              std::string("\"") + bad +
                  "\" is not a shortcut: give modifiers and one key, such as Ctrl+Shift+G.");
  }
  EXPECT_NO_THROW(X11GlobalHotkey("Meta+F9", display->displayName()));
  EXPECT_NO_THROW(X11GlobalHotkey("Ctrl+Alt+Print", display->displayName()));
}

}  // namespace
}  // namespace brimble::x11
