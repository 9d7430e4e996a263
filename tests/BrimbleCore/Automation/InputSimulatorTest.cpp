#include "BrimbleCore/Automation/InputSimulator.h"

#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Automation/InputError.h"
#include "tests/Support/FakeClock.h"
#include "tests/Support/FakeInputBackend.h"
#include "tests/Support/LogCapture.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

struct Rig {
  testing::FakeClock clock;
  testing::FakeInputBackend backend{clock};
  InputSimulator input{backend, clock};
};

TEST(InputSimulator, KeyChordsNameKnownModifiersAndKeysOnly) {
  const auto parsed = [](std::string_view chord) -> std::string {
    try {
      const KeyChord parts = InputSimulator::parseKeyChord(chord);
      std::string text = std::to_string(InputSimulator::keyCodeForName(parts.key).value_or(-1));
      for (const auto& [modifier, name] :
           {std::pair{Modifier::control, " ctrl"}, std::pair{Modifier::alt, " alt"},
            std::pair{Modifier::shift, " shift"}, std::pair{Modifier::super, " super"}}) {
        text += parts.modifiers.contains(modifier) ? name : "";
      }
      return text;
    } catch (const InputError& error) {
      return error.what();
    }
  };
  std::string results;
  for (const char* chord :
       {"enter", "Return", "esc", "pagedown", "f5", "f12", "cmd+c", "shift+tab", "Ctrl+Alt+Delete",
        "win+option+shift+z", "1", "ctrl+hyper", "foo+a", "cmd+Hyper+k"}) {
    results += std::string(chord) + " = " + parsed(chord) + "\n";
  }
  EXPECT_EQ(results,
            "enter = 36\nReturn = 36\nesc = 53\npagedown = 121\nf5 = 96\nf12 = 111\n"
            "cmd+c = 8 ctrl\nshift+tab = 48 shift\nCtrl+Alt+Delete = 51 ctrl alt\n"
            "win+option+shift+z = 6 alt shift super\n"
            "1 = Unknown key '1' in '1'\n"
            "ctrl+hyper = Unknown key 'hyper' in 'ctrl+hyper'\n"
            "foo+a = Unknown modifier 'foo' in 'foo+a'\n"
            "cmd+Hyper+k = Unknown modifier 'hyper' in 'cmd+Hyper+k'\n");
}

TEST(InputSimulator, PressKeyHoldsModifiersAroundTheKey) {
  Rig rig;
  EXPECT_TRUE(rig.input.pressKey("c", {Modifier::control}));  // what "cmd+c" becomes
  EXPECT_TRUE(rig.input.pressKey("tab", {Modifier::shift}));
  EXPECT_TRUE(rig.input.pressKey("f5", {}));
  EXPECT_FALSE(rig.input.pressKey("hyper", {Modifier::shift}));
  EXPECT_THAT(rig.backend.timedLines(),
              ElementsAre("0 key control down", "0 key c down", "8 key c up", "8 key control up",
                          "8 key shift down", "8 key tab down", "16 key tab up", "16 key shift up",
                          "16 key f5 down", "24 key f5 up"));
}

TEST(InputSimulator, TypingUsesTheKeymapShiftAndSpareKeysForTheRest) {
  Rig rig;
  rig.input.typeText("aB!\té\né\x01", 0, false);
  EXPECT_THAT(
      rig.backend.timedLines(),
      ElementsAre("0 key a down", "8 key a up", "8 key shift down", "8 key b down", "16 key b up",
                  "16 key shift up", "16 key shift down", "16 key 1 down", "24 key 1 up",
                  "24 key shift up", "24 key tab down", "32 key tab up", "32 bind spare U+00E9",
                  "42 key spare down", "50 key spare up", "50 key return down", "58 key return up",
                  "58 key spare down",  // still bound: no change to settle
                  "66 key spare up", "166 restore spares"));
  EXPECT_EQ(rig.clock.now() - Clock::TimePoint{}, 176ms);
}

TEST(InputSimulator, TypingWithoutASpareKeySkipsTheCharacterAndMalformedUTF8IsReplaced) {
  Rig rig;
  rig.backend.setSpareKeys(false);
  testing::LogCapture log;
  rig.input.typeText("\xff\xc3(", 0, false);
  EXPECT_THAT(rig.backend.lines(),
              ElementsAre("bind spare U+FFFD", "bind spare U+FFFD", "bind spare U+0028"));
  EXPECT_THAT(log.lines(), ElementsAre("BrimbleCore: No spare key to type U+FFFD",
                                       "BrimbleCore: No spare key to type U+FFFD",
                                       "BrimbleCore: No spare key to type U+0028"));
}

