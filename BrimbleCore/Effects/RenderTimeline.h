#pragma once

#include <span>
#include <vector>

#include "BrimbleCore/Effects/RecordedSegment.h"

namespace brimble {

/// The source of one output frame: frame `frame` of segment `segment`, and during a crossfade
/// also frame `nextFrame` of segment `nextSegment`, weighted `blend` (0 shows only the first,
/// 1 only the second).
struct TimelineFrame {
  int segment = 0;
  int frame = 0;
  int nextSegment = -1;  // -1 outside crossfades
  int nextFrame = -1;
  double blend = 0;

  bool operator==(const TimelineFrame&) const = default;
};

/// Where each output frame comes from when segments are played one after another at a fixed
/// frame rate, each overlapping the next by a crossfade. Pure; safe from any thread.
namespace RenderTimeline {

/// How long `segment` plays: the longer of its recorded duration and the span its frames cover
/// (the last frame is shown for one frame time).
double segmentLength(const RecordedSegment& segment);

/// The crossfade actually used between segments of `lengths`: `transition`, but never more
/// than half of the shorter of two neighbours, and 0 when negative.
double crossfadeLength(std::span<const double> lengths, double transition);

/// One entry per output frame, 1/`fps` apart. Each output time shows the latest frame captured
/// at or before it (frame times from `frameTimes`, else 1/`segment.fps` apart). Segments
/// without frames are left out.
std::vector<TimelineFrame> build(std::span<const RecordedSegment> segments, int fps,
                                 double transition);

}  // namespace RenderTimeline
}  // namespace brimble
