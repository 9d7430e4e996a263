#include "BrimbleCore/Effects/RenderTimeline.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace brimble {

bool TimelineFrame::showsSameAs(const TimelineFrame& other) const noexcept {
  const auto sameFirst =
      source == other.source &&
      (source == TimelineSource::segment ? segment == other.segment && frame == other.frame : true);
  const auto sameNext = nextSegment == other.nextSegment && nextSource == other.nextSource &&
                        nextFrame == other.nextFrame;
  return sameFirst && sameNext && blend == other.blend && dip == other.dip;
}

namespace RenderTimeline {
namespace {

double frameTime(const RecordedSegment& segment, int index) {
  if (!segment.frameTimes.empty()) {
    return segment.frameTimes[static_cast<std::size_t>(index)];
  }
  return index / static_cast<double>(std::max(segment.fps, 1));
}

bool hasFrames(const RecordedSegment& segment) {
  return segment.frames && segment.frames->count() > 0;
}

// One thing that plays: a card, or a segment with its clock.
struct Clip {
  TimelineSource source = TimelineSource::segment;
  int segment = -1;
  const SegmentClock* clock = nullptr;
  double length = 0;
};

}  // namespace

int frameAt(const RecordedSegment& segment, double time) {
  const int count = segment.frames->count();
  if (!segment.frameTimes.empty()) {
    const auto end = segment.frameTimes.begin() +
                     std::min<std::ptrdiff_t>(count, std::ssize(segment.frameTimes));
    const auto after = std::upper_bound(segment.frameTimes.begin(), end, time + 1e-9);
    return std::max(0, static_cast<int>(after - segment.frameTimes.begin()) - 1);
  }
  const int index = static_cast<int>(std::floor(time * std::max(segment.fps, 1) + 1e-9));
  return std::clamp(index, 0, count - 1);
}

double segmentLength(const RecordedSegment& segment) {
  if (!hasFrames(segment)) {
    return 0;
  }
  const int count = segment.frames->count();
  const double span = frameTime(segment, count - 1) + 1.0 / std::max(segment.fps, 1);
  return std::max(segment.duration, span);
}

double crossfadeLength(std::span<const double> lengths, double transition) {
  double length = std::max(transition, 0.0);
  for (std::size_t i = 1; i < lengths.size(); ++i) {
    length = std::min(length, std::min(lengths[i - 1], lengths[i]) / 2);
  }
  return length;
}

std::vector<TimelineFrame> build(std::span<const RenderSegment> segments, int fps,
                                 double transition) {
  std::vector<SegmentClock> clocks;
  for (const RenderSegment& segment : segments) {
    clocks.emplace_back(segmentLength(segment));
  }
  return build(segments, clocks, {0, 0, 0}, fps, transition);
}

namespace {

// The clips that play, one after another, each overlapping the next by its fade.
struct ClipPlan {
  std::vector<Clip> clips;
  std::vector<double> fades;   // fades[i]: between clip i and i + 1
  std::vector<double> starts;  // output time at which each clip begins
  double total = 0;
};

ClipPlan planClips(std::span<const RenderSegment> segments, std::span<const SegmentClock> clocks,
                   const TimelineCards& cards, double transition) {
  ClipPlan plan;
  std::vector<Clip>& clips = plan.clips;
  std::vector<double> segmentLengths;
  if (cards.introLength > 0) {
    clips.push_back({TimelineSource::intro, -1, nullptr, cards.introLength});
  }
  for (std::size_t i = 0; i < segments.size() && i < clocks.size(); ++i) {
    if (hasFrames(segments[i]) && clocks[i].length() > 0) {
      clips.push_back(
          {TimelineSource::segment, static_cast<int>(i), &clocks[i], clocks[i].length()});
      segmentLengths.push_back(clocks[i].length());
    }
  }
  if (segmentLengths.empty()) {
    clips.clear();
    return plan;
  }
  if (cards.outroLength > 0) {
    clips.push_back({TimelineSource::outro, -1, nullptr, cards.outroLength});
  }
  // Segments share one crossfade length; a card fades by its own, within half of either side.
  const double segmentFade = crossfadeLength(segmentLengths, transition);
  plan.fades.assign(clips.size(), 0);
  for (std::size_t i = 0; i + 1 < clips.size(); ++i) {
    const bool card = clips[i].source != TimelineSource::segment ||
                      clips[i + 1].source != TimelineSource::segment;
    plan.fades[i] =
        card ? std::min({std::max(cards.fade, 0.0), clips[i].length / 2, clips[i + 1].length / 2})
             : segmentFade;
  }
  plan.starts.assign(clips.size(), 0);
  for (std::size_t i = 1; i < clips.size(); ++i) {
    plan.starts[i] = plan.starts[i - 1] + clips[i - 1].length - plan.fades[i - 1];
  }
  plan.total = plan.starts.back() + clips.back().length;
  return plan;
}

}  // namespace

std::vector<std::optional<double>> segmentStarts(std::span<const RenderSegment> segments,
                                                 std::span<const SegmentClock> clocks,
                                                 const TimelineCards& cards, double transition) {
  std::vector<std::optional<double>> starts(segments.size());
  const ClipPlan plan = planClips(segments, clocks, cards, transition);
  for (std::size_t i = 0; i < plan.clips.size(); ++i) {
    if (plan.clips[i].source == TimelineSource::segment) {
      starts[static_cast<std::size_t>(plan.clips[i].segment)] = plan.starts[i];
    }
  }
  return starts;
}

std::vector<TimelineFrame> build(std::span<const RenderSegment> segments,
                                 std::span<const SegmentClock> clocks, const TimelineCards& cards,
                                 int fps, double transition, double speed) {
  std::vector<TimelineFrame> timeline;
  const ClipPlan plan = planClips(segments, clocks, cards, transition);
  if (plan.clips.empty() || fps <= 0 || !(speed > 0)) {
    return timeline;
  }
  const std::vector<Clip>& clips = plan.clips;
  const std::vector<double>& fades = plan.fades;
  const std::vector<double>& starts = plan.starts;
  const double total = plan.total;
  const auto entryOf = [&](const Clip& clip, double local, int& frame, double& time) {
    if (clip.source == TimelineSource::segment) {
      time = clip.clock->sourceTime(local);
      frame = frameAt(segments[static_cast<std::size_t>(clip.segment)], time);
    } else {
      time = local;
      frame = 0;
    }
  };
  // Rounded, so that a length of exactly N frame times is N frames despite floating point.
  const auto frames = static_cast<long>(std::llround(std::ceil(total / speed * fps - 1e-6)));
  std::size_t current = 0;
  for (long k = 0; k < frames; ++k) {
    const double time = static_cast<double>(k) * speed / fps;
    while (current + 1 < clips.size() && time >= starts[current] + clips[current].length - 1e-9) {
      ++current;
    }
    const Clip& clip = clips[current];
    TimelineFrame entry;
    entry.source = clip.source;
    entry.segment = clip.segment;
    entryOf(clip, time - starts[current], entry.frame, entry.time);
    if (clip.clock != nullptr) {
      entry.dip = clip.clock->dip(time - starts[current]);
    }
    const std::size_t next = current + 1;
    if (next < clips.size() && fades[current] > 0 && time >= starts[next] - 1e-9) {
      const Clip& following = clips[next];
      entry.nextSource = following.source;
      entry.nextSegment = following.segment;
      entryOf(following, time - starts[next], entry.nextFrame, entry.nextTime);
      entry.blend = std::clamp((time - starts[next]) / fades[current], 0.0, 1.0);
    }
    timeline.push_back(entry);
  }
  return timeline;
}

}  // namespace RenderTimeline
}  // namespace brimble
