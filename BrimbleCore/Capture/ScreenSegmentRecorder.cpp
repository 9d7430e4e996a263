#include "BrimbleCore/Capture/ScreenSegmentRecorder.h"

#include <chrono>

namespace brimble {

ScreenSegmentRecorder::ScreenSegmentRecorder(ScreenSource& source, Clock& clock,
                                             EventCaptureFactory eventCapture)
    : source_(source),
      clock_(clock),
      eventCaptureFactory_(std::move(eventCapture)),
      recorder_(source, clock) {}

void ScreenSegmentRecorder::start(const SegmentRequest& request) {
  segment_.fps = request.fps;
  // Connected first: a missing sound server stops the segment before any frame is taken.
  if (request.sound) {
    sound_ = std::make_shared<AudioRecorder>(*request.sound, clock_);
  }
  framesStarted_ = clock_.now();
  // Where the platform can follow the pointer, frames are taken without it and the render draws
  // it (smoothed, with clicks, or not at all, as its settings say).
  const bool follow = source_.followsPointer();
  recorder_.tracksPointer = follow;
  segment_.framesShowCursor = follow ? false : request.showCursor;
  const bool showCursor = follow ? false : request.showCursor;
  if (request.target.kind == CaptureTarget::Kind::window) {
    auto window = source_.window(request.target.windowID);
    if (!window) {
      throw ScreenCaptureError::windowNotFound(request.target.windowID);
    }
    // The window manager's frame is recorded with the window, so the render can keep the real
    // title bar or cut it away exactly.
    if (const auto decorated = source_.decoratedWindow(request.target.windowID)) {
      window = decorated->window;
      segment_.frameExtents = decorated->extents;
    }
    segment_.windowFrame = window->frame;
    recorder_.start(*window, request.fps, showCursor);
  } else {
    const ScreenRect& area = request.target.area;
    const std::optional<ScreenDisplay> best = displayHolding(area, source_.displays());
    if (!best) {
      throw RecordingError::noDisplay();
    }
    segment_.windowFrame = area.intersection(best->frame);
    segment_.isRegionCapture = true;
    recorder_.start(area, *best, request.fps, showCursor);
  }
  const ImageSize size = recorder_.outputSize();
  if (segment_.windowFrame.width > 0) {
    segment_.scaleFactor = static_cast<double>(size.width) / segment_.windowFrame.width;
  }
  // Input is listened to once frames come in, so both share (nearly) the same start.
  if (eventCaptureFactory_) {
    eventCapture_ = eventCaptureFactory_();
    if (eventCapture_ && !eventCapture_->start()) {
      eventCapture_.reset();
    }
  }
  started_ = clock_.now();
}

int ScreenSegmentRecorder::frameCount() const {
  return static_cast<int>(recorder_.ingestedFrameCount());
}

RecordedSegment ScreenSegmentRecorder::stop() {
  RecordedSegment segment = std::move(segment_);
  segment.duration = std::chrono::duration<double>(clock_.now() - started_).count();
  segment.frames = recorder_.stopAndCollectFrameStore();
  segment.frameTimes = recorder_.frameTimes();
  for (const ScreenRecorder::PointerPosition& at : recorder_.pointerTrack()) {
    segment.pointerTrack.push_back({at.time, {at.x, at.y}, at.cursor});
  }
  segment.cursorImages = recorder_.cursorImages();
  if (eventCapture_) {
    segment.events = eventCapture_->stopAndCollectEvents();
    eventCapture_.reset();
  }
  if (sound_) {
    segment.sound = sound_->stop(framesStarted_);
    segment.soundFile = std::move(sound_);
  }
  return segment;
}

}  // namespace brimble
