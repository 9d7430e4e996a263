#include "Brimble/Recording/RecordingState.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

#include <QtCore/qnamespace.h>
#include <fmt/chrono.h>
#include <fmt/format.h>

#include "Brimble/Recording/AnnotationPainter.h"
#include "BrimbleCore/Encoding/RecordingEncoder.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

double seconds(Clock::Duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

RecordingState::RecordingState(Services services)
    : services_(std::move(services)), annotationStore_(services_.clock) {}

RecordingState::~RecordingState() {
  encodingStop_.request_stop();
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
  pendingAppend_ = std::move(session);
  startSelection();
}

void RecordingState::cancelAppend() {
  if (pendingAppend_) {
    const auto cancelled = std::move(pendingAppend_->onCancelled);
    pendingAppend_.reset();
    if (cancelled) {
      cancelled();
    }
  }
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
    cancelAppend();
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
  const double recorded = elapsedRecordingTime();
  hideAnnotations();
  keyboardMonitorInstalled_ = false;
  displayTimer_.reset();
  services_.view.dismissPanel();
  services_.view.hideSelection();
  transition(RecordingPhase::encoding);

  std::unique_ptr<SessionRecorder> recorder = std::move(screenRecorder_);
  std::shared_ptr<const CompressedFrameStore> store = recorder->stopAndCollectFrameStore();
  if (recorder->lostFrameCount() > 0) {
    services_.view.showMessage("Some frames were lost while recording because the disk filled up.",
                               MessageKind::warning);
  }
  const auto frameTimes = std::make_shared<const std::vector<double>>(recorder->frameTimes());
  const std::optional<ScreenRect> windowArea = recorder->windowArea();
  recorder.reset();

  EncodingSettings encoding = effectiveEncoding(services_.settings());
  if (pendingAppend_) {
    // A segment must match the clip it joins.
    encoding.format = pendingAppend_->format;
    encoding.maxFileSizeKB = 0;
  }
  if (!store || store->count() == 0) {
    reportEncodingFailure(delivery, encoding.format, "no frames were recorded");
    transition(RecordingPhase::idle);
    return;
  }

  SequenceOptions requested;
  requested.fps = encoding.frameRate;
  requested.loopCount = encoding.loopCount;
  requested.frameDiffing = encoding.frameDiffing;
  requested.deduplicate = encoding.frameDeduplication;
  requested.format = encoding.format;
  requested.webpQuality = static_cast<float>(encoding.webpQuality);
  requested.tuning.webpMode = encoding.webpLossless ? WebPMode::lossless : WebPMode::lossy;

  // A window's own pixels never show the layer the marks are drawn on, so they are drawn in.
  RecordingOverlay overlay;
  if (captureMode_ == CaptureMode::window && windowArea &&
      !annotationStore_.annotations().empty()) {
    const auto painter =
        std::make_shared<const AnnotationPainter>(annotationStore_.annotations(), *windowArea);
    const auto timeOf = [frameTimes](int index) {
      return static_cast<std::size_t>(index) < frameTimes->size()
                 ? (*frameTimes)[static_cast<std::size_t>(index)]
                 : std::numeric_limits<double>::infinity();
    };
    overlay.paint = [painter, timeOf](const Image& frame, int index) {
      return painter->paint(frame, timeOf(index));
    };
    overlay.changesAt = [painter, timeOf](int index) {
      return painter->visibleAt(timeOf(index)) != painter->visibleAt(timeOf(index - 1));
    };
  }
  RecordingSequence sequence =
      RecordingEncoder::prepare(store, recorded, std::move(requested), std::move(overlay));
  SequenceOptions& options = sequence.options;
  const FrameSupplier frameAt = sequence.frameAt;

  encodingStop_ = std::stop_source();
  options.stop = encodingStop_.get_token();
  const std::uint64_t generation = ++encodingGeneration_;
  std::weak_ptr<bool> alive = alive_;
  SessionScheduler& scheduler = services_.scheduler;
  // Progress comes from worker threads: it travels to the main thread as posted calls.
  auto post = [this, alive, generation, &scheduler](std::function<void()> update) {
    scheduler.post([this, alive, generation, update = std::move(update)] {
      if (alive.lock() && generation == encodingGeneration_ && phase_ == RecordingPhase::encoding) {
        update();
      }
    });
  };
  options.progress = [this, post](RenderPhase renderPhase, int done, int total) {
    if (renderPhase != RenderPhase::encode || total <= 0) {
      return;
    }
    const double fraction = static_cast<double>(done) / total;
    post([this, fraction] {
      encodingProgress_ = fraction;
      if (onEncodingProgress) {
        onEncodingProgress(encodingProgress_, encodingPass_);
      }
    });
  };
  const SizeBudgetEncoder::PassStarted passStarted = [this, post](int pass) {
    post([this, pass] {
      encodingPass_ = pass;
      encodingProgress_ = 0;
      if (onEncodingProgress) {
        onEncodingProgress(encodingProgress_, encodingPass_);
      }
    });
  };

  const fs::path output = newCapturePath(encoding.format);
  const std::uint64_t budget =
      static_cast<std::uint64_t>(std::max(0, encoding.maxFileSizeKB)) * 1024;
  auto result = std::make_shared<SizeBudgetEncoder::Result>();
  auto failure = std::make_shared<std::string>();
  ClipEncoder encoder = services_.encoder;
  scheduler.runInBackground(
      [count = sequence.count, frameAt, output, options, budget, passStarted, result, failure,
       encoder] {
        try {
          fs::create_directories(output.parent_path());
          *result = encoder(count, frameAt, output, options, budget, passStarted);
        } catch (const CancellationError&) {
          *failure = "cancelled";
        } catch (const std::exception& error) {
          *failure = error.what();
          if (failure->empty()) {
            *failure = "unknown error";
          }
        }
      },
      [this, alive, delivery, generation, result, failure, output] {
        if (alive.lock()) {
          encodingFinished(delivery, generation, *result, *failure, output);
        }
      });
}

void RecordingState::encodingFinished(Delivery delivery, std::uint64_t generation,
                                      const SizeBudgetEncoder::Result& result,
                                      const std::string& failure, const fs::path& output) {
  if (generation != encodingGeneration_ || phase_ != RecordingPhase::encoding) {
    // Cancelled meanwhile: whatever was written goes too.
    std::error_code ignored;
    fs::remove(output, ignored);
    return;
  }
  const EncodingSettings encoding = effectiveEncoding(services_.settings());
  if (!failure.empty() || result.summary.frames == 0) {
    reportEncodingFailure(delivery, encoding.format,
                          failure.empty() ? "no frame could be decoded" : failure);
    transition(RecordingPhase::idle);
    return;
  }
  encodingPass_ = result.passes;
  if (!result.fits) {
    logLine(fmt::format("Brimble: File size {}KB exceeds budget {}KB after {} passes",
                        result.fileSize / 1024, encoding.maxFileSizeKB, result.passes));
  }
  std::error_code error;
  const auto size = fs::file_size(output, error);
  if (error || size == 0) {
    logLine("Brimble: encode reported success but reading back " + output.string() + " failed");
    reportEncodingFailure(delivery, encoding.format, "the written file could not be read back");
    transition(RecordingPhase::idle);
    return;
  }
  try {
    deliver(delivery, output, result.summary.frames);
  } catch (const std::exception& deliveryError) {
    // The clip itself is safe in the library folder; only the hand-over failed. It goes into
    // the library so that it can be found again.
    logLine(std::string("Brimble: delivery failed: ") + deliveryError.what());
    try {
      if (fs::exists(output)) {
        services_.history.add(output);
      }
    } catch (const std::exception& indexError) {
      logLine(std::string("Brimble: could not update the library: ") + indexError.what());
    }
    services_.view.showMessage(std::string("The clip was kept at ") + output.string() +
                                   " but could not be delivered: " + deliveryError.what(),
                               MessageKind::error);
  }
  transition(RecordingPhase::idle);
}

void RecordingState::deliver(Delivery delivery, const fs::path& output, int frames) {
  if (pendingAppend_) {
    const auto ready = std::move(pendingAppend_->onSegmentReady);
    pendingAppend_.reset();
    logLine(fmt::format("Brimble: recorded {} frames to append", frames));
    services_.view.showMessage(fmt::format("{} frames recorded to add to the clip.", frames),
                               MessageKind::information);
    if (ready) {
      ready(output);
    }
    return;
  }
  const AppSettings settings = services_.settings();
  const OutputFormat format = effectiveEncoding(settings).format;
  fs::path kept = output;
  switch (delivery) {
    case Delivery::copy: {
      services_.history.add(output);
      services_.delivery.copyToClipboard(output, format);
      logLine(fmt::format("Brimble: GIF copied to clipboard ({} bytes, {} frames)",
                          fs::file_size(output), frames));
      services_.view.showMessage(fmt::format("GIF copied to clipboard. {} frames.", frames),
                                 MessageKind::information);
      break;
    }
    case Delivery::save: {
      isSavingToDisk_ = true;
      const fs::path suggested = settings.defaultSaveLocation / output.filename();
      const std::optional<fs::path> chosen =
          services_.delivery.chooseSaveLocation(suggested, format);
      if (chosen) {
        fs::copy_file(output, *chosen, fs::copy_options::overwrite_existing);
        std::error_code ignored;
        fs::remove(output, ignored);
        kept = *chosen;
        services_.history.add(kept);
        services_.view.showMessage(fmt::format("GIF saved. {} frames.", frames),
                                   MessageKind::information);
      } else {
        // Cancelling the dialog must not lose the recording: it stays in the library.
        services_.history.add(output);
      }
      isSavingToDisk_ = false;
      break;
    }
    case Delivery::share:
      services_.history.add(output);
      services_.view.showMessage(fmt::format("GIF ready to share. {} frames.", frames),
                                 MessageKind::information);
      services_.delivery.share(output);
      break;
  }
  lastClip_ = kept;
  if (delivery == Delivery::copy && settings.showPreviewAfterCapture) {
    services_.delivery.openPreview(kept);
  }
}

void RecordingState::reportEncodingFailure(Delivery delivery, OutputFormat format,
                                           const std::string& error) {
  cancelAppend();
  const char* operation = delivery == Delivery::copy   ? "stopAndCopy"
                          : delivery == Delivery::save ? "stopAndSaveToFile"
                                                       : "stopAndShare";
  logLine(fmt::format("Brimble: encoding error ({}): {}", operation, error));
  services_.view.showMessage(
      isVideo(format) ? "Failed to encode the video. The video writer stopped before the file was "
                        "finished, so nothing was saved."
                      : "Failed to encode GIF. The recording may have been too short or contained "
                        "no frames.",
      MessageKind::error);
}

fs::path RecordingState::newCapturePath(OutputFormat format) const {
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const std::string stem = fmt::format("Brimble {:%Y-%m-%d at %H.%M.%S}", now);
  fs::path path = services_.captureDirectory / (stem + "." + std::string(fileExtension(format)));
  for (int n = 2; fs::exists(path); ++n) {
    path = services_.captureDirectory / fmt::format("{} ({}).{}", stem, n, fileExtension(format));
  }
  return path;
}

// ---- cancelling ----

void RecordingState::cancelSelection() {
  if (phase_ == RecordingPhase::idle || phase_ == RecordingPhase::encoding) {
    return;
  }
  tearDownSession();
  cancelAppend();
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
  encodingStop_.request_stop();
  ++encodingGeneration_;
  logLine("Brimble: encoding cancelled");
  cancelAppend();
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
