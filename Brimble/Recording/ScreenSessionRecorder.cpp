#include "Brimble/Recording/ScreenSessionRecorder.h"

#include <chrono>

namespace brimble {

ScreenSessionRecorder::ScreenSessionRecorder(ScreenSource& source, Clock& clock, Marks marks)
    : source_(source), clock_(clock), marks_(marks), recorder_(source, clock) {}

void ScreenSessionRecorder::start(const RecordingTarget& target, int fps, bool showCursor) {
  startTime_ = clock_.now();
  switch (target.mode) {
    case CaptureMode::window: {
      const auto window = source_.window(target.windowID);
      if (!window) {
        throw ScreenCaptureError::windowNotFound(target.windowID);
      }
      recorder_.start(*window, fps, showCursor);
      // Where the desktop does not say where the window is (Wayland), marks made on the screen
      // cannot be placed on it.
      if (window->positionKnown) {
        markedArea_ = window->frame;
      }
      return;
    }
    case CaptureMode::region:
    case CaptureMode::fullScreen: {
      const std::vector<ScreenDisplay> displays = source_.displays();
      if (displays.empty()) {
        throw RecordingError::noDisplay();
      }
      if (target.mode == CaptureMode::region) {
        const std::optional<ScreenDisplay> holder = displayHolding(target.region, displays);
        if (!holder) {
          throw RecordingError::noDisplay();
        }
        recorder_.start(target.region, *holder, fps, showCursor);
        if (marks_ == Marks::drawnIntoFrames) {
          markedArea_ = target.region;
        }
        return;
      }
      // Full screen is the display the pointer is on.
      const auto pointer = source_.pointerPosition();
      const ScreenRect at{pointer ? pointer->first : 0, pointer ? pointer->second : 0, 1, 1};
      const std::optional<ScreenDisplay> chosen = displayHolding(at, displays);
      const ScreenDisplay& display = chosen ? *chosen : displays.front();
      recorder_.start(display, fps, showCursor);
      if (marks_ == Marks::drawnIntoFrames) {
        markedArea_ = display.frame;
      }
      return;
    }
  }
}

void ScreenSessionRecorder::pause() {
  recorder_.pause();
  if (!pauseStart_) {
    pauseStart_ = secondsSinceStart();
  }
}

void ScreenSessionRecorder::resume() {
  recorder_.resume();
  if (pauseStart_) {
    pauses_.push_back({*pauseStart_, secondsSinceStart()});
    pauseStart_.reset();
  }
}

std::vector<double> ScreenSessionRecorder::frameTimes() const {
  std::vector<double> times = recorder_.frameTimes();
  for (double& time : times) {
    // No frame is grabbed during a pause, so a frame lies wholly before or after each one; the
    // midpoint keeps that true though the recorder's clock started a moment after this one.
    double paused = 0;
    for (const Pause& pause : pauses_) {
      if ((pause.start + pause.end) / 2 < time) {
        paused += pause.end - pause.start;
      }
    }
    time -= paused;
  }
  return times;
}

double ScreenSessionRecorder::secondsSinceStart() const {
  return std::chrono::duration<double>(clock_.now() - startTime_).count();
}

}  // namespace brimble
