#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "BrimbleCore/Capture/SegmentRecorder.h"
#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/RenderSettings.h"
#include "BrimbleCore/Effects/SegmentRenderer.h"
#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/OutputFormat.h"
#include "BrimbleCore/Scripting/ParsedScript.h"
#include "BrimbleCore/Scripting/ScriptClock.h"
#include "BrimbleCore/Scripting/ScriptContext.h"
#include "BrimbleCore/Scripting/ScriptInstruction.h"
#include "BrimbleCore/Scripting/ScriptOptions.h"
#include "BrimbleCore/Scripting/ScriptProfiler.h"
#include "BrimbleCore/Scripting/ScriptServices.h"
#include "BrimbleCore/Scripting/ScriptTargets.h"
#include "BrimbleCore/Scripting/ScriptTimeline.h"

namespace brimble {

/// One file (or frame folder) a render wrote.
struct WrittenOutput {
  std::filesystem::path path;
  EncodeSummary summary;
};

/// What a finished script produced.
struct ScriptOutcome {
  /// The first output, and what it holds.
  std::filesystem::path output;
  EncodeSummary summary;
  int segments = 0;
  /// Seconds of screen the segments recorded.
  double recordedSeconds = 0;
  /// Seconds the render took (the file plays for `summary.duration`).
  double renderSeconds = 0;
  /// The script stopped early for an interrupt; what it had recorded was rendered.
  bool interrupted = false;
  /// Every output the render wrote, the first included, in the order the script named them.
  std::vector<WrittenOutput> outputs{};
  /// What happened when in the output (ScriptTimeline::document); empty when nothing rendered.
  std::string timeline{};
};

/// The recording side of a script: the segment being recorded (`record` starts it; `stop`,
/// `remain`, the next `record` and `render` end it), the segments already recorded, the effects
/// and demo events placed on a segment at its current time, and the render of them all into the
/// output. The output's path and format are settled when the engine starts and when `set output`
/// runs, and read from there by the sound checks and the render. Owned by the engine; one thread
/// at a time.
class ScriptSegments {
 public:
  ScriptSegments(const ScriptServices& services, const ScriptOptions& options,
                 const ScriptContext& context, ScriptProfiler& profiler,
                 const ScriptTargets& targets, ScriptClock& clock);
  ScriptSegments(const ScriptSegments&) = delete;
  ScriptSegments& operator=(const ScriptSegments&) = delete;
  /// Stops a running segment; its frames go with it.
  ~ScriptSegments();

  /// Gets ready to run `script`: settles the output and notes whether the script drives apps by
  /// element. Throws ScriptError at the first `record ... audio` when the output is known before
  /// the script runs (given by the caller, or a `set output` written as text) and carries no
  /// sound, so that nothing is recorded in vain.
  void begin(const ParsedScript& script);

  /// Reads where the render writes: the caller's output, else the outputs the script named
  /// (`set output` with several values, `output`), else the `output` setting ("output.gif" when
  /// it is empty). The first output's format is the one its extension names.
  void settleOutput();
  /// `set output` with all its values: they replace the outputs named so far.
  void setOutputs(std::vector<std::filesystem::path> outputs);
  /// `output`: one more output; the first one replaces the default.
  void addOutput(std::filesystem::path output);
  const std::filesystem::path& outputPath() const noexcept { return outputPath_; }

  /// Starts a segment on the window, window area or screen region (ending the one running), after
  /// checking that sound can go into the output and that the screen can be captured. Without
  /// `continue` and with a duration, waits the duration and ends the segment. Throws ScriptError.
  void record(const RecordInstruction& record, int line);
  /// Ends the running segment; without one, warns. While hidden, forgets the segment that
  /// `show` would have resumed.
  void stop(int line);
  /// Leaves what follows out of the output: a running segment ends here and is remembered, and
  /// a `record` from here on waits, so that `show` starts recording that target then. Warns
  /// when already hidden.
  void hide(int line);
  /// Starts recording the segment `hide` left or the `record` it held back, from the screen as
  /// it is now; the time hidden is not in the output. Warns when nothing is hidden.
  void show(int line);
  bool hidden() const noexcept { return hidden_; }
  /// Prints the running segment's remaining time, waits it out and ends the segment; without
  /// one, warns.
  void remain(int line);
  /// Ends the running segment: one more segment to render, unless it captured no frames or
  /// `show` started it less than a frame's time ago.
  void endSegment();
  /// Stops a running segment and drops every segment: nothing of them is rendered.
  void discard();

