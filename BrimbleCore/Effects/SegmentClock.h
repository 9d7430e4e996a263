#pragma once

#include <optional>
#include <span>
#include <vector>

#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/RenderSettings.h"

namespace brimble {

/// A span of a segment's own time, in seconds from its start.
struct TimeSpan {
  double start = 0;
  double end = 0;
  double length() const noexcept { return end - start; }
  bool operator==(const TimeSpan&) const = default;
};

/// How a segment's recorded time plays in the animation: at first as recorded, then with idle
/// stretches cut, sped through or dipped across, and typing bursts evened out. Maps the time
/// since the segment began to play (output time) to the time of the recording (source time);
/// the map never runs backwards. A value; safe to read from any thread.
class SegmentClock {
 public:
  /// What stays of an idle stretch under `cut` and `fade`: long enough to register as a pause,
  /// short enough not to bore.
  static constexpr double kIdleBeat = 0.5;
  /// The fastest an idle stretch plays under `ramp`, times real time.
  static constexpr double kRampSpeed = 8;
  /// Keystrokes at most this far apart belong to one typing burst.
  static constexpr double kBurstGap = 0.6;

  /// Plays `length` seconds as recorded.
  explicit SegmentClock(double length = 0);

  /// Stretches where nothing happens for longer than `threshold`: from a frame on which the
  /// picture changed (or the start) to the next change (or `length`), with no input between.
  /// `changeTimes` are the capture times of frames that differ from the frame before them (the
  /// first frame counts as a change), `inputTimes` the times of input events; both ascending.
  static std::vector<TimeSpan> idleStretches(std::span<const double> changeTimes,
                                             std::span<const double> inputTimes, double length,
                                             double threshold);

  /// The times of `events`' plain key presses: characters, space and backspace typed while no
  /// Control, Alt or Super key is held.
  static std::vector<double> typedKeyTimes(std::span<const InputEvent> events);
  /// Runs of at least three of `keyTimes` at most kBurstGap apart, as spans of their times.
  static std::vector<TimeSpan> typingBursts(std::span<const double> keyTimes);

  /// Idle `stretches` handled by `strategy`, and the key presses at `keyTimes` inside
  /// `bursts` moved to an even cadence.
  static SegmentClock remapped(double length, std::span<const TimeSpan> stretches,
                               std::optional<IdleStrategy> strategy,
                               std::span<const TimeSpan> bursts, std::span<const double> keyTimes);

  /// Seconds the segment plays for.
  double length() const noexcept { return outputLength_; }
  /// The recording's time shown at `outputTime` (clamped to the segment).
  double sourceTime(double outputTime) const;
  /// How dark a `fade` dip makes the frame at `outputTime`: 0 not at all, 1 black.
  double dip(double outputTime) const;
  /// Whether the map is the identity.
  bool isIdentity() const noexcept { return pieces_.size() <= 1 && dips_.empty(); }

 private:
  /// One stretch of output time mapped onto one stretch of source time, linearly or with an
  /// ease that starts and ends at real-time speed.
  struct Piece {
    double outputStart = 0;
    double outputEnd = 0;
    double sourceStart = 0;
    double sourceEnd = 0;
    bool eased = false;
  };

  std::vector<Piece> pieces_;
  std::vector<double> dips_;  // output times of `fade` cuts
  double outputLength_ = 0;
};

}  // namespace brimble
