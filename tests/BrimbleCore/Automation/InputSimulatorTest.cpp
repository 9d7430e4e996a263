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

// When each character started going in, in milliseconds of the rig's clock: a key (other than
// Shift) going down, or a character typed without a key.
std::vector<long long> characterStarts(const testing::FakeInputBackend& backend) {
  std::vector<long long> starts;
  for (const std::string& line : backend.timedLines()) {
    const bool keyDown = line.ends_with(" down") && line.find(" shift ") == std::string::npos;
    if (keyDown || line.find(" without key ") != std::string::npos) {
      starts.push_back(std::stoll(line));
    }
  }
  return starts;
}

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
  // Each character, however it goes in, starts a delay (give or take 30 %) after the one before.
  const std::vector<long long> starts = characterStarts(rig.backend);
  ASSERT_EQ(starts.size(), 6u);
  for (std::size_t i = 1; i < 5; ++i) {
    EXPECT_GE(starts[i] - starts[i - 1], 6) << i;
    EXPECT_LE(starts[i] - starts[i - 1], 14) << i;
  }
  // Return comes half a delay later.
  EXPECT_GE(starts[5] - starts[4], 6 + 5);
  EXPECT_LE(starts[5] - starts[4], 14 + 5);
}

TEST(InputSimulator, TypingJittersThirtyPercentAroundTheDelayThenPressesEnter) {
  for (int run = 0; run < 20; ++run) {
    InputRig rig;
    rig.input.typeText("abc", 0.05, true);
    // A key goes down a delay, give or take 30 %, after the one before it went down: the time
    // it is held counts towards the delay.
    const std::vector<long long> starts = characterStarts(rig.backend);
    ASSERT_EQ(starts.size(), 4u);
    for (std::size_t i = 1; i < 3; ++i) {
      EXPECT_GE(starts[i] - starts[i - 1], 35);
      EXPECT_LE(starts[i] - starts[i - 1], 65);
    }
    // Then half the delay before Enter.
    EXPECT_GE(starts[3] - starts[2], 35 + 25);
    EXPECT_LE(starts[3] - starts[2], 65 + 25);
    EXPECT_EQ(rig.backend.lines().back(), "key return up");
  }
}

TEST(InputSimulator, ALongTextIsTypedAtThePaceAskedWhateverEachKeyCosts) {
  // 200 keys at 0.05 s: 199 delays from the first key to the last, each one's hold within it.
  InputRig rig;
  std::string text;
  for (int i = 0; i < 200; ++i) {
    text += static_cast<char>('a' + i % 26);
  }
  rig.input.typeText(text, 0.05, false);
  const std::vector<long long> starts = characterStarts(rig.backend);
  ASSERT_EQ(starts.size(), 200u);
  EXPECT_NEAR(static_cast<double>(starts.back() - starts.front()) / 1000, 199 * 0.05,
              199 * 0.05 * 0.03);

  // A stall (a busy display) is not made up in a burst: no key comes sooner than 70 % of the
  // delay after the one before.
  InputRig stalled;
  stalled.backend.onKeyDown = [&stalled, presses = 0]() mutable {
    if (++presses == 5) {
      stalled.clock.advance(std::chrono::seconds(1));
    }
  };
  stalled.input.typeText("abcdefghij", 0.05, false);
  const std::vector<long long> after = characterStarts(stalled.backend);
  ASSERT_EQ(after.size(), 10u);
  for (std::size_t i = 1; i < after.size(); ++i) {
    EXPECT_GE(after[i] - after[i - 1], 35) << i;
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
