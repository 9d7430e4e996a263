#include "BrimbleCore/Platform/X11/X11EventCapture.h"

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11InputBackend.h"
#include "tests/Support/X11Helpers.h"

namespace brimble::x11 {
namespace {

using ::testing::ElementsAre;

/// "<kind> <key or button or direction> at X,Y by hand|simulated".
std::string describe(const InputEvent& event) {
  const char* kinds[] = {"key down", "key up", "button down", "button up", "move", "scroll"};
  std::string detail = event.key;
  if (event.kind == InputEvent::Kind::mouseDown || event.kind == InputEvent::Kind::mouseUp) {
    detail = std::to_string(event.button);
  } else if (event.kind == InputEvent::Kind::scroll) {
    detail = std::to_string(static_cast<int>(event.direction));
  }
  return std::string(kinds[static_cast<int>(event.kind)]) + (detail.empty() ? "" : " ") + detail +
         " at " + std::to_string(event.position.x) + "," + std::to_string(event.position.y) +
         (event.synthetic ? " simulated" : " by hand");
}

TEST(X11EventCapture, RecordsSimulatedKeysClicksScrollsAndMovesWithTimestamps) {
  const auto display = HeadlessDisplay::start();
  X11InputBackend backend(display->displayName());
  InputSimulator input(backend, steadyClock());
  input.setCursorPosition(100, 100);
  X11EventCapture capture(display->displayName(), steadyClock());
  ASSERT_TRUE(capture.start());

  input.pressKey("c", {Modifier::control});
  input.click(200, 150, MouseButton::left);
  input.click(210, 160, MouseButton::right);
  input.scroll(ScrollDirection::down, 2);
  input.smoothMove(400, 300, 0.2);
  const std::vector<InputEvent> events = capture.stopAndCollectEvents();

  std::vector<std::string> actions;
  std::vector<InputEvent> path;  // the moves after the last scroll: the eased move
  double pressed = 0;
  for (const InputEvent& event : events) {
    if (event.kind == InputEvent::Kind::mouseMoved) {
      path.push_back(event);
      continue;
    }
    actions.push_back(describe(event));
    path.clear();
    if (actions.back() == "button down 1 at 200,150 simulated") {
      pressed = event.timestamp;
    } else if (actions.back() == "button up 1 at 200,150 simulated") {
      EXPECT_GT(event.timestamp - pressed, 0.03) << "clicks hold for 50 ms";
      EXPECT_LT(event.timestamp - pressed, 0.5);
    }
  }
  EXPECT_THAT(
      actions,
      ElementsAre("key down Control_L at 100,100 simulated", "key down c at 100,100 simulated",
                  "key up c at 100,100 simulated", "key up Control_L at 100,100 simulated",
                  "button down 1 at 200,150 simulated", "button up 1 at 200,150 simulated",
                  "button down 3 at 210,160 simulated", "button up 3 at 210,160 simulated",
                  "scroll 1 at 210,160 simulated", "scroll 1 at 210,160 simulated"));
  // 12 steps over 0.2 s; each raw motion is sampled.
  ASSERT_GE(path.size(), 8u);
  // The move starts from where the server says the pointer is.
  EXPECT_LE(std::abs(path.front().position.x - 210) + std::abs(path.front().position.y - 160), 8)
      << describe(path.front());
  EXPECT_EQ(describe(path.back()), "move at 400,300 simulated");
  EXPECT_GT(path.back().timestamp - path.front().timestamp, 0.1);
  for (std::size_t i = 1; i < events.size(); ++i) {
    EXPECT_GE(events[i].timestamp, events[i - 1].timestamp) << i;
  }
}

TEST(X11EventCapture, APointerWarpIsSeenThoughItMakesNoRawEvent) {
  const auto display = HeadlessDisplay::start();
  testing::TestWindow client;
  X11EventCapture capture(display->displayName(), steadyClock());
  ASSERT_TRUE(capture.start());
  client.warpPointer(321, 123);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const std::vector<InputEvent> events = capture.stopAndCollectEvents();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(describe(events[0]), "move at 321,123 by hand");
}

}  // namespace
}  // namespace brimble::x11