TEST(InputSimulator, TypingJittersThirtyPercentAroundTheDelayThenPressesEnter) {
  for (int run = 0; run < 20; ++run) {
    Rig rig;
    rig.input.typeText("ab", 0.05, true);
    const auto sleeps = rig.clock.sleeps();
    ASSERT_EQ(sleeps.size(), 6u);
    EXPECT_EQ(sleeps[0], 8ms);
    EXPECT_GE(sleeps[1], 35ms);
    EXPECT_LT(sleeps[1], 65ms);
    EXPECT_EQ(sleeps[2], 8ms);
    EXPECT_GE(sleeps[3], 35ms);
    EXPECT_LT(sleeps[3], 65ms);
    EXPECT_EQ(sleeps[4], 25ms);  // half the delay before Enter
    EXPECT_EQ(sleeps[5], 8ms);
    EXPECT_EQ(rig.backend.lines().back(), "key return up");
  }
}

TEST(InputSimulator, CancellingStopsBeforeTheNextCharacterSkipsEnterAndRestoresSpareKeys) {
  Rig rig;
  int asked = 0;
  rig.input.typeText("aécd", 0.01, true, [&] { return ++asked > 2; });
  EXPECT_THAT(rig.backend.lines(), ElementsAre("key a down", "key a up", "bind spare U+00E9",
                                               "key spare down", "key spare up", "restore spares"));
}

TEST(InputSimulator, WithoutABackendEveryOperationLogsAndSendsNothing) {
  Rig rig;
  rig.backend.setAvailable(false);
  testing::LogCapture log;
  rig.input.typeText("a", 0, true);
  rig.input.click(1, 2, MouseButton::left);
  rig.input.scroll(ScrollDirection::down, 1);
  EXPECT_THAT(rig.backend.lines(), IsEmpty());
  const std::string line =
      "BrimbleCore: Failed to open the X display's XTest extension for input — input simulation "
      "unavailable";
  EXPECT_THAT(log.lines(), ElementsAre(line, line, line));
}

TEST(InputSimulator, ClicksHoldFiftyMillisecondsAtThePoint) {
  Rig rig;
  rig.input.click(10, 20, MouseButton::left);
  rig.input.click(30, 40, MouseButton::right);
  EXPECT_THAT(rig.backend.timedLines(),
              ElementsAre("0 move 10,20", "0 button 1 down", "50 button 1 up", "50 move 30,40",
                          "50 button 3 down", "100 button 3 up"));
}

TEST(InputSimulator, SmoothMovesEaseInAndOutAtSixtyStepsASecond) {
  EXPECT_NEAR(InputSimulator::easeInOutCubic(1.0 / 60), 0.0000185, 1e-7);
  EXPECT_DOUBLE_EQ(InputSimulator::easeInOutCubic(0.25), 0.0625);
  EXPECT_DOUBLE_EQ(InputSimulator::easeInOutCubic(0.75), 0.9375);

  Rig rig;
  rig.input.smoothMove(600, 300, 1.0);
  const Lines& moves = rig.backend.timedLines();
  ASSERT_EQ(moves.size(), 60u);
  EXPECT_EQ(moves[0], "0 move 0,0");       // 600 × 0.0000185 rounds to 0
  EXPECT_EQ(moves[14], "233 move 38,19");  // t = 1/4: 600 × 0.0625 = 37.5
  EXPECT_EQ(moves[29], "483 move 300,150");
  EXPECT_EQ(moves[44], "733 move 563,281");  // t = 3/4: 600 × 0.9375 = 562.5
  EXPECT_EQ(moves[59], "983 move 600,300");

  Rig half;
  half.input.smoothMove(10, 10, 0.5);
  EXPECT_EQ(half.backend.lines().size(), 30u);
  Rig warp;
  warp.input.smoothMove(7, 8, 0);
  EXPECT_THAT(warp.backend.lines(), ElementsAre("move 7,8"));
}

TEST(InputSimulator, ScrollsClickTheWheelButtonOncePerTick) {
  Rig rig;
  rig.input.scroll(ScrollDirection::left, 3);
  rig.input.scroll(ScrollDirection::up, 1);
  rig.input.scroll(ScrollDirection::down, 1);
  rig.input.scroll(ScrollDirection::right, 1);
  EXPECT_THAT(
      rig.backend.timedLines(),
      ElementsAre("0 button 6 down", "0 button 6 up", "20 button 6 down", "20 button 6 up",
                  "40 button 6 down", "40 button 6 up", "40 button 4 down", "40 button 4 up",
                  "40 button 5 down", "40 button 5 up", "40 button 7 down", "40 button 7 up"));
}

TEST(InputSimulator, KeyboardIdleWaitsForModifiersAndLetterKeysButNotOtherKeys) {
  Rig rig;
  KeyboardState shiftHeld;
  shiftHeld.modifiers.insert(Modifier::shift);
  rig.backend.queueKeyboardState(shiftHeld);
  rig.backend.queueKeyboardState({{}, {1000 + 0}});   // the "a" key
  rig.backend.queueKeyboardState({{}, {1000 + 49}});  // space
  rig.backend.queueKeyboardState({{}, {1000 + 96}});  // F5 does not make a hot key
  rig.input.waitForKeyboardIdle();
  EXPECT_EQ(rig.backend.statePolls(), 4);
  EXPECT_THAT(rig.clock.sleeps(), ElementsAre(20ms, 20ms, 20ms));
}

}  // namespace
}  // namespace brimble
