#include "BrimbleCore/Automation/InputSimulator.h"

#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Automation/InputError.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/FakeClock.h"
#include "tests/Support/FakeInputBackend.h"
#include "tests/Support/LogCapture.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::Lt;
using Lines = std::vector<std::string>;

struct InputRig {
  testing::FakeClock clock;
  testing::FakeInputBackend backend{clock};
  InputSimulator input{backend, clock};
};

TEST(InputSimulator, ChordsHoldTheirModifiersAroundTheKeyAndSetUnknownWordsAside) {
  InputRig rig;
  for (const char* chord : {"cmd+c", "Shift+Tab", "f5"}) {
    const KeyChord parts = InputSimulator::parseKeyChord(chord);
    EXPECT_TRUE(rig.input.pressKey(parts.key, parts.modifiers));
  }
  EXPECT_FALSE(rig.input.pressKey("hyper", {Modifier::shift}));
  EXPECT_THAT(rig.backend.timedLines(),
              ElementsAre("0 key control down", "0 key c down", "8 key c up", "8 key control up",
                          "8 key shift down", "8 key tab down", "16 key tab up", "16 key shift up",
                          "16 key f5 down", "24 key f5 up"));

  EXPECT_EQ(InputSimulator::parseKeyChord("Control+Alt+Delete"),
            (KeyChord{"delete", {Modifier::control, Modifier::alt}, {}}));
  EXPECT_EQ(InputSimulator::parseKeyChord("win+option+Hyper+shift+z"),
            (KeyChord{"z", {Modifier::super, Modifier::alt, Modifier::shift}, {"hyper"}}));
  const auto refusal = [](const char* chord) {
    return testing::errorText<InputError>(
        [&] { InputSimulator::requireKnownWords(InputSimulator::parseKeyChord(chord), chord); });
  };
  EXPECT_EQ(refusal("1"), "Unknown key '1' in '1'");
  EXPECT_EQ(refusal("ctrl+hyper"), "Unknown key 'hyper' in 'ctrl+hyper'");
  EXPECT_EQ(refusal("foo+a"), "Unknown modifier 'foo' in 'foo+a'");
  EXPECT_EQ(refusal("cmd+Hyper+k"), "Unknown modifier 'hyper' in 'cmd+Hyper+k'");
}

TEST(InputSimulator, TypingUsesTheKeymapShiftAndSpareKeysForTheRestOrSkipsIt) {
  InputRig rig;
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

  // Without a spare key a character is skipped; malformed UTF-8 is typed as U+FFFD.
  InputRig spareless;
  spareless.backend.setSpareKeys(false);
  testing::LogCapture log;
  spareless.input.typeText("\xff\xc3(", 0, false);
  EXPECT_THAT(spareless.backend.lines(),
              ElementsAre("bind spare U+FFFD", "bind spare U+FFFD", "bind spare U+0028"));
  const std::string why = ": every spare key of the keyboard map is in use";
  EXPECT_THAT(log.lines(), ElementsAre("BrimbleCore: Cannot type U+FFFD" + why,
                                       "BrimbleCore: Cannot type U+FFFD" + why,
                                       "BrimbleCore: Cannot type U+0028" + why));
}

TEST(InputSimulator, APlatformThatTypesWithoutKeysTakesWhatTheKeymapLacksAndBindsNoSpareKey) {
  InputRig rig;
  rig.backend.setTypesWithoutKey(true);
  rig.input.typeText("a\xc3\xa9\xe2\x9c\x93\tB", 0.01, true);
  // Keys where the map has them; the rest in the platform's way, in the text's order and
  // rhythm; no spare key, so nothing to restore.
  EXPECT_THAT(rig.backend.lines(),
              ElementsAre("key a down", "key a up", "without key U+00E9", "without key U+2713",
                          "key tab down", "key tab up", "key shift down", "key b down", "key b up",
                          "key shift up", "key return down", "key return up"));
  const auto jittered = AllOf(Ge(7ms), Lt(13ms));
  EXPECT_THAT(rig.clock.sleeps(), ElementsAre(8ms, jittered, jittered, jittered, 8ms, jittered, 8ms,
                                              jittered, 5ms, 8ms));
}

