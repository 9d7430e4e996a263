#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Brimble/Recording/AnnotationStore.h"
#include "Brimble/Recording/ClipDelivery.h"
#include "Brimble/Recording/ClipHandover.h"
#include "Brimble/Recording/EncodingJob.h"
#include "Brimble/Recording/RecordingPhase.h"
#include "Brimble/Recording/RecordingView.h"
#include "Brimble/Recording/SessionRecorder.h"
#include "Brimble/Recording/SessionScheduler.h"
#include "Brimble/Settings/AppSettings.h"
#include "BrimbleCore/Support/CaptureHistory.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// The coordinator of one desktop recording at a time: from a trigger through selection, an
/// optional countdown, recording with pause and resume, to encoding (an EncodingJob) and the
/// hand-over of the clip (a ClipHandover). `transition` is the only way the phase changes. Main
/// thread only; encoding runs through the scheduler's worker.
class RecordingState {
 public:
  /// What the session works with; everything referenced must outlive it.
  struct Services {
    RecordingView& view;
    ClipDelivery& delivery;
    SessionScheduler& scheduler;
    Clock& clock;
    std::function<std::unique_ptr<SessionRecorder>()> makeRecorder;
    /// Read at each step that needs a preference, so changes apply to the next session.
    std::function<AppSettings()> settings;
    const CaptureHistory& history;
    /// Where encoded clips are kept (the library's folder).
    std::filesystem::path captureDirectory;
    EncodingJob::SequenceWriter encoder;
  };

  explicit RecordingState(Services services);
  RecordingState(const RecordingState&) = delete;
  RecordingState& operator=(const RecordingState&) = delete;
  /// Discards a recording in progress; a running encode is cancelled.
  ~RecordingState();

  RecordingPhase phase() const noexcept { return phase_; }
  double encodingProgress() const noexcept { return encodingProgress_; }
  int encodingPass() const noexcept { return encodingPass_; }
  bool isSavingToDisk() const noexcept { return handover_.isSavingToDisk(); }
  CaptureMode captureMode() const noexcept { return captureMode_; }
  /// The region being selected or recorded.
  const ScreenRect& selectedRegion() const noexcept { return selectedRegion_; }
  /// Seconds recorded so far, pauses excluded.
  double elapsedRecordingTime() const;
  /// The last clip delivered, for "record more" and the tests.
  const std::optional<std::filesystem::path>& lastClip() const noexcept {
    return handover_.lastClip();
  }

  /// Called with every new phase; the shell drives the status item with it.
  std::function<void(RecordingPhase)> onStateChange;
  /// Called when an encode has ended, with the clip or why there is none.
  std::function<void(const EncodedClip&)> onClipEncoded;
  /// Called as an encode advances, with the progress of its pass (0 to 1) and the pass number.
  std::function<void(double progress, int pass)> onEncodingProgress;

  /// The global hotkey: selection when idle, cancel before recording, stop while recording,
  /// cancel while encoding.
  void handleHotkeyTrigger();
  /// Menu triggers; they act only when idle.
  void handleRegionTrigger();
  void handleWindowTrigger();
  void handleFullScreenTrigger();

  void startSelection();
  void startWindowSelection();
  /// The overlay reports a drawn region: ready for adjustment, or straight on to the countdown
  /// when `autoStartAfterRegionSelection` is on.
  void regionSelected(const ScreenRect& region);
  /// The overlay reports the region moved or resized while ready.
  void adjustRegion(const ScreenRect& region);
  void enterReady(const ScreenRect& region);
  void startFromReady();
  void startWindow(std::uint32_t windowID);
  void startFullScreen();

  /// A key pressed in one of the session's windows, as a Qt key code; true when it was handled
  /// (and is consumed).
  bool handleKey(int qtKey, bool shift);

  void togglePause();
  /// Shows or hides the drawing layer during a recording (key A).
  void toggleAnnotationMode();
  /// A mark finished on the drawing layer; stamped in recording time.
  void addAnnotation(Annotation annotation);
  const AnnotationStore& annotationStore() const noexcept { return annotationStore_; }
  bool isAnnotating() const noexcept { return annotating_; }
  /// Stop, encode, copy to the clipboard.
  void stopRecording();
  /// Stop, encode, write to a file chosen in a save dialog.
  void stopAndSaveToFile();
  /// Stop, encode, hand to the desktop's default handler.
  void stopAndShare();
  /// Abandons selection, countdown or recording, discarding everything.
  void cancelSelection();
  void cancelEncoding();
  /// Starts a region selection whose recording is handed to `session` when it is done; only
  /// when idle.
  void beginAppendCapture(AppendSession session);

  /// The timer text for `seconds`: "%02d:%02d" (minutes, seconds), and its spoken form.
  static std::string timerText(double seconds);
  static std::string timerAccessibleText(double seconds);
  /// "3 seconds remaining until recording starts".
  static std::string countdownAccessibleText(int seconds);

 private:
  using Delivery = ClipHandover::Delivery;

  void transition(RecordingPhase phase);
  std::string announcement(RecordingPhase from, RecordingPhase to) const;
  void runCountdownOrStart(const RecordingTarget& target);
  void countdownTick();
  void finishCountdown();
  void performCapture(const RecordingTarget& target);
  void recordingTick();
  void stopAndDeliver(Delivery delivery);
  void encodingFinished(Delivery delivery, const EncodedClip& clip);
  void tearDownSession();
  void hideAnnotations();

  Services services_;

  RecordingPhase phase_ = RecordingPhase::idle;
  double encodingProgress_ = 0;
  int encodingPass_ = 1;
  CaptureMode captureMode_ = CaptureMode::region;
  ScreenRect selectedRegion_{};
  std::unique_ptr<SessionRecorder> screenRecorder_;
  bool keyboardMonitorInstalled_ = false;

  std::optional<RecordingTarget> countdownTarget_;
  int countdownRemaining_ = 0;
  std::unique_ptr<ScheduledTimer> countdownTimer_;
  std::unique_ptr<ScheduledTimer> displayTimer_;

  /// Recording time (start, pauses) lives in the annotation store, which stamps marks with it.
  AnnotationStore annotationStore_;
  Clock::TimePoint recordingStartTime_{};
  bool annotating_ = false;
  bool annotationLayerShown_ = false;
  double maxRecordingDuration_ = 0;
  double inactivityTimeout_ = 0;

  EncodingJob encodingJob_;
  ClipHandover handover_;
  /// Posted calls hold it weakly: they do nothing once the session is gone.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace brimble
