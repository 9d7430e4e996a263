#include "BrimbleCore/Scripting/ScriptTimeline.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <nlohmann/json.hpp>

#include "BrimbleCore/Effects/CaptionTrack.h"
#include "BrimbleCore/Effects/KeystrokeBadges.h"
#include "BrimbleCore/Effects/RenderTimeline.h"
#include "BrimbleCore/Scripting/ScriptCommandTable.h"

namespace brimble {
namespace {

using Json = nlohmann::ordered_json;

// Milliseconds are as fine as a viewer can tell apart, and keep the document short.
double seconds(double time) {
  return std::round(std::max(time, 0.0) * 1000) / 1000;
}

// Where stamps land in one render's output.
class StampMap {
 public:
  StampMap(std::span<const int> numbers, const OutputClock& clock)
      : numbers_(numbers), clock_(clock) {}

  double operator()(const TimelineStamp& stamp) const {
    for (std::size_t i = 0; i < numbers_.size(); ++i) {
      const int index = static_cast<int>(i);
      if (numbers_[i] == stamp.segment && stamp.time) {
        if (const auto time = clock_.outputTime(index, *stamp.time)) {
          return *time;
        }
      }
      // Between segments (or in one that kept no frames) the output goes on with the next.
      const bool later = stamp.time ? numbers_[i] > stamp.segment : numbers_[i] >= stamp.segment;
      if (later) {
        if (const auto start = clock_.segmentStart(index)) {
          return *start;
        }
      }
    }
    return end();
  }

  // After the last segment: where it ends (an outro card plays on after it).
  double end() const {
    for (int i = clock_.segmentCount() - 1; i >= 0; --i) {
      if (const auto last = clock_.segmentEnd(i)) {
        return *last;
      }
    }
    return 0;
  }

 private:
  std::span<const int> numbers_;
  const OutputClock& clock_;
};

std::string buttonName(int button) {
  switch (button) {
    case 1:
      return "left";
    case 2:
      return "middle";
    case 3:
      return "right";
    default:
      return "button " + std::to_string(button);
  }
}

}  // namespace

void ScriptTimeline::addInstruction(const LocatedInstruction& located, TimelineStamp start,
                                    TimelineStamp end) {
  instructions_.push_back(
      {located.line, std::string(commandName(located.instruction)), located.source, start, end});
}

void ScriptTimeline::addChapter(std::string name, int line, TimelineStamp at) {
  chapters_.push_back({std::move(name), line, at});
}

std::string ScriptTimeline::document(const std::filesystem::path& output,
                                     std::span<const RenderSegment> segments,
                                     std::span<const int> numbers, const OutputClock& clock) const {
  const StampMap at(numbers, clock);
  Json document = Json::object();
  document["output"] = output.string();
  document["duration"] = seconds(clock.length());
  document["loopStart"] = seconds(clock.loopStart());

  Json segmentList = Json::array();
  for (int i = 0; i < clock.segmentCount(); ++i) {
    const auto start = clock.segmentStart(i);
    if (!start) {
      continue;
    }
    segmentList.push_back({{"segment", i + 1},
                           {"start", seconds(*start)},
                           {"end", seconds(*clock.segmentEnd(i))},
                           {"recorded", seconds(segments[static_cast<std::size_t>(i)].duration)}});
  }
  document["segments"] = std::move(segmentList);

  Json chapters = Json::array();
  for (const Chapter& chapter : chapters_) {
    chapters.push_back(
        {{"name", chapter.name}, {"time", seconds(at(chapter.at))}, {"line", chapter.line}});
  }
  document["chapters"] = std::move(chapters);

  Json instructions = Json::array();
  for (const Instruction& instruction : instructions_) {
    const double start = at(instruction.start);
    // An instruction that ran while hidden shows nothing of its own: it is placed where the
    // output goes on, and takes no time there.
    const bool hidden = instruction.start.hidden && instruction.end.hidden;
    Json entry = {{"line", instruction.line},
                  {"command", instruction.command},
                  {"source", instruction.source},
                  {"time", seconds(start)},
                  {"end", seconds(hidden ? start : std::max(start, at(instruction.end)))}};
    if (hidden) {
      entry["hidden"] = true;
    }
    instructions.push_back(std::move(entry));
  }
  document["instructions"] = std::move(instructions);

  Json captions = Json::array();
  Json keystrokes = Json::array();
  Json clicks = Json::array();
  for (std::size_t i = 0; i < segments.size() && i < static_cast<std::size_t>(clock.segmentCount());
       ++i) {
    const RenderSegment& segment = segments[i];
    const int index = static_cast<int>(i);
    if (!clock.segmentStart(index)) {
      continue;
    }
    const auto shown = [&](double time) { return seconds(*clock.outputTime(index, time)); };
    const CaptionTrack track(segment.captions, RenderTimeline::segmentLength(segment));
    for (const CaptionTrack::Shown& caption : track.shown()) {
      captions.push_back(
          {{"text", caption.text},
           {"start", shown(caption.start)},
           {"end", shown(caption.end)},
           {"position", caption.position == Caption::Position::top ? "top" : "bottom"}});
    }
    const KeystrokeBadges keys(segment.events, true);
    for (const KeystrokeBadges::Badge& badge : keys.badges()) {
      const std::string label = KeystrokeBadges::label(badge);
      if (label.empty()) {
        continue;
      }
      keystrokes.push_back({{"time", shown(badge.time)}, {badge.typed ? "text" : "keys", label}});
    }
    for (const InputEvent& event : segment.events) {
      if (event.kind == InputEvent::Kind::mouseDown) {
        clicks.push_back({{"time", shown(event.timestamp)},
                          {"x", event.position.x},
                          {"y", event.position.y},
                          {"button", buttonName(event.button)}});
      }
    }
  }
  document["captions"] = std::move(captions);
  document["keystrokes"] = std::move(keystrokes);
  document["clicks"] = std::move(clicks);
  return document.dump(2);
}

}  // namespace brimble