TEST(InputSimulator, TypingJittersThirtyPercentAroundTheDelayThenPressesEnter) {
  for (int run = 0; run < 20; ++run) {
    InputRig rig;
    rig.input.typeText("ab", 0.05, true);
    const auto jittered = AllOf(Ge(35ms), Lt(65ms));
    // Then half the delay before Enter.
    EXPECT_THAT(rig.clock.sleeps(), ElementsAre(8ms, jittered, 8ms, jittered, 25ms, 8ms));
    EXPECT_EQ(rig.backend.lines().back(), "key return up");
  }
}

TEST(InputSimulator, CancellingStopsBeforeTheNextCharacterSkipsEnterAndRestoresSpareKeys) {
  InputRig rig;
  int asked = 0;
  rig.input.typeText("aécd", 0.01, true, [&] { return ++asked > 2; });
  EXPECT_THAT(rig.backend.lines(), ElementsAre("key a down", "key a up", "bind spare U+00E9",
                                               "key spare down", "key spare up", "restore spares"));
}

TEST(InputSimulator, WithoutABackendEveryOperationLogsAndSendsNothing) {
  InputRig rig;
  rig.backend.setAvailable(false);
  testing::LogCapture log;
  rig.input.typeText("a", 0, true);
  rig.input.click(1, 2, MouseButton::left);
  rig.input.scroll(ScrollDirection::down, 1);
  EXPECT_THAT(rig.backend.lines(), IsEmpty());
  // The backend says why, in its own words.
  const std::string line =
      "BrimbleCore: The fake keyboard is unplugged — input simulation unavailable";
  EXPECT_THAT(log.lines(), ElementsAre(line, line, line));
}

TEST(InputSimulator, ClicksHoldFiftyMillisecondsAtThePointAndTheWheelClicksOncePerTick) {
  InputRig rig;
  rig.input.click(10, 20, MouseButton::left);
  rig.input.click(30, 40, MouseButton::right);
  rig.input.scroll(ScrollDirection::left, 3);
  for (const auto direction :
       {ScrollDirection::up, ScrollDirection::down, ScrollDirection::right}) {
    rig.input.scroll(direction, 1);
  }
  EXPECT_THAT(
      rig.backend.timedLines(),
      ElementsAre("0 move 10,20", "0 button 1 down", "50 button 1 up", "50 move 30,40",
                  "50 button 3 down", "100 button 3 up", "100 button 6 down", "100 button 6 up",
                  "120 button 6 down", "120 button 6 up", "140 button 6 down", "140 button 6 up",
                  "140 button 4 down", "140 button 4 up", "140 button 5 down", "140 button 5 up",
                  "140 button 7 down", "140 button 7 up"));
}

TEST(InputSimulator, SmoothMovesEaseInAndOutAtSixtyStepsASecond) {
  EXPECT_NEAR(InputSimulator::easeInOutCubic(1.0 / 60), 0.0000185, 1e-7);

  InputRig rig;
  rig.input.smoothMove(600, 300, 1.0);
  const Lines& moves = rig.backend.timedLines();
  ASSERT_EQ(moves.size(), 60u);
  EXPECT_EQ(moves[0], "0 move 0,0");         // 600 × 0.0000185 rounds to 0
  EXPECT_EQ(moves[14], "233 move 38,19");    // t = 1/4: 600 × 0.0625 = 37.5
  EXPECT_EQ(moves[44], "733 move 563,281");  // t = 3/4: 600 × 0.9375 = 562.5
  EXPECT_EQ(moves[59], "983 move 600,300");

  InputRig half;
  half.input.smoothMove(10, 10, 0.5);
  EXPECT_EQ(half.backend.lines().size(), 30u);
  InputRig warp;
  warp.input.smoothMove(7, 8, 0);
  EXPECT_THAT(warp.backend.lines(), ElementsAre("move 7,8"));
}

TEST(InputSimulator, KeyboardIdleWaitsForModifiersAndLetterKeysButNotOtherKeys) {
  InputRig rig;
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
