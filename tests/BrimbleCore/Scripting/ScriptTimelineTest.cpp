#include "BrimbleCore/Scripting/ScriptTimeline.h"

#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/Images.h"
#include "tests/Support/RenderSegments.h"

namespace brimble {
namespace {

using testing::inputEvent;

TEST(ScriptTimeline, KeystrokesAndClicksAreListedAtTheTimesTheOutputShowsThem) {
  // Eight seconds of a still window: the six before the first key are idle, and `cut` leaves
  // half a second of them (a quarter on each side of the cut).
  std::vector<RenderSegment> segments;
  segments.push_back(
      testing::stillSegment(testing::solidImage(160, 100, {200, 200, 200}), 80, {100, 50}));
  using K = InputEvent::Kind;
  segments[0].events = {
      inputEvent(K::keyDown, 6.0, "l"),
      inputEvent(K::keyDown, 6.1, "s"),
      inputEvent(K::keyDown, 6.2, "Return"),
      inputEvent(K::keyDown, 7.0, "Control_L"),
      inputEvent(K::keyDown, 7.05, "c"),
      inputEvent(K::keyUp, 7.1, "Control_L"),
      inputEvent(K::mouseDown, 7.5, {}, {140, 90}, 1),
      inputEvent(K::mouseUp, 7.55, {}, {140, 90}, 1),
      inputEvent(K::mouseDown, 7.8, {}, {150, 95}, 3),
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