  bool recording() const noexcept { return activeRecorder_ != nullptr; }
  /// Whether the running segment's recorder ended on its own (its window closed).
  bool recorderEnded() const { return activeRecorder_ && activeRecorder_->hasEnded(); }
  /// The window the running segment records, if it records one.
  std::optional<std::uint32_t> recordingWindow() const { return activeWindow_; }
  /// What the running segment records; no value outside a recording.
  std::optional<CaptureTarget> recordingTarget() const {
    return activeRecorder_ ? std::optional(activeRequest_.target) : std::nullopt;
  }
  /// When the running segment's picture last changed; only while `recording()`.
  Clock::TimePoint lastChangeTime() const { return activeRecorder_->lastChangeTime(); }

  /// Places a spotlight on the running segment at its current time; outside a recording it is
  /// dropped with a warning naming `command`.
  void addEffect(EffectAnnotation effect, std::string_view command, int line);
  /// Places `event` on the running segment at its current time; outside a recording it is
  /// dropped, with a warning naming `command` unless that is empty.
  void addDemoEvent(DemoEvent event, std::string_view command, int line);
  /// Places `caption` on the running segment from its current time; outside a recording it
  /// starts with the next segment.
  void addCaption(Caption caption);
  /// Where the script is now, for its timeline.
  TimelineStamp stamp() const;
  ScriptTimeline& timeline() noexcept { return timeline_; }

  /// The running segment shows the page address being typed into the browser's frame.
  void showChromeTyping();

  void setIntro(TitleCard card) { renderAdditions_.intro = std::move(card); }
  void setOutro(TitleCard card) { renderAdditions_.outro = std::move(card); }
  void setBackground(std::string colour) { renderAdditions_.background = std::move(colour); }

  /// Ends the running segment and renders every segment into the output with the script's
  /// settings; the segments' frames go once they are in the file. Throws ScriptError "No
  /// segments to render", a refused output name or encodingFailed; CancellationError when the
  /// render is abandoned.
  ScriptOutcome render(int line);
  /// After a failure: ends the running segment and renders every segment into a new file that
  /// says it is partial, beside the output or in the temporary directory (see PartialOutput);
  /// no value when nothing was recorded. Throws what the render throws.
  std::optional<ScriptOutcome> keepPartial();

  /// The segments recorded and not yet rendered.
  const std::vector<RenderSegment>& segments() const noexcept { return segments_; }

 private:
  double segmentTime() const;
  ScriptOutcome renderInto(std::span<const SegmentRenderer::RenderOutput> outputs);
  void waitWhileRecording(double untilSegmentTime);
  void checkRecordingPermissions(int line);
  void checkSound(std::optional<OutputFormat> format, int line) const;
  /// What `record` asks of a recorder, and what it says of it.
  struct PendingSegment {
    SegmentRequest request;
    std::optional<std::uint32_t> window;
    std::string what;
    /// Seconds the segment still has to run; no value for one that runs until it is stopped.
    std::optional<double> duration;
  };
  void startSegment(PendingSegment segment, int line);

  const ScriptServices& services_;
  const ScriptOptions& options_;
  const ScriptContext& context_;
  ScriptProfiler& profiler_;
  const ScriptTargets& targets_;
  ScriptClock& clock_;

  /// What the script named with `set output` and `output`; empty until it names one.
  std::vector<std::filesystem::path> scriptOutputs_;
  bool namedOutput_ = false;
  /// Where the render writes: settled from the above, the first being `outputPath_`.
  std::vector<std::filesystem::path> outputs_;
  std::filesystem::path outputPath_;
  std::optional<OutputFormat> outputFormat_;
  bool checkedPermissions_ = false;
  /// The script drives native applications by element (warned about without accessibility).
  bool elementScript_ = false;

  // The segment being recorded.
  std::unique_ptr<SegmentRecorder> activeRecorder_;
  Clock::TimePoint recordingStartTime_;
  std::optional<double> segmentTargetDuration_;
  std::optional<std::uint32_t> activeWindow_;
  SegmentRequest activeRequest_;
  std::string activeWhat_;
  std::vector<EffectAnnotation> segmentEffects_;
  std::vector<DemoEvent> segmentDemoEffects_;
  std::vector<Caption> segmentCaptions_;
  /// Captions placed while nothing records, for the next segment.
  std::vector<Caption> pendingCaptions_;
  /// Segments are numbered in the order they start, for the timeline's stamps.
  int activeNumber_ = -1;
  int nextSegmentNumber_ = 0;
  bool segmentChromeTyping_ = false;
  std::string segmentURL_;

  /// Between `hide` and `show`: the segment `show` starts, if one was recording or asked for.
  bool hidden_ = false;
  std::optional<PendingSegment> heldBack_;
  /// The running segment is the one `show` started.
  bool startedByShow_ = false;

  std::vector<RenderSegment> segments_;
  /// The number each of `segments_` started with.
  std::vector<int> segmentNumbers_;
  ScriptTimeline timeline_;
  RenderSettings renderAdditions_;  // title cards and background set by instructions
};

}  // namespace brimble
