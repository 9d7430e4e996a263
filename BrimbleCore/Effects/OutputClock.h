#pragma once

#include <optional>
#include <vector>

#include "BrimbleCore/Effects/SegmentClock.h"

namespace brimble {

/// Where the moments of a render's segments land in its output: after title cards, crossfades,
/// idle stretches cut or sped through, typing evened out and the playback speed, the time
/// (seconds from the output's first frame) at which a moment of a segment's recording is shown. A
/// value; safe to read from any thread.
class OutputClock {
 public:
  OutputClock() = default;
  /// Segment i begins at `starts[i]` (no value: it does not play) and plays by `clocks[i]`,
  /// both in seconds of the output played at its natural pace, which plays `speed` times as
  /// fast; the output lasts `length` seconds as it plays.
  /// The file begins `loopStart` seconds into the output as these times count it; what comes
  /// before plays after the end.
  OutputClock(std::vector<std::optional<double>> starts, std::vector<SegmentClock> clocks,
              double length, double speed = 1, double loopStart = 0);

  int segmentCount() const noexcept { return static_cast<int>(starts_.size()); }
  /// Seconds the output plays.
  double length() const noexcept { return length_; }
  /// Where the file's first frame is, in the times below (0 unless the loop was offset).
  double loopStart() const noexcept { return loopStart_; }
  /// When segment `segment` begins and ends in the output; no value when it does not play.
  std::optional<double> segmentStart(int segment) const;
  std::optional<double> segmentEnd(int segment) const;
  /// When the moment `sourceTime` seconds into segment `segment`'s recording shows (a moment
  /// inside a stretch cut out shows where the cut is); no value when the segment does not play.
  std::optional<double> outputTime(int segment, double sourceTime) const;

 private:
  std::vector<std::optional<double>> starts_;
  std::vector<SegmentClock> clocks_;
  double length_ = 0;
  double speed_ = 1;
  double loopStart_ = 0;
};

}  // namespace brimble
