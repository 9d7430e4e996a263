#pragma once

#include <optional>
#include <vector>

#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// One mark drawn over the screen during a recording.
struct Annotation {
  enum class Kind { stroke, arrow, rectangle };
  struct Point {
    int x = 0;
    int y = 0;
    bool operator==(const Point&) const = default;
  };

  /// How marks look, on the screen and in frames they are drawn into, in screen pixels.
  static constexpr int kPenWidth = 5;
  static constexpr int kRed = 235, kGreen = 40, kBlue = 40;
  static constexpr double kArrowHeadLength = 18;
  /// Radians between the shaft and each side of the head.
  static constexpr double kArrowHeadSpread = 0.45;

  Kind kind = Kind::stroke;
  /// Screen coordinates: every point of a stroke; the start and end of an arrow; two opposite
  /// corners of a rectangle.
  std::vector<Point> points;
  /// Seconds of recording time (pauses excluded) at which it was finished.
  double time = 0;
};

/// The marks of one recording, stamped in recording time: the wall time since the recording
/// started less the time spent paused, so a mark made after a pause sits where it was seen in
/// the clip. Main thread only.
class AnnotationStore {
 public:
  /// `clock` must outlive the store.
  explicit AnnotationStore(Clock& clock) : clock_(clock) {}

  /// Starts a recording: no marks, no pauses, time 0 now.
  void startRecording();
  void pauseRecording();
  void resumeRecording();

  /// Seconds recorded so far, pauses excluded.
  double recordingTime() const;
  /// Keeps `annotation`, stamped with the recording time now.
  const Annotation& add(Annotation annotation);

  const std::vector<Annotation>& annotations() const noexcept { return annotations_; }
  bool isPaused() const noexcept { return pauseStartTime_.has_value(); }

 private:
  Clock& clock_;
  Clock::TimePoint recordingStartTime_{};
  Clock::Duration totalPausedDuration_{};
  std::optional<Clock::TimePoint> pauseStartTime_;
  std::vector<Annotation> annotations_;
};

}  // namespace brimble
