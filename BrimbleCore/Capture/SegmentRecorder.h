#pragma once

#include <optional>

#include "BrimbleCore/Capture/AudioRecorder.h"
#include "BrimbleCore/Capture/RecordedSegment.h"
#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// What one `record` of a script captures, and how.
struct SegmentRequest {
  /// A window wherever it is and whatever covers it, or an area of the screen.
  CaptureTarget target;
  int fps = 30;
  bool showCursor = true;
  /// Sound to record beside the frames; none for silence.
  std::optional<AudioSource> sound;
};

/// The recorder of one script segment: frames, their times and the input that happened while it
/// ran, handed over as a RecordedSegment when it stops. The script engine makes one per
/// `record`; tests give it fakes. Start and stop from one thread; the others may be asked from
/// any thread.
class SegmentRecorder {
 public:
  SegmentRecorder() = default;
  SegmentRecorder(const SegmentRecorder&) = delete;
  SegmentRecorder& operator=(const SegmentRecorder&) = delete;
  SegmentRecorder(SegmentRecorder&&) = delete;
  SegmentRecorder& operator=(SegmentRecorder&&) = delete;
  virtual ~SegmentRecorder() = default;

  /// Starts recording; returns once frames are being taken. Throws RecordingError
  /// (noDisplay: an area on no display), ScreenCaptureError (windowNotFound) and, before any
  /// frame is taken, AudioError when sound was asked for and cannot be recorded.
  virtual void start(const SegmentRequest& request) = 0;
  /// Whether the recording ended on its own: the window was closed or the display went away.
  /// What was captured until then is kept.
  virtual bool hasEnded() const = 0;
  /// When the picture last changed (the clock's time), or the start.
  virtual Clock::TimePoint lastChangeTime() const = 0;
  /// Frames captured so far.
  virtual int frameCount() const = 0;
  /// While paused no frames are taken; the time paused still counts towards the duration.
  virtual void setPaused(bool paused) = 0;
  /// Stops and returns the segment: its frames (none when nothing was captured), their capture
  /// times, the input events, where it was on screen and how long it ran. Call once.
  virtual RecordedSegment stop() = 0;
};

}  // namespace brimble
