#include "BrimbleCore/Scripting/ScriptEngine.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <type_traits>
#include <variant>

#include <fmt/format.h>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Capture/AudioError.h"
#include "BrimbleCore/Effects/SegmentRenderer.h"
#include "BrimbleCore/Encoding/OutputFormat.h"
#include "BrimbleCore/Scripting/PacePreset.h"
#include "BrimbleCore/Scripting/ScriptCommandTable.h"
#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Scripting/ScriptParser.h"
#include "BrimbleCore/Scripting/ScriptRenderSettings.h"
#include "BrimbleCore/Scripting/ScriptValidation.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Text.h"
#include "BrimbleCore/Support/XID.h"

namespace brimble {
namespace {

// Waits are cut into slices this long, so an interrupt or a closed window is noticed quickly.
constexpr double kWaitSlice = 0.05;
// How long `capture-window` and `browser` look for a window that is still opening.
constexpr double kWindowAppearTimeout = 10;
constexpr double kWindowPoll = 0.1;
// `wait-for-idle` gives up this long after the quiet time it waits for.
constexpr double kIdleGiveUpAfter = 10;
constexpr double kIdlePoll = 0.1;
constexpr double kElementPoll = 0.1;

const std::string kAccessibilityWarning =
    "Warning: Accessibility permission not granted. Input simulation may not work.";
const std::string kElementAccessibilityWarning =
    "Warning: This script drives apps by element. Enable the AT-SPI accessibility bus (package "
    "at-spi2-core) for the apps it drives, then re-run.";
const std::string kAudioNeedsVideo =
    "'audio' records sound for MP4 output; GIF, WebP and APNG carry no sound, so set the output "
    "to a .mp4 file or leave 'audio' out";

DemoEvent demoEvent(DemoEvent::Kind kind, double duration = 0) {
  DemoEvent event;
  event.kind = kind;
  event.duration = duration;
  return event;
}

template <typename... Visitors>
struct Overloaded : Visitors... {
  using Visitors::operator()...;
};
// clang does not deduce an aggregate's template arguments yet.
template <typename... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

Clock::Duration toDuration(double seconds) {
  return std::chrono::duration_cast<Clock::Duration>(
      std::chrono::duration<double>(std::max(seconds, 0.0)));
}

double secondsBetween(Clock::TimePoint from, Clock::TimePoint to) {
  return std::chrono::duration<double>(to - from).count();
}

bool samePicture(const Image& a, const Image& b) {
  if (a.width() != b.width() || a.height() != b.height()) {
    return false;
  }
  for (int y = 0; y < a.height(); ++y) {
    const auto rowA = a.row(y);
    const auto rowB = b.row(y);
    if (!std::equal(rowA.begin(), rowA.end(), rowB.begin(), rowB.end())) {
      return false;
    }
  }
  return true;
}

// A page address as a browser takes it: a path to a local file (from the working directory, or
// else the script's folder) becomes a file:// URL, so a script and its page can travel together.
std::string pageAddress(const std::string& text, const std::filesystem::path& scriptDirectory) {
  if (text.find("://") != std::string::npos || text.starts_with("about:") ||
      text.starts_with("data:")) {
    return text;
  }
  std::error_code error;
  for (const std::filesystem::path& path : {std::filesystem::path(text), scriptDirectory / text}) {
    if (std::filesystem::is_regular_file(path, error)) {
      return "file://" + std::filesystem::absolute(path, error).lexically_normal().string();
    }
  }
  return text;
}

// "#1a1a2e", "1A1A2E" and "#abc" name colours; anything else does not.
std::optional<std::string> hexColour(std::string text) {
  if (text.starts_with('#')) {
    text.erase(0, 1);
  }
  if (text.size() != 6 && text.size() != 3) {
    return std::nullopt;
  }
  if (!std::all_of(text.begin(), text.end(), [](char c) { return std::isxdigit(c) != 0; })) {
    return std::nullopt;
  }
  if (text.size() == 3) {
    text = {text[0], text[0], text[1], text[1], text[2], text[2]};
  }
  return "#" + lowercased(text);
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

ScriptEngine::ScriptEngine(ScriptServices services, ScriptOptions options)
    : services_(std::move(services)), options_(std::move(options)) {}

ScriptEngine::~ScriptEngine() {
  if (activeRecorder_) {
    try {
      activeRecorder_->stop();  // its frames go with the segment it returns
    } catch (...) {
      // Nothing more can be done for a recorder that fails to stop while we unwind.
    }
  }
}

ScriptOutcome ScriptEngine::execute(std::string_view source) {
  return execute(validate(source));
}

ScriptOutcome ScriptEngine::execute(const ParsedScript& script) {
  const std::vector<LocatedInstruction>& instructions = script.instructions;
  elementScript_ = drivesAppsByElement(instructions);
  // Sound needs an MP4: where the output is known before the script runs (-o, or a `set output`
  // written as text), say so before anything is recorded rather than at the line.
  if (const auto soundLine = firstSoundLine(instructions)) {
    std::optional<std::filesystem::path> output = options_.output;
    if (!output && script.output) {
      output = *script.output;
    }
    if (output &&
        !isVideo(
            outputFormatFromExtension(output->extension().string()).value_or(OutputFormat::gif))) {
      throw ScriptError::runtimeError(*soundLine, kAudioNeedsVideo);
    }
  }
  try {
    run(instructions);
    finish();
  } catch (...) {
    // Whatever failed, the frames go and what the script started is ended as `cleanup` says.
    if (activeRecorder_) {
      activeRecorder_->stop();
      activeRecorder_.reset();
    }
    segments_.clear();
    if (context_.boolSetting("cleanup", true)) {
      cleanup();
    }
    throw;
  }
  return *outcome_;
}

void ScriptEngine::run(const std::vector<LocatedInstruction>& instructions) {
  const std::size_t count = instructions.size();
  for (std::size_t i = 0; i < count && !shouldStop() && !renderCalled_; ++i) {
    const LocatedInstruction& located = instructions[i];
    print(fmt::format("[{}/{}] {}", i + 1, count, located.source));
    const Clock::TimePoint started = services_.clock.now();
    try {
      executeInstruction(located);
    } catch (const CancellationError&) {
      if (!shouldStop()) {
        throw;
      }
      // An interrupt stopped a `run` command: the script ends here, as between instructions.
    }
    profiler_.record(located.line, located.source, secondsBetween(started, services_.clock.now()));
    if (activeRecorder_ && activeRecorder_->hasEnded()) {
      logLine("Warning: line " + std::to_string(located.line) +
              ": the recording ended on its own (its window closed); the segment ends here");
      endSegment();
    }
  }
}

void ScriptEngine::executeInstruction(const LocatedInstruction& located) {
  try {
    if (const auto unavailable = unavailableOnThisPlatform(located.instruction)) {
      throw ScriptError::runtimeError(located.line, *unavailable);
    }
    dispatch(located.instruction, located.line);
    if (ScriptCommandTable::shared().traitsOf(located.instruction).action) {
      autoPace();
    }
  } catch (const ScriptError&) {
    throw;
  } catch (const CancellationError&) {
    throw;
  } catch (const std::exception& error) {
    // The components' own errors (windows, browser, capture, input) become the line's.
    throw ScriptError::runtimeError(located.line, error.what());
  }
}

void ScriptEngine::dispatch(const ScriptInstruction& instruction, int line) {
  std::visit(
      Overloaded{
          [&](const SetInstruction& set) { setSetting(set, line); },
          [&](const OpenInstruction& open) { this->open(open, line); },
          [&](const FocusInstruction& focus) {
            const std::string app = text(focus.app, line);
            services_.windows.focusApp(app);
            if (const auto match = services_.windows.find(std::string_view(app))) {
              targetWindow_ = TargetWindow{match->window.id, app, match->window.pid};
            }
          },
          [&](const CaptureWindowInstruction& capture) { captureWindow(capture, line); },
          [&](const ResizeInstruction& resize) { this->resize(resize, line); },
          [&](const ClearInstruction&) { clear(); },
          [&](const RecordInstruction& record) { this->record(record, line); },
          [&](const StopInstruction&) {
            if (!activeRecorder_) {
              logLine("Warning: line " + std::to_string(line) +
                      ": 'stop' with no recording in progress");
              return;
            }
            endSegment();
          },
          [&](const RemainInstruction&) { remain(line); },
          [&](const RenderInstruction&) {
            render(line);
            renderCalled_ = true;
          },
          [&](const TypeInstruction& type) { this->type(type, line); },
          [&](const ClickInstruction& click) {
            const MouseButton button = click.right ? MouseButton::right : MouseButton::left;
            if (click.x && click.y) {
              services_.input.click(whole(*click.x, line), whole(*click.y, line), button);
            } else {
              const ScreenPoint here = services_.input.cursorPosition();
              services_.input.click(here.x, here.y, button);
            }
          },
          [&](const ClickTargetInstruction& click) { clickTarget(click, line); },
          [](const TapInstruction&) {
            // Refused before dispatch: this platform has no simulator to tap.
          },
          [&](const MoveInstruction& move) {
            services_.input.smoothMove(whole(move.x, line), whole(move.y, line),
                                       number(move.duration, line));
          },
          [&](const CursorInstruction& cursor) {
            services_.input.setCursorPosition(whole(cursor.x, line), whole(cursor.y, line));
          },
          [&](const ScrollInstruction& scroll) {
            services_.input.scroll(scroll.direction, whole(scroll.ticks, line));
          },
          [&](const KeyInstruction& key) { this->key(key, line); },
          [&](const WaitInstruction& wait) { this->wait(number(wait.seconds, line)); },
          [&](const WaitForIdleInstruction& idle) {
            waitForIdle(number(idle.seconds, line), line);
          },
          [&](const RunInstruction& run) {
            executeRun(run, line, context_, services_.processes,
                       [this](std::string_view text) { print(std::string(text)); });
          },
          [&](const SpotlightInstruction& spotlight) {
            this->spotlight(spotlight.target, spotlight.duration, false, line);
          },
          [&](const SpotlightShiftInstruction& spotlight) {
            this->spotlight(spotlight.target, spotlight.duration, true, line);
          },
          [&](const ClearFxInstruction&) {
            addDemoEvent(demoEvent(DemoEvent::Kind::clearEffects), "clear-fx", line);
          },
          [&](const IntroInstruction& intro) {
            renderAdditions_.intro = titleCard(intro.title, intro.subtitle, intro.duration, line);
          },
          [&](const OutroInstruction& outro) {
            renderAdditions_.outro = titleCard(outro.title, outro.subtitle, outro.duration, line);
          },
          [&](const DismissDialogInstruction& dismiss) {
            dialog(dismiss.app ? std::optional(text(*dismiss.app, line)) : std::nullopt,
                   dismiss.button ? std::optional(text(*dismiss.button, line)) : std::nullopt);
          },
          [&](const ClickButtonInDialogInstruction& click) {
            dialog(click.app ? std::optional(text(*click.app, line)) : std::nullopt,
                   text(click.button, line));
          },
          [&](const SetBackgroundInstruction& background) {
            const std::string colour = text(background.color, line);
            const auto hex = hexColour(colour);
            if (!hex) {
              throw ScriptError::invalidValue(line, colour, "set-background",
                                              "expected a hex colour such as #1a1a2e");
            }
            renderAdditions_.background = *hex;
          },
          [&](const TargetInstruction& target) { this->target(target, line); },
          [&](const FillInstruction& fill) { this->fill(fill, line); },
          [&](const MoveToInstruction& moveTo) {
            const ScreenRect rect = elementRect(text(moveTo.target, line), line);
            services_.input.smoothMove(rect.x + rect.width / 2, rect.y + rect.height / 2,
                                       kDefaultMoveDuration);
          },
          [&](const WaitForInstruction& waitFor) { this->waitFor(waitFor, line); },
          [&](const BrowserInstruction& browser) { this->browser(browser, line); },
          [&](const NavigateInstruction& navigate) { this->navigate(navigate, line); },
          [&](const HighlightInstruction& highlight) {
            const ScreenRect rect = elementRect(text(highlight.target, line), line);
            static constexpr const char* kStyles[] = {"outline", "glow", "box"};
            DemoEvent event =
                demoEvent(DemoEvent::Kind::highlight, number(highlight.duration, line));
            event.rect = rect;
            event.style = kStyles[static_cast<int>(highlight.style)];
            addDemoEvent(std::move(event), "highlight", line);
          },
          [&](const ZoomInstruction& zoom) { this->zoom(zoom, line); },
          [&](const ZoomOutInstruction& zoomOut) { this->zoomOut(zoomOut, line); },
      },
      instruction);
}

// --- Settings, windows ---------------------------------------------------------------------

void ScriptEngine::setSetting(const SetInstruction& set, int line) {
  const std::string value = text(set.value, line);
  context_.setSetting(set.name, value);
  if (set.name != "pace") {
    return;
  }
  if (const auto preset = pacePresetNamed(value)) {
    context_.applyPace(*preset);
    print("Applied '" + value + "' timing preset");
  } else {
    logLine("Warning: line " + std::to_string(line) + ": unknown pace preset '" + value +
            "' (expected: " + pacePresetNames() + ")");
  }
}

void ScriptEngine::open(const OpenInstruction& open, int line) {
  const std::string app = text(open.app, line);
  const std::uint32_t id = services_.windows.openApp(app);
  const auto window = services_.windows.find(id);
  targetWindow_ = TargetWindow{id, app, window ? window->pid : 0};
  print("     opened " + app + " (window " + formatXID(id) + ")");
}

std::optional<WindowInfo> ScriptEngine::waitForWindow(
    const std::function<std::optional<WindowInfo>()>& find) {
  const Clock::TimePoint deadline = services_.clock.now() + toDuration(kWindowAppearTimeout);
  while (true) {
    if (auto window = find()) {
      return window;
    }
    if (services_.clock.now() >= deadline || shouldStop()) {
      return std::nullopt;
    }
    sleep(kWindowPoll);
  }
}

void ScriptEngine::captureWindow(const CaptureWindowInstruction& capture, int line) {
  const std::string wanted = text(capture.window.value, line);
  std::optional<WindowInfo> window;
  std::string description;
  if (capture.window.kind == WindowReference::Kind::appName) {
    description = "app '" + wanted + "'";
    // An application started a moment ago (by `run`, say) may not have its window yet.
    window = waitForWindow([&]() -> std::optional<WindowInfo> {
      const auto match = services_.windows.find(std::string_view(wanted));
      return match ? std::optional(match->window) : std::nullopt;
    });
  } else {
    const auto id = parseXID(wanted);
    if (!id) {
      throw ScriptError::invalidValue(line, wanted, "capture-window id",
                                      "expected a window id such as 0x1a00007 or 27262983");
    }
    description = "id " + formatXID(*id);
    window = services_.windows.find(*id);
  }
  if (!window) {
    throw ScriptError::windowNotFound(description);
  }
  const std::string app = capture.window.kind == WindowReference::Kind::appName
                              ? wanted
                              : (window->appName.empty() ? description : window->appName);
  capturedWindow_ = targetWindow_ = TargetWindow{window->id, app, window->pid};
  if (capture.variable) {
    context_.setVariable(*capture.variable, ScriptVariableValue::windowID(window->id));
  }
  activeDriverIsBrowser_ = browser_ && window->id == browserWindowID_;
  print(fmt::format("     captured {} window {} ({}x{})", app, formatXID(window->id),
                    window->contentFrame.width, window->contentFrame.height));
}

void ScriptEngine::target(const TargetInstruction& target, int line) {
  const std::string wanted = text(target.match, line);
  std::optional<WindowInfo> window;
  std::string app = wanted;
  if (target.kind == TargetInstruction::Kind::app) {
    const auto match = services_.windows.find(std::string_view(wanted));
    window = match ? std::optional(match->window) : std::nullopt;
  } else {
    const std::string needle = lowercased(wanted);
    for (const WindowInfo& candidate : services_.windows.windows()) {
      if (lowercased(candidate.title).find(needle) != std::string::npos) {
        window = candidate;
        app = candidate.appName;
        break;
      }
    }
  }
  if (!window) {
    throw ScriptError::windowNotFound(
        (target.kind == TargetInstruction::Kind::app ? "app '" : "title matching '") + wanted +
        "'");
  }
  capturedWindow_ = targetWindow_ = TargetWindow{window->id, app, window->pid};
  if (target.variable) {
    context_.setVariable(*target.variable, ScriptVariableValue::windowID(window->id));
  }
  activeDriverIsBrowser_ = browser_ && window->id == browserWindowID_;
  print("     targeting " + app + " window " + formatXID(window->id));
}

void ScriptEngine::resize(const ResizeInstruction& resize, int line) {
  const std::optional<TargetWindow> window =
      activeWindow_ ? std::optional(TargetWindow{*activeWindow_, windowLabel(*activeWindow_), 0})
                    : capturedWindow_;
  if (!window) {
    throw ScriptError::runtimeError(line, "'resize' requires a captured or recording window");
  }
  const int width = whole(resize.width, line);
  const int height = whole(resize.height, line);
  services_.windows.resize(window->id, width, height);
  print(fmt::format("Resized {} to {}x{}", window->appName, width, height));
}

void ScriptEngine::clear() {
  if (targetWindow_) {
    services_.windows.focus(targetWindow_->id);
  }
  services_.input.pressKey("l", ModifierFlags{Modifier::control});
}

void ScriptEngine::dialog(std::optional<std::string> app, std::optional<std::string> button) {
  const std::string owner = app ? *app : (targetWindow_ ? targetWindow_->appName : "");
  const std::string report = button ? services_.windows.clickButtonInDialog(owner, *button)
                                    : services_.windows.dismissDialog(owner);
  if (report.starts_with("Warning:")) {
    logLine(report);
  } else {
    print("     " + report);
  }
}

std::string ScriptEngine::windowLabel(std::uint32_t id) const {
  if (capturedWindow_ && capturedWindow_->id == id) {
    return capturedWindow_->appName;
  }
  if (targetWindow_ && targetWindow_->id == id) {
    return targetWindow_->appName;
  }
  return "window " + formatXID(id);
}

// --- Recording -----------------------------------------------------------------------------

void ScriptEngine::checkRecordingPermissions(int line) {
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

void ScriptEngine::record(const RecordInstruction& record, int line) {
  if (record.audio && !isVideo(outputFormatFromExtension(outputPath().extension().string())
                                   .value_or(OutputFormat::gif))) {
    throw ScriptError::runtimeError(line, kAudioNeedsVideo);
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
      window = windowVariable(record.target.variable, line);
      request.target = CaptureTarget::windowOf(*window);
      what = windowLabel(*window);
      break;
    case RecordTarget::Kind::windowCrop: {
      window = windowVariable(record.target.variable, line);
      const auto info = services_.windows.find(*window);
      if (!info) {
        throw ScriptError::windowNotFound("id " + formatXID(*window));
      }
      const ScriptRect& crop = *record.target.rect;
      request.target = CaptureTarget::windowCropOf(
          info->contentFrame, {whole(crop.x, line), whole(crop.y, line), whole(crop.width, line),
                               whole(crop.height, line)});
      const ScreenRect& area = request.target.area;
      what = fmt::format("{} at {},{} {}x{}", windowLabel(*window), area.x, area.y, area.width,
                         area.height);
      break;
    }
    case RecordTarget::Kind::region:
    case RecordTarget::Kind::simulator: {
      const ScriptRect& rect = *record.target.rect;
      request.target =
          CaptureTarget::screenAreaOf({whole(rect.x, line), whole(rect.y, line),
                                       whole(rect.width, line), whole(rect.height, line)});
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
    duration = number(*record.duration, line);
  }
  if (record.audio) {
    request.sound = AudioSource{};  // what the desktop plays, on the session's sound server
  }
  auto recorder = services_.makeRecorder();
  try {
    recorder->start(request);
  } catch (const AudioError& error) {
    throw ScriptError::runtimeError(line, error.what());
  }
  activeRecorder_ = std::move(recorder);
  recordingStartTime_ = services_.clock.now();
  segmentTargetDuration_ = duration;
  activeWindow_ = window;
  segmentEffects_.clear();
  segmentDemoEffects_.clear();
  segmentChromeTyping_ = false;
  segmentURL_ = browserURL_;
  print(fmt::format("     recording {} at {} fps{}", what, request.fps,
                    duration ? fmt::format(" for {} s", formatScriptNumber(*duration)) : ""));
  // Without `continue` the line lasts the segment; a segment without a duration runs on until
  // `stop`, `remain`, the next `record` or `render`, as with `continue`.
  if (!record.continues && duration) {
    waitWhileRecording(*duration);
    endSegment();
  }
}

double ScriptEngine::segmentTime() const {
  return secondsBetween(recordingStartTime_, services_.clock.now());
}

void ScriptEngine::waitWhileRecording(double untilSegmentTime) {
  while (activeRecorder_ && !shouldStop() && !activeRecorder_->hasEnded()) {
    const double left = untilSegmentTime - segmentTime();
    if (left <= 0) {
      return;
    }
    sleep(std::min(left, kWaitSlice));
  }
  if (activeRecorder_ && activeRecorder_->hasEnded()) {
    logLine("Warning: the recording ended on its own (its window closed); the segment ends early");
  }
}

void ScriptEngine::remain(int line) {
  if (!activeRecorder_) {
    logLine("Warning: line " + std::to_string(line) + ": 'remain' with no recording in progress");
    return;
  }
  const double target = segmentTargetDuration_.value_or(0);
  print(fmt::format("Remaining: {:.1f}", std::max(0.0, target - segmentTime())));
  waitWhileRecording(target);
  endSegment();
}

void ScriptEngine::endSegment() {
  std::unique_ptr<SegmentRecorder> recorder = std::move(activeRecorder_);
  RenderSegment segment{recorder->stop()};
  segment.effects = std::move(segmentEffects_);
  segment.demoEvents = std::move(segmentDemoEffects_);
  if (browser_ && activeWindow_ && *activeWindow_ == browserWindowID_) {
    segment.isBrowserContent = true;
    segment.chromeURL = segmentURL_;
    segment.chromeTyping = segmentChromeTyping_;
  }
  activeWindow_.reset();
  segmentEffects_.clear();
  segmentDemoEffects_.clear();
  const int frames = segment.frames ? segment.frames->count() : 0;
  if (frames == 0) {
    logLine("Warning: segment captured 0 frames");
    return;
  }
  print(fmt::format("     segment {}: {} frames in {:.1f} s", segments_.size() + 1, frames,
                    segment.duration));
  segments_.push_back(std::move(segment));
}

std::filesystem::path ScriptEngine::outputPath() const {
  if (options_.output) {
    return *options_.output;
  }
  const std::string* output = context_.setting("output");
  return output != nullptr && !output->empty() ? std::filesystem::path(*output)
                                               : std::filesystem::path("output.gif");
}

void ScriptEngine::render(int line) {
  if (activeRecorder_) {
    endSegment();
  }
  if (segments_.empty()) {
    throw ScriptError::runtimeError(line, "No segments to render");
  }
  const std::filesystem::path output = outputPath();
  const std::string extension = output.extension().string();
  const auto format = outputFormatFromExtension(extension);
  if (!format) {
    throw ScriptError::runtimeError(
        line, "Cannot write '" + output.string() +
                  "': the name must end in .gif, .webp or .png (animated PNG)");
  }
  RenderSettings settings = scriptRenderSettings(context_, options_.preview);
  settings.format = *format;
  settings.intro = renderAdditions_.intro;
  settings.outro = renderAdditions_.outro;
  settings.background = renderAdditions_.background;
  print(fmt::format("Rendering {} segment(s) into {}", segments_.size(), output.string()));
  const Clock::TimePoint started = services_.clock.now();
  double recorded = 0;
  for (const RenderSegment& segment : segments_) {
    recorded += segment.duration;
  }
  const EncodeSummary summary = SegmentRenderer::render(segments_, settings, output,
                                                        options_.renderProgress, options_.abandon);
  profiler_.record(0, "render", secondsBetween(started, services_.clock.now()));
  if (summary.frames == 0) {
    throw ScriptError::encodingFailed();
  }
  outcome_ =
      ScriptOutcome{output, summary, static_cast<int>(segments_.size()), recorded, shouldStop()};
  // The frames are in the file now; their temporary files can go.
  segments_.clear();
}

void ScriptEngine::finish() {
  if (activeRecorder_) {
    endSegment();
  }
  if (!renderCalled_) {
    if (segments_.empty()) {
      if (!shouldStop()) {
        throw ScriptError::runtimeError(0, "No segments recorded");
      }
      outcome_ = ScriptOutcome{outputPath(), {}, 0, 0, true};
    } else {
      try {
        render(0);
      } catch (const ScriptError&) {
        throw;
      } catch (const CancellationError&) {
        throw;
      } catch (const std::exception& error) {
        throw ScriptError::runtimeError(0, error.what());
      }
    }
  }
  if (context_.boolSetting("cleanup", true)) {
    print("Cleaning up...");
    cleanup();
  }
}

void ScriptEngine::cleanup() {
  const Clock::TimePoint started = services_.clock.now();
  services_.windows.cleanupScriptWindows();
  nativeDriver_.reset();
  browser_.reset();
  services_.processes.stopBackgroundProcesses();
  profiler_.record(0, "clean-up", secondsBetween(started, services_.clock.now()));
}

// --- Input and waits -----------------------------------------------------------------------

void ScriptEngine::type(const TypeInstruction& type, int line) {
  const double delay =
      type.delay ? number(*type.delay, line) : context_.doubleSetting("typing-delay", 0.05);
  services_.input.typeText(text(type.text, line), delay, type.enter,
                           [this] { return shouldStop(); });
}

void ScriptEngine::key(const KeyInstruction& key, int line) {
  const std::string written = text(key.keySpec, line);
  const KeyChord chord = InputSimulator::parseKeyChord(written);
  if (!services_.input.pressKey(chord.key, chord.modifiers)) {
    throw ScriptError::runtimeError(line, "Unknown key '" + chord.key + "' in '" + written + "'");
  }
}

void ScriptEngine::sleep(double seconds) {
  services_.clock.sleepFor(toDuration(seconds));
}

void ScriptEngine::wait(double seconds) {
  const Clock::TimePoint end = services_.clock.now() + toDuration(seconds);
  while (!shouldStop()) {
    const double left = secondsBetween(services_.clock.now(), end);
    if (left <= 0) {
      return;
    }
    sleep(std::min(left, kWaitSlice));
  }
}

void ScriptEngine::autoPace() {
  if (context_.boolSetting("auto-pace", false)) {
    wait(context_.doubleSetting("auto-pace-delay", 0.8));
  }
}

void ScriptEngine::waitForIdle(double seconds, int line) {
  const Clock::TimePoint start = services_.clock.now();
  const Clock::TimePoint giveUp = start + toDuration(seconds + kIdleGiveUpAfter);
  // While a segment records, its recorder knows when the picture last changed; otherwise the
  // window being driven (or the first display) is looked at here.
  std::unique_ptr<ScreenStream> stream;
  std::optional<Image> last;
  Clock::TimePoint lastChange = start;
  if (!activeRecorder_) {
    const std::optional<std::uint32_t> window =
        targetWindow_ ? std::optional(targetWindow_->id) : std::nullopt;
    CaptureTarget target;
    if (window && services_.screen.window(*window)) {
      target = CaptureTarget::windowOf(*window);
    } else {
      const auto displays = services_.screen.displays();
      if (displays.empty()) {
        return;
      }
      target = CaptureTarget::screenAreaOf(displays.front().frame);
    }
    stream = services_.screen.openStream(target, false);
  }
  while (!shouldStop()) {
    const Clock::TimePoint now = services_.clock.now();
    if (activeRecorder_) {
      lastChange = std::max(activeRecorder_->lastChangeTime(), start);
    } else if (auto picture = stream->grab()) {
      if (!last || !samePicture(*last, *picture)) {
        lastChange = now;
      }
      last = std::move(picture);
    }
    if (secondsBetween(lastChange, now) >= seconds) {
      return;
    }
    if (now >= giveUp) {
      logLine(fmt::format("Warning: line {}: the screen kept changing for {} s; going on", line,
                          formatScriptNumber(seconds + kIdleGiveUpAfter)));
      return;
    }
    sleep(kIdlePoll);
  }
}

// --- Elements and the browser --------------------------------------------------------------

ElementDriver& ScriptEngine::elementDriver(int line) {
  if (browser_ && activeDriverIsBrowser_) {
    return browser_->elements();
  }
  const std::optional<TargetWindow> window = capturedWindow_ ? capturedWindow_ : targetWindow_;
  if (!window) {
    throw ScriptError::runtimeError(
        line,
        "element targets need a page (browser chrome \"url\") or an application (target app "
        "\"Name\" or capture-window) to look in");
  }
  AccessibilityBackend* accessibility = services_.windows.accessibility();
  if (accessibility == nullptr) {
    throw DemoDriverError::permissionDenied(
        "element targets in " + window->appName +
        " go through the accessibility service (AT-SPI), which is not available");
  }
  if (!nativeDriver_ || nativeDriverPID_ != window->pid) {
    nativeDriver_ = accessibility->driverFor(window->pid);
    nativeDriverPID_ = window->pid;
  }
  return *nativeDriver_;
}

ScreenRect ScriptEngine::elementRect(const std::string& target, int line) {
  const auto rect = elementDriver(line).find(target);
  if (!rect) {
    throw DemoDriverError::elementNotFound(target);
  }
  return *rect;
}

void ScriptEngine::clickTarget(const ClickTargetInstruction& click, int line) {
  const ScreenRect rect = elementRect(text(click.target, line), line);
  const int x = rect.x + rect.width / 2;
  const int y = rect.y + rect.height / 2;
  // The pointer travels there and clicks, as a person would, so the recording shows it.
  services_.input.smoothMove(x, y, kDefaultMoveDuration);
  services_.input.click(x, y, click.right ? MouseButton::right : MouseButton::left);
}

void ScriptEngine::fill(const FillInstruction& fill, int line) {
  const std::string target = text(fill.target, line);
  const std::string value = text(fill.text, line);
  ElementDriver& driver = elementDriver(line);
  try {
    driver.setValue(target, value);
  } catch (const DemoDriverError& error) {
    if (error.code() != DemoDriverError::Code::unsupported) {
      throw;
    }
    // A field that takes no value directly is typed into instead.
    driver.focus(target);
    services_.input.typeText(value, context_.doubleSetting("typing-delay", 0.05), false,
                             [this] { return shouldStop(); });
  }
  if (fill.enter) {
    driver.focus(target);
    services_.input.pressKey("enter", {});
  }
}

void ScriptEngine::waitFor(const WaitForInstruction& waitFor, int line) {
  const std::string target = text(waitFor.target, line);
  const double timeout = number(waitFor.timeout, line);
  ElementDriver& driver = elementDriver(line);
  const Clock::TimePoint giveUp = services_.clock.now() + toDuration(timeout);
  while (!shouldStop()) {
    if (driver.find(target)) {
      return;
    }
    if (services_.clock.now() >= giveUp) {
      throw DemoDriverError::elementNotFound(target + " (waited " + formatScriptNumber(timeout) +
                                             " s)");
    }
    sleep(kElementPoll);
  }
}

void ScriptEngine::browser(const BrowserInstruction& browser, int line) {
  if (services_.browsers == nullptr) {
    throw ScriptError::runtimeError(line, "Google Chrome or Chromium is not installed");
  }
  const std::string url = pageAddress(text(browser.url, line), options_.scriptDirectory);
  browser_.reset();  // one browser session at a time
  browser_ = services_.browsers->launch(url);
  const int pid = browser_->pid();
  const auto window = waitForWindow([&] { return services_.windows.find(OwnerPID{pid}); });
  if (!window) {
    throw ScriptError::runtimeError(line, "the browser opened no window");
  }
  browserWindowID_ = window->id;
  browserURL_ = url;
  activeDriverIsBrowser_ = true;
  targetWindow_ = TargetWindow{window->id, "Chromium", pid};
  if (browser.variable) {
    context_.setVariable(*browser.variable, ScriptVariableValue::windowID(window->id));
    capturedWindow_ = targetWindow_;
  }
  services_.windows.focus(window->id);
  print("     browser window " + formatXID(window->id) + " on " + url);
}

void ScriptEngine::navigate(const NavigateInstruction& navigate, int line) {
  if (!browser_) {
    throw ScriptError::runtimeError(line, "navigate requires a Chrome (browser) session");
  }
  const std::string url = pageAddress(text(navigate.url, line), options_.scriptDirectory);
  DemoEvent event = demoEvent(DemoEvent::Kind::navigate);
  event.url = url;
  addDemoEvent(std::move(event), "", line);
  if (navigate.showTyping && activeRecorder_) {
    segmentChromeTyping_ = true;
  }
  browser_->navigate(url);
  browserURL_ = url;
}

void ScriptEngine::zoom(const ZoomInstruction& zoom, int line) {
  const std::string target = text(zoom.target, line);
  const double scale = number(zoom.scale, line);
  const ZoomMode mode =
      zoom.mode.value_or(browser_ && activeDriverIsBrowser_ ? ZoomMode::page : ZoomMode::digital);
  if (mode == ZoomMode::page) {
    if (!browser_) {
      throw ScriptError::runtimeError(line, "page zoom requires a Chrome (browser) session");
    }
    browser_->setRealZoom(scale, target);
    pageZoomed_ = scale > 1;
    return;
  }
  DemoEvent event = demoEvent(DemoEvent::Kind::zoom, number(zoom.duration, line));
  event.rect = elementRect(target, line);
  event.scale = scale;
  addDemoEvent(std::move(event), "zoom", line);
}

void ScriptEngine::zoomOut(const ZoomOutInstruction& zoomOut, int line) {
  if (pageZoomed_ && browser_) {
    browser_->setRealZoom(1, std::nullopt);
    pageZoomed_ = false;
    return;
  }
  addDemoEvent(demoEvent(DemoEvent::Kind::zoomOut, number(zoomOut.duration, line)), "zoom-out",
               line);
}

// --- Effects -------------------------------------------------------------------------------

void ScriptEngine::spotlight(const SpotlightTarget& target, const ScriptValue& duration, bool shift,
                             int line) {
  EffectAnnotation annotation;
  annotation.kind =
      shift ? EffectAnnotation::Kind::spotlightShift : EffectAnnotation::Kind::spotlight;
  annotation.duration = number(duration, line);
  if (target.kind == SpotlightTarget::Kind::stdout) {
    annotation.text =
        context_.resolve(ScriptValue::variableIndex(target.variable, target.lineIndex), line);
  } else {
    const ScriptRect& rect = *target.rect;
    annotation.rect = {whole(rect.x, line), whole(rect.y, line), whole(rect.width, line),
                       whole(rect.height, line)};
  }
  if (!activeRecorder_) {
    logLine("Warning: line " + std::to_string(line) + ": '" +
            (shift ? "spotlight-shift" : "spotlight") + "' outside a recording shows nothing");
    return;
  }
  annotation.startTime = segmentTime();
  segmentEffects_.push_back(std::move(annotation));
}

void ScriptEngine::addDemoEvent(DemoEvent event, std::string_view command, int line) {
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

TitleCard ScriptEngine::titleCard(const ScriptValue& title,
                                  const std::optional<ScriptValue>& subtitle,
                                  const std::optional<ScriptValue>& duration, int line) const {
  TitleCard card;
  card.title = text(title, line);
  if (subtitle) {
    card.subtitle = text(*subtitle, line);
  }
  if (duration) {
    card.duration = number(*duration, line);
  }
  return card;
}

// --- Values --------------------------------------------------------------------------------

int ScriptEngine::whole(const ScriptValue& value, int line) const {
  const double resolved = number(value, line);
  if (!std::isfinite(resolved) || std::abs(resolved) > 1e9) {
    throw ScriptError::runtimeError(line, "Expected number, got '" + text(value, line) + "'");
  }
  return static_cast<int>(std::lround(resolved));
}

std::uint32_t ScriptEngine::windowVariable(const std::string& name, int line) const {
  const ScriptVariableValue* value = context_.variable(name);
  if (value == nullptr) {
    throw ScriptError::undefinedVariable(line, name);
  }
  if (const auto id = value->windowIDValue()) {
    return *id;
  }
  throw ScriptError::runtimeError(
      line, "$" + name + " holds no window (bind one with capture-window ... as $" + name + ")");
}

void ScriptEngine::print(const std::string& line) const {
  if (!options_.quiet && options_.print) {
    options_.print(line);
  }
}

}  // namespace brimble
