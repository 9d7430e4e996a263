#include "BrimbleCore/Effects/RenderTimeline.h"

#include <algorithm>
#include <cmath>

namespace brimble::RenderTimeline {
namespace {

double frameTime(const RecordedSegment& segment, int index) {
  if (!segment.frameTimes.empty()) {
    return segment.frameTimes[static_cast<std::size_t>(index)];
  }
  return index / static_cast<double>(std::max(segment.fps, 1));
}

// The latest frame captured at or before `time` (the first frame before it was captured).
int frameAt(const RecordedSegment& segment, double time) {
  const int count = segment.frames->count();
  if (!segment.frameTimes.empty()) {
    const auto after = std::upper_bound(segment.frameTimes.begin(),
                                        segment.frameTimes.begin() + count, time + 1e-9);
    return std::max(0, static_cast<int>(after - segment.frameTimes.begin()) - 1);
  }
  const int index = static_cast<int>(std::floor(time * std::max(segment.fps, 1) + 1e-9));
  return std::clamp(index, 0, count - 1);
}

bool hasFrames(const RecordedSegment& segment) {
  return segment.frames && segment.frames->count() > 0;
}

}  // namespace

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

std::vector<TimelineFrame> build(std::span<const RecordedSegment> segments, int fps,
                                 double transition) {
  std::vector<int> playing;
  std::vector<double> lengths;
  for (std::size_t i = 0; i < segments.size(); ++i) {
    if (hasFrames(segments[i])) {
      playing.push_back(static_cast<int>(i));
      lengths.push_back(segmentLength(segments[i]));
    }
  }
  std::vector<TimelineFrame> timeline;
  if (playing.empty() || fps <= 0) {
    return timeline;
  }
  const double fade = crossfadeLength(lengths, transition);
  std::vector<double> starts(playing.size(), 0);
  for (std::size_t i = 1; i < playing.size(); ++i) {
    starts[i] = starts[i - 1] + lengths[i - 1] - fade;
  }
  const double total = starts.back() + lengths.back();
  // Rounded, so that a length of exactly N frame times is N frames despite floating point.
  const auto frames = static_cast<long>(std::llround(std::ceil(total * fps - 1e-6)));
  std::size_t current = 0;
  for (long k = 0; k < frames; ++k) {
    const double time = static_cast<double>(k) / fps;
    while (current + 1 < playing.size() && time >= starts[current] + lengths[current] - 1e-9) {
      ++current;
    }
    const RecordedSegment& segment = segments[static_cast<std::size_t>(playing[current])];
    TimelineFrame entry{playing[current], frameAt(segment, time - starts[current])};
    const std::size_t next = current + 1;
    if (next < playing.size() && fade > 0 && time >= starts[next] - 1e-9) {
      const RecordedSegment& following = segments[static_cast<std::size_t>(playing[next])];
      entry.nextSegment = playing[next];
      entry.nextFrame = frameAt(following, time - starts[next]);
      entry.blend = std::clamp((time - starts[next]) / fade, 0.0, 1.0);
    }
    timeline.push_back(entry);
  }
  return timeline;
}

}  // namespace brimble::RenderTimeline
