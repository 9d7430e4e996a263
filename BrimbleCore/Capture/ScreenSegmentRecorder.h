#pragma once

#include <functional>
#include <memory>

#include "BrimbleCore/Automation/EventCapture.h"
#include "BrimbleCore/Capture/ScreenRecorder.h"
#include "BrimbleCore/Capture/SegmentRecorder.h"

namespace brimble {

/// A SegmentRecorder over the screen: a ScreenRecorder for the frames and, when the platform
/// can listen, an EventCapture for the input. `source` and `clock` are borrowed and must outlive
/// it. Thread contract as SegmentRecorder's.
class ScreenSegmentRecorder final : public SegmentRecorder {
 public:
  using EventCaptureFactory = std::function<std::unique_ptr<EventCapture>()>;

  /// `eventCapture` makes the listener of the segment's input; empty: no input is recorded.
  ScreenSegmentRecorder(ScreenSource& source, Clock& clock, EventCaptureFactory eventCapture = {});

  void start(const SegmentRequest& request) override;
  bool hasEnded() const override { return recorder_.hasStreamEnded(); }
  Clock::TimePoint lastChangeTime() const override { return recorder_.lastChangeTime(); }
  int frameCount() const override;
  void setPaused(bool paused) override {
    if (paused) {
      recorder_.pause();
    } else {
      recorder_.resume();
    }
  }
  RecordedSegment stop() override;

 private:
  ScreenSource& source_;
  Clock& clock_;
  EventCaptureFactory eventCaptureFactory_;
  ScreenRecorder recorder_;
  std::unique_ptr<EventCapture> eventCapture_;
  std::shared_ptr<AudioRecorder> sound_;
  Clock::TimePoint framesStarted_;  // just before the first frame: what frame times count from
  Clock::TimePoint started_;
  RecordedSegment segment_;  // what is known at the start: fps, frame on screen, scale, kind
};

}  // namespace brimble
