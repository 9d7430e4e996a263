#include "Brimble/Recording/ScreenSessionRecorder.h"

#include <chrono>

namespace brimble {

namespace {

bool contains(const ScreenRect& rect, int x, int y) {
  return x >= rect.x && y >= rect.y && x < rect.x + rect.width && y < rect.y + rect.height;
}

}  // namespace

ScreenSessionRecorder::ScreenSessionRecorder(ScreenSource& source, Clock& clock)
    : source_(source), clock_(clock), recorder_(source, clock) {}

void ScreenSessionRecorder::start(const RecordingTarget& target, int fps, bool showCursor) {
  startDate_ = clock_.now();
  switch (target.mode) {
    case CaptureMode::window: {
      const auto window = source_.window(target.windowID);
      if (!window) {
        throw ScreenCaptureError::windowNotFound(target.windowID);
      }
      recorder_.start(*window, fps, showCursor);
      windowArea_ = window->frame;
      return;
    }
    case CaptureMode::region:
    case CaptureMode::fullScreen: {
      const std::vector<ScreenDisplay> displays = source_.displays();
      if (displays.empty()) {
        throw RecordingError::noDisplay();
      }
      // A region belongs to the display its centre is on; full screen to the pointer's.
      int x = target.region.x + target.region.width / 2;
      int y = target.region.y + target.region.height / 2;
      if (target.mode == CaptureMode::fullScreen) {
        const auto pointer = source_.pointerPosition();
        x = pointer ? pointer->first : 0;
        y = pointer ? pointer->second : 0;
      }
      const ScreenDisplay* chosen = &displays.front();
      for (const ScreenDisplay& display : displays) {
        if (contains(display.frame, x, y)) {
          chosen = &display;
          break;
        }
      }
      if (target.mode == CaptureMode::fullScreen) {
        recorder_.start(*chosen, fps, showCursor);
      } else {
        recorder_.start(target.region, *chosen, fps, showCursor);
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
  return std::chrono::duration<double>(clock_.now() - startDate_).count();
}

}  // namespace brimble
