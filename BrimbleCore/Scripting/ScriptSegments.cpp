#include "BrimbleCore/Scripting/ScriptSegments.h"

#include <algorithm>
#include <exception>
#include <span>
#include <system_error>
#include <variant>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "BrimbleCore/Capture/AudioError.h"
#include "BrimbleCore/Effects/SegmentRenderer.h"
#include "BrimbleCore/Encoding/OutputPath.h"
#include "BrimbleCore/Scripting/PartialOutput.h"
#include "BrimbleCore/Scripting/ScriptCommandTable.h"
#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Scripting/ScriptRenderSettings.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/XID.h"

namespace brimble {
namespace {

const std::string kAccessibilityWarning =
    "Warning: Accessibility permission not granted. Input simulation may not work.";
const std::string kElementAccessibilityWarning =
    "Warning: This script drives apps by element. Enable the AT-SPI accessibility bus (package "
    "at-spi2-core) for the apps it drives, then re-run.";
const std::string kAudioNeedsVideo =
    "'audio' records sound for MP4 output; GIF, WebP and APNG carry no sound, so set the output "
    "to a .mp4 file or leave 'audio' out";

std::optional<OutputFormat> formatOf(const std::filesystem::path& output) {
  return outputFormatFromExtension(output.extension().string());
}

/// The line of the first `record ... audio`, if any.
std::optional<int> firstSoundLine(const std::vector<LocatedInstruction>& instructions) {
  for (const LocatedInstruction& located : instructions) {
    const auto* record = std::get_if<RecordInstruction>(&located.instruction);
    if (record != nullptr && record->audio) {
      return located.line;
    }
  }
  return std::nullopt;
}

// Whether a script drives native applications by element, which needs the accessibility bus; in
// a browser session the page's elements are reached without it.
bool drivesAppsByElement(const std::vector<LocatedInstruction>& instructions) {
  const ScriptCommandTable& table = ScriptCommandTable::shared();
  bool usesBrowser = false;
  bool usesElements = false;
  for (const LocatedInstruction& located : instructions) {
    const InstructionTraits& traits = table.traitsOf(located.instruction);
    usesBrowser = usesBrowser || traits.startsBrowser;
    usesElements = usesElements || traits.drivesAppsByElement;
  }
  return usesElements && !usesBrowser;
}

}  // namespace

ScriptSegments::ScriptSegments(const ScriptServices& services, const ScriptOptions& options,
                               const ScriptContext& context, ScriptProfiler& profiler,
                               const ScriptTargets& targets, ScriptClock& clock)
    : services_(services),
      options_(options),
      context_(context),
      profiler_(profiler),
      targets_(targets),
      clock_(clock) {
  settleOutput();
}

ScriptSegments::~ScriptSegments() {
  if (activeRecorder_) {
    try {
      activeRecorder_->stop();  // its frames go with the segment it returns
    } catch (...) {
      // Nothing more can be done for a recorder that fails to stop while we unwind.
    }
  }
}

void ScriptSegments::begin(const ParsedScript& script) {
  settleOutput();
  elementScript_ = drivesAppsByElement(script.instructions);
  // Sound needs an MP4: where the output is known before the script runs (-o, or a `set output`
  // written as text), say so before anything is recorded rather than at the line.
  if (const auto soundLine = firstSoundLine(script.instructions)) {
    if (options_.output) {
      checkSound(outputFormat_, *soundLine);
    } else if (script.output) {
      checkSound(formatOf(*script.output), *soundLine);
    }
  }
}

void ScriptSegments::settleOutput() {
  outputs_.clear();
  if (options_.output) {
    outputs_.push_back(*options_.output);
  } else if (!scriptOutputs_.empty()) {
    outputs_ = scriptOutputs_;
  } else {
    const std::string* output = context_.setting("output");
    outputs_.push_back(output != nullptr && !output->empty() ? std::filesystem::path(*output)
                                                             : std::filesystem::path("output.gif"));
  }
  outputPath_ = outputs_.front();
  outputFormat_ = formatOf(outputPath_);
}

void ScriptSegments::setOutputs(std::vector<std::filesystem::path> outputs) {
  scriptOutputs_ = std::move(outputs);
  namedOutput_ = true;
  settleOutput();
}

void ScriptSegments::addOutput(std::filesystem::path output) {
  // The first output a script names takes the place of the default one.
  if (!namedOutput_) {
    scriptOutputs_.clear();
  }
  namedOutput_ = true;
  scriptOutputs_.push_back(std::move(output));
  settleOutput();
}

void ScriptSegments::checkSound(std::optional<OutputFormat> format, int line) const {
  if (!isVideo(format.value_or(OutputFormat::gif))) {
    throw ScriptError::runtimeError(line, kAudioNeedsVideo);
  }
}

void ScriptSegments::checkRecordingPermissions(int line) {
  if (checkedPermissions_) {
    return;
  }
  bool captured = false;
  try {
    captured = !services_.screen.displays().empty();
  } catch (const std::exception&) {
    captured = false;
  }
  if (!captured) {
    throw ScriptError::runtimeError(line, services_.texts.screenRecordingRequired);
  }
  checkedPermissions_ = true;
  if (!services_.input.available()) {
    logLine(kAccessibilityWarning);
  }
  if (elementScript_ && !services_.windows.accessibilityGranted(true, "record")) {
    logLine(kElementAccessibilityWarning);
  }
}

void ScriptSegments::record(const RecordInstruction& record, int line) {
  if (record.audio) {
    checkSound(outputFormat_, line);
  }
  checkRecordingPermissions(line);
  // A new segment ends the one still running.
  if (activeRecorder_) {
    endSegment();
  }
  SegmentRequest request;
  request.fps = scriptFrameRate(context_, options_.preview);
  request.showCursor = context_.boolSetting("show-cursor", true);
  std::optional<std::uint32_t> window;
  std::string what;
  switch (record.target.kind) {
    case RecordTarget::Kind::window:
      window = context_.resolveWindowID(record.target.variable, line);
      request.target = CaptureTarget::windowOf(*window);
      what = targets_.windowLabel(*window);
      break;
    case RecordTarget::Kind::windowCrop: {
      window = context_.resolveWindowID(record.target.variable, line);
      const auto info = services_.windows.find(*window);
      if (!info) {
        throw ScriptError::windowNotFound("id " + formatXID(*window));
      }
      const ScriptRect& crop = *record.target.rect;
      request.target = CaptureTarget::windowCropOf(
          info->contentFrame,
          {context_.resolveInt(crop.x, line), context_.resolveInt(crop.y, line),
           context_.resolveInt(crop.width, line), context_.resolveInt(crop.height, line)});
      const ScreenRect& area = request.target.area;
      what = fmt::format("{} at {},{} {}x{}", targets_.windowLabel(*window), area.x, area.y,
                         area.width, area.height);
      break;
    }
    // The engine refuses `record simulator` before it gets here: this platform has none.
    case RecordTarget::Kind::region:
    case RecordTarget::Kind::simulator: {
      const ScriptRect& rect = *record.target.rect;
      request.target = CaptureTarget::screenAreaOf(
          {context_.resolveInt(rect.x, line), context_.resolveInt(rect.y, line),
           context_.resolveInt(rect.width, line), context_.resolveInt(rect.height, line)});
      what = fmt::format("region {},{} {}x{}", request.target.area.x, request.target.area.y,
                         request.target.area.width, request.target.area.height);
      break;
    }
  }
  if (request.target.kind == CaptureTarget::Kind::screenArea && request.target.area.empty()) {
    throw ScriptError::runtimeError(line, "the area to record has no width or height");
  }
  std::optional<double> duration;
  if (record.duration) {
    duration = context_.resolveDouble(*record.duration, line);
  }
  if (record.audio) {
    request.sound = AudioSource{};  // what the desktop plays, on the session's sound server
  }
  PendingSegment segment{request, window, what, duration};
  if (hidden_) {
    // Recording starts at `show`, so the first frame the viewer sees is the screen as it is then.
    options_.progress(fmt::format("     hidden: recording {} starts at 'show'", what));
    heldBack_ = std::move(segment);
    return;
  }
  startSegment(std::move(segment), line);
  // Without `continue` the line lasts the segment; a segment without a duration runs on until
  // `stop`, `remain`, the next `record` or `render`, as with `continue`.
  if (!record.continues && duration) {
    waitWhileRecording(*duration);
    endSegment();
  }
}

void ScriptSegments::startSegment(PendingSegment segment, int line) {
  auto recorder = services_.makeRecorder();
  try {
    recorder->start(segment.request);
  } catch (const AudioError& error) {
    throw ScriptError::runtimeError(line, error.what());
  }
  activeRecorder_ = std::move(recorder);
  recordingStartTime_ = clock_.now();
  segmentTargetDuration_ = segment.duration;
  activeWindow_ = segment.window;
  activeRequest_ = segment.request;
  activeWhat_ = segment.what;
  segmentEffects_.clear();
  segmentDemoEffects_.clear();
  segmentChromeTyping_ = false;
  segmentURL_ = targets_.browserURL();
  activeNumber_ = nextSegmentNumber_++;
  startedByShow_ = false;
  // Captions placed before the recording start with it.
  segmentCaptions_ = std::move(pendingCaptions_);
  pendingCaptions_.clear();
  options_.progress(fmt::format(
      "     recording {} at {} fps{}", segment.what, segment.request.fps,
      segment.duration ? fmt::format(" for {} s", formatScriptNumber(*segment.duration)) : ""));
}

void ScriptSegments::hide(int line) {
  if (hidden_) {
    logLine("Warning: line " + std::to_string(line) + ": 'hide' while already hidden");
    return;
  }
  hidden_ = true;
  if (!activeRecorder_) {
    return;
  }
  PendingSegment resumed{activeRequest_, activeWindow_, activeWhat_, std::nullopt};
  if (segmentTargetDuration_) {
    resumed.duration = std::max(0.0, *segmentTargetDuration_ - segmentTime());
  }
  endSegment();
  heldBack_ = std::move(resumed);
}

void ScriptSegments::show(int line) {
  if (!hidden_) {
    logLine("Warning: line " + std::to_string(line) + ": 'show' without a 'hide' before it");
    return;
  }
  hidden_ = false;
  if (heldBack_) {
    PendingSegment segment = std::move(*heldBack_);
    heldBack_.reset();
    startSegment(std::move(segment), line);
    startedByShow_ = true;
  }
}

double ScriptSegments::segmentTime() const {
  return clock_.secondsSince(recordingStartTime_);
}

void ScriptSegments::waitWhileRecording(double untilSegmentTime) {
  while (activeRecorder_ && !clock_.shouldStop() && !activeRecorder_->hasEnded()) {
    const double left = untilSegmentTime - segmentTime();
    if (left <= 0) {
      return;
    }
    clock_.sleep(std::min(left, ScriptClock::kWaitSlice));
  }
  if (activeRecorder_ && activeRecorder_->hasEnded()) {
    logLine("Warning: the recording ended on its own (its window closed); the segment ends early");
  }
}

void ScriptSegments::stop(int line) {
  if (hidden_ && heldBack_) {
    heldBack_.reset();
    return;
  }
  if (!activeRecorder_) {
    logLine("Warning: line " + std::to_string(line) + ": 'stop' with no recording in progress");
    return;
  }
  endSegment();
}

void ScriptSegments::remain(int line) {
  if (!activeRecorder_) {
    logLine("Warning: line " + std::to_string(line) + ": 'remain' with no recording in progress");
    return;
  }
  const double target = segmentTargetDuration_.value_or(0);
  options_.progress(fmt::format("Remaining: {:.1f}", std::max(0.0, target - segmentTime())));
  waitWhileRecording(target);
  endSegment();
}

void ScriptSegments::endSegment() {
  // A segment `show` started that ends before its first frame has had its time (`show` right
  // before the end, `render` or `hide`) would only flash what the hidden steps left on screen.
  const bool nothingShown =
      startedByShow_ && segmentTime() < 1.0 / std::max(activeRequest_.fps, 1) - 1e-9;
  std::unique_ptr<SegmentRecorder> recorder = std::move(activeRecorder_);
  RenderSegment segment{recorder->stop()};
  if (nothingShown) {
    activeWindow_.reset();
    segmentEffects_.clear();
    segmentDemoEffects_.clear();
    segmentCaptions_.clear();
    options_.progress("     nothing followed 'show': its segment is left out");
    return;
  }
  segment.effects = std::move(segmentEffects_);
  segment.demoEvents = std::move(segmentDemoEffects_);
  segment.captions = std::move(segmentCaptions_);
  segmentCaptions_.clear();
  if (activeWindow_ && targets_.isBrowserWindow(*activeWindow_)) {
    segment.isBrowserContent = true;
    segment.chromeURL = segmentURL_;
    segment.chromeTyping = segmentChromeTyping_;
    // Unless the script asks for the window manager's title bar, the page shows under the
    // address bar alone.
    segment.cutsWindowFrame = context_.setting("include-title-bar") == nullptr;
  }
  activeWindow_.reset();
  segmentEffects_.clear();
  segmentDemoEffects_.clear();
  const int frames = segment.frames ? segment.frames->count() : 0;
  if (frames == 0) {
    logLine("Warning: segment captured 0 frames");
    return;
  }
  options_.progress(fmt::format("     segment {}: {} frames in {:.1f} s", segments_.size() + 1,
                                frames, segment.duration));
  segments_.push_back(std::move(segment));
  segmentNumbers_.push_back(activeNumber_);
}

void ScriptSegments::discard() {
  heldBack_.reset();
  if (activeRecorder_) {
    activeRecorder_->stop();
    activeRecorder_.reset();
  }
  segments_.clear();
  segmentNumbers_.clear();
}

void ScriptSegments::addEffect(EffectAnnotation effect, std::string_view command, int line) {
  if (!activeRecorder_) {
    logLine("Warning: line " + std::to_string(line) + ": '" + std::string(command) +
            "' outside a recording shows nothing");
    return;
  }
  effect.startTime = segmentTime();
  segmentEffects_.push_back(std::move(effect));
}

void ScriptSegments::addDemoEvent(DemoEvent event, std::string_view command, int line) {
  if (!activeRecorder_) {
    if (!command.empty()) {
      logLine("Warning: line " + std::to_string(line) + ": '" + std::string(command) +
              "' outside a recording shows nothing");
    }
    return;
  }
  event.time = segmentTime();
  segmentDemoEffects_.push_back(std::move(event));
}

void ScriptSegments::addCaption(Caption caption) {
  if (!activeRecorder_) {
    caption.time = 0;
    pendingCaptions_.push_back(std::move(caption));
    return;
  }
  caption.time = segmentTime();
  segmentCaptions_.push_back(std::move(caption));
}

TimelineStamp ScriptSegments::stamp() const {
  if (activeRecorder_) {
    return {activeNumber_, segmentTime()};
  }
  return {nextSegmentNumber_, std::nullopt, hidden_};
}

void ScriptSegments::showChromeTyping() {
  if (activeRecorder_) {
    segmentChromeTyping_ = true;
  }
}

ScriptOutcome ScriptSegments::render(int line) {
  if (activeRecorder_) {
    endSegment();
  }
  if (segments_.empty()) {
    throw ScriptError::runtimeError(line, "No segments to render");
  }
  std::vector<SegmentRenderer::RenderOutput> outputs;
  for (const std::filesystem::path& path : outputs_) {
    SegmentRenderer::RenderOutput output{path, formatOf(path)};
    if (!output.format && !namesFrameFolder(path.string())) {
      throw ScriptError::runtimeError(line,
                                      "Cannot write '" + path.string() +
                                          "': the name must end in .gif, .webp, .png (animated "
                                          "PNG) or .mp4, or in / for a folder of PNG frames");
    }
    outputs.push_back(std::move(output));
  }
  // The folder may have gone, or turned read-only, while the script ran: say why the file
  // cannot be written rather than only that it was not.
  const auto refuseUnwritable = [&] {
    for (const SegmentRenderer::RenderOutput& output : outputs) {
      try {
        if (output.format) {
          AtomicFile probe(output.path, 0644);
        } else {
          checkFrameFolderOutput(output.path);
        }
      } catch (const std::system_error& error) {
        throw ScriptError::runtimeError(
            line, "Cannot write '" + output.path.string() + "': " + error.code().message());
      } catch (const OutputPathError& error) {
        throw ScriptError::runtimeError(line, error.what());
      }
    }
  };
  refuseUnwritable();
  try {
    return renderInto(outputs);
  } catch (const ScriptError&) {
    throw;
  } catch (const CancellationError&) {
    throw;
  } catch (const std::exception&) {
    refuseUnwritable();
    throw;
  }
}

std::optional<ScriptOutcome> ScriptSegments::keepPartial() {
  if (activeRecorder_) {
    endSegment();
  }
  if (segments_.empty()) {
    return std::nullopt;
  }
  std::filesystem::path asked = outputPath_;
  if (namesFrameFolder(asked.string())) {
    asked = asked.parent_path();
  }
  if (!outputFormat_) {
    asked.replace_extension(".gif");
  }
  PartialOutput partial = PartialOutput::reserve(asked);
  const SegmentRenderer::RenderOutput kept{partial.path(),
                                           outputFormat_.value_or(OutputFormat::gif)};
  ScriptOutcome outcome = renderInto({&kept, 1});
  partial.keep();
  return outcome;
}

ScriptOutcome ScriptSegments::renderInto(std::span<const SegmentRenderer::RenderOutput> outputs) {
  RenderSettings settings = scriptRenderSettings(context_, options_.preview);
  settings.format = outputs.front().format.value_or(OutputFormat::gif);
  settings.intro = renderAdditions_.intro;
  settings.outro = renderAdditions_.outro;
  settings.background = renderAdditions_.background;
  std::vector<std::string> names;
  for (const SegmentRenderer::RenderOutput& output : outputs) {
    names.push_back(output.path.string());
  }
  options_.progress(
      fmt::format("Rendering {} segment(s) into {}", segments_.size(), fmt::join(names, ", ")));
  const Clock::TimePoint started = clock_.now();
  double recorded = 0;
  for (const RenderSegment& segment : segments_) {
    recorded += segment.duration;
  }
  OutputClock outputClock;
  const std::vector<EncodeSummary> summaries = SegmentRenderer::renderEach(
      segments_, settings, outputs, options_.renderProgress, options_.abandon, &outputClock);
  const double renderSeconds = clock_.secondsSince(started);
  profiler_.record(0, "render", renderSeconds);
  if (summaries.front().frames == 0) {
    throw ScriptError::encodingFailed();
  }
  ScriptOutcome outcome{outputs.front().path,
                        summaries.front(),
                        static_cast<int>(segments_.size()),
                        recorded,
                        renderSeconds,
                        clock_.shouldStop(),
                        {},
                        {}};
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    outcome.outputs.push_back({outputs[i].path, summaries[i]});
  }
  outcome.timeline =
      timeline_.document(outputs.front().path, segments_, segmentNumbers_, outputClock);
  // The frames are in the file now; their temporary files can go.
  segments_.clear();
  segmentNumbers_.clear();
  return outcome;
}

}  // namespace brimble
