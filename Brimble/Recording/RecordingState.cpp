#include "Brimble/Recording/RecordingState.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include <QtCore/qnamespace.h>
#include <fmt/format.h>

#include "BrimbleCore/Support/Log.h"

namespace brimble {

namespace {

double seconds(Clock::Duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

RecordingState::RecordingState(Services services)
    : services_(std::move(services)),
      annotationStore_(services_.clock),
      encodingJob_(services_.scheduler, services_.captureDirectory, services_.encoder),
      handover_(services_.view, services_.delivery, services_.history, services_.settings) {}

RecordingState::~RecordingState() {
  *alive_ = false;
  if (screenRecorder_) {
    screenRecorder_.reset();  // its destructor deletes the frames it never handed over
  }
}

// ---- phase changes ----

void RecordingState::transition(RecordingPhase phase) {
  const RecordingPhase previous = phase_;
  if (phase == RecordingPhase::idle) {
    encodingProgress_ = 0;
    encodingPass_ = 1;
  }
  if (phase == RecordingPhase::encoding) {
    encodingProgress_ = 0;
    encodingPass_ = 1;
  }
  phase_ = phase;
  if (onStateChange) {
    onStateChange(phase);
  }
  const std::string text = announcement(previous, phase);
  if (!text.empty()) {
    services_.view.announce(text);
  }
}

std::string RecordingState::announcement(RecordingPhase from, RecordingPhase to) const {
  switch (to) {
    case RecordingPhase::idle:
      return {};
    case RecordingPhase::selecting:
      return captureMode_ == CaptureMode::window ? "Click a window to record"
                                                 : "Select a screen region to record";
    case RecordingPhase::ready:
      return "Region selected. Resize or move the selection, then press Start or Space to begin "
             "recording.";
    case RecordingPhase::countdown:
      return "Recording starts shortly. Press Escape to cancel or Space to skip.";
    case RecordingPhase::recording:
      if (from == RecordingPhase::paused) {
        return "Recording resumed";
      }
      switch (captureMode_) {
        case CaptureMode::region:
          return "Recording started. Space to pause, S to save, Return to stop.";
        case CaptureMode::window:
          return "Recording window. Space to pause, S to save, Return to stop.";
        case CaptureMode::fullScreen:
          return "Recording full screen. Space to pause, S to save, Return to stop.";
      }
      return {};
    case RecordingPhase::paused:
      return "Recording paused";
    case RecordingPhase::encoding:
      return std::string("Encoding") + " GIF";
  }
  return {};
}

// ---- triggers ----

void RecordingState::handleHotkeyTrigger() {
  switch (phase_) {
    case RecordingPhase::idle:
      services_.scheduler.post([this, alive = std::weak_ptr<bool>(alive_)] {
        if (alive.lock() && phase_ == RecordingPhase::idle) {
          startSelection();
        }
      });
      break;
    case RecordingPhase::selecting:
    case RecordingPhase::ready:
    case RecordingPhase::countdown:
      cancelSelection();
      break;
    case RecordingPhase::recording:
    case RecordingPhase::paused:
      stopRecording();
      break;
    case RecordingPhase::encoding:
      cancelEncoding();
      break;
  }
}

void RecordingState::handleRegionTrigger() {
  if (phase_ == RecordingPhase::idle) {
    startSelection();
  }
}

void RecordingState::handleWindowTrigger() {
  services_.scheduler.post([this, alive = std::weak_ptr<bool>(alive_)] {
    if (alive.lock() && phase_ == RecordingPhase::idle) {
      startWindowSelection();
    }
  });
}

void RecordingState::handleFullScreenTrigger() {
  services_.scheduler.post([this, alive = std::weak_ptr<bool>(alive_)] {
    if (alive.lock() && phase_ == RecordingPhase::idle) {
      startFullScreen();
    }
  });
}

void RecordingState::beginAppendCapture(AppendSession session) {
  if (phase_ != RecordingPhase::idle) {
    if (session.onCancelled) {
      session.onCancelled();
    }
    return;
  }
  handover_.beginAppend(std::move(session));
  startSelection();
}

void RecordingState::startSelection() {
  captureMode_ = CaptureMode::region;
  services_.view.showRegionOverlay();
  transition(RecordingPhase::selecting);
}

void RecordingState::startWindowSelection() {
  captureMode_ = CaptureMode::window;
  services_.view.showWindowPicker();
  transition(RecordingPhase::selecting);
}

void RecordingState::regionSelected(const ScreenRect& region) {
  if (phase_ != RecordingPhase::selecting || captureMode_ != CaptureMode::region) {
    return;
  }
  if (services_.settings().autoStartAfterRegionSelection) {
    selectedRegion_ = region;
    services_.view.hideSelection();
    runCountdownOrStart({CaptureMode::region, region, 0});
  } else {
    enterReady(region);
  }
}

void RecordingState::adjustRegion(const ScreenRect& region) {
  if (phase_ == RecordingPhase::ready) {
    selectedRegion_ = region;
    services_.view.showPanel(PanelMode::ready, region);
  }
}

void RecordingState::enterReady(const ScreenRect& region) {
  selectedRegion_ = region;
  keyboardMonitorInstalled_ = true;
  services_.view.showPanel(PanelMode::ready, region);
  transition(RecordingPhase::ready);
}

void RecordingState::startFromReady() {
  if (phase_ != RecordingPhase::ready) {
    return;
  }
  services_.view.hideSelection();
  runCountdownOrStart({CaptureMode::region, selectedRegion_, 0});
}

void RecordingState::startWindow(std::uint32_t windowID) {
  if (phase_ != RecordingPhase::selecting || captureMode_ != CaptureMode::window) {
    return;
  }
  services_.view.hideSelection();
  runCountdownOrStart({CaptureMode::window, {}, windowID});
}

void RecordingState::startFullScreen() {
  if (phase_ != RecordingPhase::idle) {
    return;
  }
  captureMode_ = CaptureMode::fullScreen;
  runCountdownOrStart({CaptureMode::fullScreen, {}, 0});
}

// ---- countdown and capture ----

void RecordingState::runCountdownOrStart(const RecordingTarget& target) {
  keyboardMonitorInstalled_ = true;
  const int delay = std::max(0, services_.settings().countdownDelay);
  services_.view.showPanel(delay > 0 ? PanelMode::countdown : PanelMode::recording, target.region);
  if (delay == 0) {
    performCapture(target);
    return;
  }
  countdownTarget_ = target;
  countdownRemaining_ = delay;
  services_.view.showCountdown(delay, countdownAccessibleText(delay));
  transition(RecordingPhase::countdown);
  countdownTimer_ = services_.scheduler.every(1.0, [this] { countdownTick(); });
}

void RecordingState::countdownTick() {
  if (phase_ != RecordingPhase::countdown) {
    return;
  }
  --countdownRemaining_;
  if (countdownRemaining_ <= 0) {
    finishCountdown();
    return;
  }
  services_.view.showCountdown(countdownRemaining_, countdownAccessibleText(countdownRemaining_));
}

void RecordingState::finishCountdown() {
  if (!countdownTimer_ || !countdownTarget_) {
    return;
  }
  countdownTimer_.reset();
  const RecordingTarget target = *countdownTarget_;
  countdownTarget_.reset();
  services_.view.showPanel(PanelMode::recording, target.region);
  performCapture(target);
}

void RecordingState::performCapture(const RecordingTarget& target) {
  const AppSettings settings = services_.settings();
  try {
    std::unique_ptr<SessionRecorder> recorder = services_.makeRecorder();
    recorder->start(target, settings.frameRate, settings.showCursor);
    screenRecorder_ = std::move(recorder);
  } catch (const std::exception& error) {
    logLine(std::string("Brimble: Failed to start recording: ") + error.what());
    services_.view.showMessage(std::string("Failed to start recording: ") + error.what(),
                               MessageKind::error);
    tearDownSession();
    handover_.cancelAppend();
    transition(RecordingPhase::idle);
    return;
  }
  recordingStartTime_ = services_.clock.now();
  annotationStore_.startRecording();
  maxRecordingDuration_ = settings.maxRecordingDuration;
  inactivityTimeout_ = settings.inactivityTimeout;
  logLine(fmt::format("Brimble: recording started ({})", captureModeName(captureMode_)));
  transition(RecordingPhase::recording);
  services_.view.showElapsed(timerText(0), timerAccessibleText(0));
  displayTimer_ = services_.scheduler.every(1.0, [this] { recordingTick(); });
}

double RecordingState::elapsedRecordingTime() const {
  if (phase_ != RecordingPhase::recording && phase_ != RecordingPhase::paused) {
    return 0;
  }
  return annotationStore_.recordingTime();
}

void RecordingState::recordingTick() {
  if (phase_ != RecordingPhase::recording && phase_ != RecordingPhase::paused) {
    return;
  }
  const double elapsed = elapsedRecordingTime();
  services_.view.showElapsed(timerText(elapsed), timerAccessibleText(elapsed));
  if (screenRecorder_ && screenRecorder_->isDiskCritical()) {
    services_.view.showMessage(
        "Recording stopped: your disk is almost full. Frames captured so far were kept.",
        MessageKind::warning);
    stopRecording();
    return;
  }
  if (maxRecordingDuration_ > 0 && elapsed >= maxRecordingDuration_) {
    logLine(
        fmt::format("Brimble: maximum recording duration of {} s reached", maxRecordingDuration_));
    stopRecording();
    return;
  }
  // A paused recording is idle on purpose: only a running one can time out.
  if (phase_ == RecordingPhase::recording && inactivityTimeout_ > 0 && screenRecorder_) {
    const Clock::TimePoint lastChange =
        std::max(screenRecorder_->lastChangeTime(), recordingStartTime_);
    if (seconds(services_.clock.now() - lastChange) >= inactivityTimeout_) {
      logLine(fmt::format("Brimble: nothing changed for {} s, stopping the recording",
                          inactivityTimeout_));
      stopRecording();
    }
  }
}

// ---- keys ----

bool RecordingState::handleKey(int qtKey, bool shift) {
  if (!keyboardMonitorInstalled_) {
    return false;
  }
  const bool isReturn = qtKey == Qt::Key_Return || qtKey == Qt::Key_Enter;
  const bool isSpace = qtKey == Qt::Key_Space;
  const bool isEscape = qtKey == Qt::Key_Escape;
  switch (phase_) {
    case RecordingPhase::countdown:
      if (isReturn || isSpace) {
        finishCountdown();
        return true;
      }
      if (isEscape) {
        cancelSelection();
        return true;
      }
      return false;
    case RecordingPhase::ready:
      if (isReturn || isSpace) {
        startFromReady();
        return true;
      }
      if (isEscape) {
        cancelSelection();
        return true;
      }
      return false;
    case RecordingPhase::recording:
    case RecordingPhase::paused:
      if (qtKey == Qt::Key_S) {
        shift ? stopAndShare() : stopAndSaveToFile();
        return true;
      }
      if (qtKey == Qt::Key_A) {
        toggleAnnotationMode();
        return true;
      }
      if (isReturn) {
        stopRecording();
        return true;
      }
      if (isSpace) {
        togglePause();
        return true;
      }
      if (isEscape) {
        cancelSelection();
        return true;
      }
      return false;
    default:
      return false;
  }
}

// ---- pause ----

void RecordingState::togglePause() {
  if (!screenRecorder_) {
    return;
  }
  if (phase_ == RecordingPhase::recording) {
    screenRecorder_->pause();
    annotationStore_.pauseRecording();
    transition(RecordingPhase::paused);
    services_.view.showPaused(true);
  } else if (phase_ == RecordingPhase::paused) {
    screenRecorder_->resume();
    annotationStore_.resumeRecording();
    transition(RecordingPhase::recording);
    services_.view.showPaused(false);
  }
}

// ---- annotations ----

void RecordingState::toggleAnnotationMode() {
  if (phase_ != RecordingPhase::recording && phase_ != RecordingPhase::paused) {
    return;
  }
  annotating_ = !annotating_;
  annotationLayerShown_ = true;
  services_.view.showAnnotationLayer(true, annotating_);
}

void RecordingState::addAnnotation(Annotation annotation) {
  if (phase_ == RecordingPhase::recording || phase_ == RecordingPhase::paused) {
    annotationStore_.add(std::move(annotation));
  }
}

void RecordingState::hideAnnotations() {
  annotating_ = false;
  if (annotationLayerShown_) {
    annotationLayerShown_ = false;
    services_.view.showAnnotationLayer(false, false);
  }
}

// ---- stop, encode, deliver ----

void RecordingState::stopRecording() {
  stopAndDeliver(Delivery::copy);
}

void RecordingState::stopAndSaveToFile() {
  stopAndDeliver(Delivery::save);
}

void RecordingState::stopAndShare() {
  stopAndDeliver(Delivery::share);
}

void RecordingState::stopAndDeliver(Delivery delivery) {
  if ((phase_ != RecordingPhase::recording && phase_ != RecordingPhase::paused) ||
      !screenRecorder_) {
    return;
  }
  FinishedRecording recording;
  recording.seconds = elapsedRecordingTime();
  hideAnnotations();
  keyboardMonitorInstalled_ = false;
  displayTimer_.reset();
  services_.view.dismissPanel();
  services_.view.hideSelection();
  transition(RecordingPhase::encoding);

  std::unique_ptr<SessionRecorder> recorder = std::move(screenRecorder_);
  recording.frames = recorder->stopAndCollectFrameStore();
  if (recorder->lostFrameCount() > 0) {
    services_.view.showMessage("Some frames were lost while recording because the disk filled up.",
                               MessageKind::warning);
  }
  recording.frameTimes = recorder->frameTimes();
  recording.markedArea = recorder->markedArea();
  if (recording.markedArea) {
    recording.annotations = annotationStore_.annotations();
  }
  recorder.reset();

  const EncodingSettings encoding = handover_.encodingSettings();
  if (!recording.frames || recording.frames->count() == 0) {
    handover_.reportFailure(delivery, encoding.format, "no frames were recorded");
    transition(RecordingPhase::idle);
    return;
  }
  encodingJob_.start(
      std::move(recording), encoding,
      [this](double fraction, int pass) {
        encodingProgress_ = fraction;
        encodingPass_ = pass;
        if (onEncodingProgress) {
          onEncodingProgress(encodingProgress_, encodingPass_);
        }
      },
      [this, delivery](const EncodedClip& clip) { encodingFinished(delivery, clip); });
}

void RecordingState::encodingFinished(Delivery delivery, const EncodedClip& clip) {
  if (onClipEncoded) {
    onClipEncoded(clip);
  }
  if (clip.failure) {
    handover_.reportFailure(delivery, clip.format, *clip.failure);
  } else {
    encodingPass_ = clip.passes;
    handover_.deliver(delivery, clip.file, clip.format, clip.frames);
  }
  transition(RecordingPhase::idle);
}

// ---- cancelling ----

void RecordingState::cancelSelection() {
  if (phase_ == RecordingPhase::idle || phase_ == RecordingPhase::encoding) {
    return;
  }
  tearDownSession();
  handover_.cancelAppend();
  transition(RecordingPhase::idle);
}

void RecordingState::tearDownSession() {
  services_.view.hideSelection();
  services_.view.dismissPanel();
  keyboardMonitorInstalled_ = false;
  countdownTimer_.reset();
  countdownTarget_.reset();
  displayTimer_.reset();
  if (screenRecorder_) {
    // Collected and dropped at once: the store deletes its frame file.
    screenRecorder_->stopAndCollectFrameStore();
    screenRecorder_.reset();
  }
  hideAnnotations();
}

void RecordingState::cancelEncoding() {
  if (phase_ != RecordingPhase::encoding) {
    return;
  }
  encodingJob_.cancel();
  logLine("Brimble: encoding cancelled");
  handover_.cancelAppend();
  transition(RecordingPhase::idle);
}

// ---- texts ----

std::string RecordingState::timerText(double elapsed) {
  const auto total = static_cast<long long>(std::max(0.0, elapsed));
  return fmt::format("{:02d}:{:02d}", total / 60, total % 60);
}

std::string RecordingState::timerAccessibleText(double elapsed) {
  const auto total = static_cast<long long>(std::max(0.0, elapsed));
  return fmt::format("{} minutes {} seconds", total / 60, total % 60);
}

std::string RecordingState::countdownAccessibleText(int remaining) {
  return fmt::format("{} seconds remaining until recording starts", remaining);
}

}  // namespace brimble
