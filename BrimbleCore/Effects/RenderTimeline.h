#pragma once

#include <optional>
#include <span>
#include <vector>

#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/SegmentClock.h"

namespace brimble {

/// What an output frame shows, or blends into during a crossfade: a segment's frame, or a
/// title card.
enum class TimelineSource { segment, intro, outro };

/// The source of one output frame: frame `frame` of segment `segment` at `time` seconds of its
/// recording (or `time` seconds into a title card), and during a crossfade also the `next`
/// source, weighted `blend` (0 shows only the first, 1 only the second). `dip` darkens the
/// first source across an idle `fade`.
struct TimelineFrame {
  int segment = 0;
  int frame = 0;
  int nextSegment = -1;  // -1 outside crossfades and for cards
  int nextFrame = -1;    // -1 outside crossfades
  double blend = 0;
  TimelineSource source = TimelineSource::segment;
  TimelineSource nextSource = TimelineSource::segment;
  double time = 0;
  double nextTime = 0;
  double dip = 0;

  /// Whether both show the same pictures mixed alike (their times may differ).
  bool showsSameAs(const TimelineFrame& other) const noexcept;
};

/// What plays besides the segments: title cards before and after them.
struct TimelineCards {
  double introLength = 0;  // 0: no intro card
  double outroLength = 0;
  /// How long a card crossfades into the recording and out of it.
  double fade = 0.5;
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

/// The frame of `segment` on screen at `time` of its recording: the latest captured at or
/// before it (frame times from `frameTimes`, else 1/`segment.fps` apart).
int frameAt(const RecordedSegment& segment, double time);

/// One entry per output frame, 1/`fps` apart, with each segment's time as recorded and no
/// cards. Segments without frames are left out.
std::vector<TimelineFrame> build(std::span<const RenderSegment> segments, int fps,
                                 double transition);

/// As above, with each segment played by its clock in `clocks` (one per segment) and the
/// title cards of `cards`, the whole played `speed` times as fast: frame k shows the moment
/// k * speed / fps, so that above 1 the moments between two output frames are skipped.
std::vector<TimelineFrame> build(std::span<const RenderSegment> segments,
                                 std::span<const SegmentClock> clocks, const TimelineCards& cards,
                                 int fps, double transition, double speed = 1);

/// Where each segment begins in the output that `build` makes of the same arguments (seconds
/// from its first frame); no value for a segment that does not play.
std::vector<std::optional<double>> segmentStarts(std::span<const RenderSegment> segments,
                                                 std::span<const SegmentClock> clocks,
                                                 const TimelineCards& cards, double transition);

}  // namespace RenderTimeline
}  // namespace brimble
