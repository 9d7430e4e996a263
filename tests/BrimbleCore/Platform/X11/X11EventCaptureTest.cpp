#include "BrimbleCore/Platform/X11/X11EventCapture.h"

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11InputBackend.h"
#include "tests/Support/ChildProcess.h"

namespace brimble::x11 {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

std::string describe(const InputEvent& event) {
  const std::string at = " at " + std::to_string(event.position.x) + "," +
                         std::to_string(event.position.y) +
                         (event.synthetic ? " simulated" : " by hand");
  switch (event.kind) {
    case InputEvent::Kind::keyDown:
      return "key down " + event.key + at;
    case InputEvent::Kind::keyUp:
      return "key up " + event.key + at;
    case InputEvent::Kind::mouseDown:
      return "button " + std::to_string(event.button) + " down" + at;
    case InputEvent::Kind::mouseUp:
      return "button " + std::to_string(event.button) + " up" + at;
    case InputEvent::Kind::scroll:
      return "scroll " + std::to_string(static_cast<int>(event.direction)) + at;
    case InputEvent::Kind::mouseMoved:
      return "move" + at;
  }
  return "?";
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
  for (const InputEvent& event : events) {
    if (event.kind != InputEvent::Kind::mouseMoved) {
      actions.push_back(describe(event));
      path.clear();
    } else {
      path.push_back(event);
    }
  }
  EXPECT_THAT(
      actions,
      ElementsAre("key down Control_L at 100,100 simulated", "key down c at 100,100 simulated",
                  "key up c at 100,100 simulated", "key up Control_L at 100,100 simulated",
                  "button 1 down at 200,150 simulated", "button 1 up at 200,150 simulated",
                  "button 3 down at 210,160 simulated", "button 3 up at 210,160 simulated",
                  "scroll 1 at 210,160 simulated", "scroll 1 at 210,160 simulated"));
  // 12 steps over 0.2 s; each raw motion is sampled.
  ASSERT_GE(path.size(), 8u);
  EXPECT_EQ(describe(path.back()), "move at 400,300 simulated");
  EXPECT_GT(path.back().timestamp - path.front().timestamp, 0.1);

  for (std::size_t i = 1; i < events.size(); ++i) {
    EXPECT_GE(events[i].timestamp, events[i - 1].timestamp) << i;
  }
  const auto held = [&](int button) {
    double down = 0;
    for (const InputEvent& event : events) {
      if (event.button == button && event.kind == InputEvent::Kind::mouseDown) {
        down = event.timestamp;
      } else if (event.button == button && event.kind == InputEvent::Kind::mouseUp) {
        return event.timestamp - down;
      }
    }
    return 0.0;
  };
  EXPECT_GT(held(1), 0.03);  // clicks hold for 50 ms
  EXPECT_LT(held(1), 0.5);
}

TEST(X11EventCapture, APointerWarpIsSeenThoughItMakesNoRawEvent) {
  const auto display = HeadlessDisplay::start();
  testing::ChildProcess client({BRIMBLE_X11_TEST_CLIENT});
  ASSERT_TRUE(client.readLine(5s)) << client.errorOutput();
  X11EventCapture capture(display->displayName(), steadyClock());
  ASSERT_TRUE(capture.start());
  client.write("warp 321 123\n");
  std::this_thread::sleep_for(100ms);
  const std::vector<InputEvent> events = capture.stopAndCollectEvents();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(describe(events[0]), "move at 321,123 by hand");
}

}  // namespace
}  // namespace brimble::x11
