#include "BrimbleCore/Scripting/ScriptTimeline.h"

#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/Images.h"

namespace brimble {
namespace {

InputEvent inputAt(InputEvent::Kind kind, double time, const std::string& key = {},
                   ScreenPoint position = {}, int button = 0) {
  InputEvent event;
  event.kind = kind;
  event.timestamp = time;
  event.key = key;
  event.position = position;
  event.button = button;
  return event;
}

TEST(ScriptTimeline, KeystrokesAndClicksAreListedAtTheTimesTheOutputShowsThem) {
  // Eight seconds of a still window: the six before the first key are idle, and `cut` leaves
  // half a second of them (a quarter on each side of the cut).
  auto store = std::make_unique<InMemoryFrameStore>();
  const auto picture = encodePNG(testing::solidImage(160, 100, {200, 200, 200}));
  store->frames.assign(80, picture);
  std::vector<RenderSegment> segments(1);
  segments[0].frames = std::move(store);
  segments[0].fps = 10;
  segments[0].duration = 8;
  segments[0].windowFrame = {100, 50, 160, 100};
  using K = InputEvent::Kind;
  segments[0].events = {
      inputAt(K::keyDown, 6.0, "l"),
      inputAt(K::keyDown, 6.1, "s"),
      inputAt(K::keyDown, 6.2, "Return"),
      inputAt(K::keyDown, 7.0, "Control_L"),
      inputAt(K::keyDown, 7.05, "c"),
      inputAt(K::keyUp, 7.1, "Control_L"),
      inputAt(K::mouseDown, 7.5, {}, {140, 90}, 1),
      inputAt(K::mouseUp, 7.55, {}, {140, 90}, 1),
      inputAt(K::mouseDown, 7.8, {}, {150, 95}, 3),
  };
  segments[0].captions = {Caption{6.0, 1.0, "Listing files", Caption::Position::bottom}};
  RenderSettings settings;
  settings.fps = 10;
  settings.idleStrategy = IdleStrategy::cut;
  settings.idleThreshold = 2;
  const FrameCompositor compositor(segments, settings);

  ScriptTimeline timeline;
  const std::vector<int> numbers = {0};
  const auto document = nlohmann::json::parse(
      timeline.document("demo.gif", segments, numbers, compositor.outputClock()));
  EXPECT_EQ(document["output"], "demo.gif");
  EXPECT_DOUBLE_EQ(document["duration"].get<double>(), 2.5);
  EXPECT_EQ(document["keystrokes"], nlohmann::json::parse(R"([
      {"time": 0.5, "text": "ls"},
      {"time": 0.7, "keys": "Enter"},
      {"time": 1.55, "keys": "Ctrl+C"}])"));
  EXPECT_EQ(document["clicks"], nlohmann::json::parse(R"([
      {"time": 2.0, "x": 140, "y": 90, "button": "left"},
      {"time": 2.3, "x": 150, "y": 95, "button": "right"}])"));
  EXPECT_EQ(document["captions"], nlohmann::json::parse(R"([
      {"text": "Listing files", "start": 0.5, "end": 1.5, "position": "bottom"}])"));
  EXPECT_EQ(document["segments"], nlohmann::json::parse(R"([
      {"segment": 1, "start": 0.0, "end": 2.5, "recorded": 8.0}])"));
}

}  // namespace
}  // namespace brimble
