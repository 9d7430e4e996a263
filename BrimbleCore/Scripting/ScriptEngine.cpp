#include "BrimbleCore/Scripting/ScriptEngine.h"

#include <algorithm>
#include <cctype>
#include <exception>
#include <memory>
#include <variant>

#include <fmt/format.h>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Scripting/PacePreset.h"
#include "BrimbleCore/Scripting/ScriptCommandTable.h"
#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Scripting/ScriptPreflight.h"
#include "BrimbleCore/Scripting/ScriptTextWait.h"
#include "BrimbleCore/Scripting/ScriptValidation.h"
#include "BrimbleCore/Scripting/ShellCommand.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

// `wait-for-idle` gives up this long after the quiet time it waits for.
constexpr double kIdleGiveUpAfter = 10;
constexpr double kIdlePoll = 0.1;
// Before typing a new line after Enter: the screen must have held still this long, looked at
// this often, but the script waits no longer than this after the Enter for it.
constexpr double kSettleQuiet = 0.3;
constexpr double kSettlePoll = 0.03;
constexpr double kSettleAtMost = 3;
constexpr double kElementPoll = 0.1;

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

}  // namespace

ScriptEngine::ScriptEngine(ScriptServices services, ScriptOptions options)
    : services_(std::move(services)),
      options_(std::move(options)),
      clock_(services_.clock, options_.interrupt),
      targets_(services_, options_, context_, clock_),
      segments_(services_, options_, context_, profiler_, targets_, clock_) {}

ScriptOutcome ScriptEngine::execute(std::string_view source) {
  return execute(validate(source));
}

ScriptOutcome ScriptEngine::execute(const ParsedScript& script) {
  checkBeforeRunning(script);
  segments_.begin(script);
  targets_.checkPages(script.instructions);
  if (std::any_of(script.instructions.begin(), script.instructions.end(),
                  [](const LocatedInstruction& located) {
                    return std::holds_alternative<WaitForTextInstruction>(located.instruction);
                  })) {
    targets_.logTerminals();
  }
  const auto endAfterFailure = [this] {
    segments_.discard();
    if (context_.boolSetting("cleanup", true)) {
      cleanup();
    }
  };
  try {
    run(script.instructions);
    finish();
  } catch (const CancellationError&) {
    // Abandoned on purpose: nothing is written.
    endAfterFailure();
    throw;
  } catch (...) {
    // A failing line costs the script, not what it recorded up to there.
    keepPartial();
    endAfterFailure();
    throw;
  }
  return *outcome_;
}

void ScriptEngine::keepPartial() {
  try {
    partial_ = segments_.keepPartial();
  } catch (const std::exception& error) {
    logLine(std::string("Warning: what was recorded could not be kept: ") + error.what());
  }
}

void ScriptEngine::run(const std::vector<LocatedInstruction>& instructions) {
  const std::size_t count = instructions.size();
  for (std::size_t i = 0; i < count && !shouldStop() && !renderCalled_; ++i) {
    const LocatedInstruction& located = instructions[i];
    options_.progress(fmt::format("[{}/{}] {}", i + 1, count, located.source));
    const Clock::TimePoint started = clock_.now();
    const TimelineStamp begun = segments_.stamp();
    try {
      executeInstruction(located);
    } catch (const CancellationError&) {
      if (!shouldStop()) {
        throw;
      }
      // An interrupt stopped a `run` command: the script ends here, as between instructions.
    }
    segments_.timeline().addInstruction(located, begun, segments_.stamp());
    profiler_.record(located.line, located.source, clock_.secondsSince(started));
    if (segments_.recorderEnded()) {
      logLine("Warning: line " + std::to_string(located.line) +
              ": the recording ended on its own (its window closed); the segment ends here");
      segments_.endSegment();
    }
  }
}

void ScriptEngine::executeInstruction(const LocatedInstruction& located) {
  try {
    if (const auto unavailable = unavailableOnThisPlatform(located.instruction)) {
      throw ScriptError::runtimeError(located.line, *unavailable);
    }
    // The command's name only: its arguments may be typed text.
    logVerbose(fmt::format("Line {}: {}", located.line, commandName(located.instruction)));
    dispatch(located.instruction, located.line);
    if (ScriptCommandTable::shared().traitsOf(located.instruction).action) {
      autoPace();
    }
  } catch (const ScriptError& error) {
    if (located.file.empty()) {
      throw;
    }
    throw ScriptError::inIncludedFile(error, located.file);
  } catch (const CancellationError&) {
    throw;
  } catch (const std::exception& error) {
    // The components' own errors (windows, browser, capture, input) become the line's.
    const ScriptError lineError = ScriptError::runtimeError(located.line, error.what());
    if (located.file.empty()) {
      throw lineError;
    }
    throw ScriptError::inIncludedFile(lineError, located.file);
  }
}

void ScriptEngine::dispatch(const ScriptInstruction& instruction, int line) {
  std::visit(
      Overloaded{
          [&](const SetInstruction& set) { setSetting(set, line); },
          [&](const OpenInstruction& open) { targets_.open(open, line, environment_); },
          [&](const FocusInstruction& focus) { targets_.focus(focus, line); },
          [&](const CaptureWindowInstruction& capture) { targets_.captureWindow(capture, line); },
          [&](const ResizeInstruction& resize) { this->resize(resize, line); },
          [&](const ClearInstruction&) { clear(); },
          [&](const RecordInstruction& record) { segments_.record(record, line); },
          [&](const StopInstruction&) { segments_.stop(line); },
          [&](const RemainInstruction&) { segments_.remain(line); },
          [&](const RenderInstruction&) {
            outcome_ = segments_.render(line);
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
          [&](const WaitInstruction& wait) { clock_.wait(number(wait.seconds, line)); },
          [&](const WaitForIdleInstruction& idle) {
            waitForIdle(number(idle.seconds, line), line);
          },
          [&](const RunInstruction& run) {
            executeRun(
                run, line, context_, services_.processes,
                [this](std::string_view text) { options_.progress(text); }, environment_);
          },
          [&](const SpotlightInstruction& spotlight) {
            this->spotlight(spotlight.target, spotlight.duration, false, line);
          },
          [&](const SpotlightShiftInstruction& spotlight) {
            this->spotlight(spotlight.target, spotlight.duration, true, line);
          },
          [&](const ClearFxInstruction&) {
            segments_.addDemoEvent(demoEvent(DemoEvent::Kind::clearEffects), "clear-fx", line);
          },
          [&](const IntroInstruction& intro) {
            segments_.setIntro(titleCard(intro.title, intro.subtitle, intro.duration, line));
          },
          [&](const OutroInstruction& outro) {
            segments_.setOutro(titleCard(outro.title, outro.subtitle, outro.duration, line));
          },
          [&](const DismissDialogInstruction& dismiss) {
            dialog(dismiss.app ? std::optional(text(*dismiss.app, line)) : std::nullopt,
                   dismiss.button ? std::optional(text(*dismiss.button, line)) : std::nullopt);
          },
          [&](const ClickButtonInDialogInstruction& click) {
            dialog(click.app ? std::optional(text(*click.app, line)) : std::nullopt,
                   text(click.button, line));
          },
          [&](const SetBackgroundInstruction& background) { setBackground(background, line); },
          [&](const TargetInstruction& target) { targets_.target(target, line); },
          [&](const FillInstruction& fill) { this->fill(fill, line); },
          [&](const MoveToInstruction& moveTo) {
            const ScreenRect rect = targets_.elementRect(text(moveTo.target, line), line);
            services_.input.smoothMove(rect.x + rect.width / 2, rect.y + rect.height / 2,
                                       kDefaultMoveDuration);
          },
          [&](const WaitForInstruction& waitFor) { this->waitFor(waitFor, line); },
          [&](const BrowserInstruction& browser) { targets_.browser(browser, line); },
          [&](const NavigateInstruction& navigate) { this->navigate(navigate, line); },
          [&](const HighlightInstruction& highlight) { this->highlight(highlight, line); },
          [&](const ZoomInstruction& zoom) { this->zoom(zoom, line); },
          [&](const ZoomOutInstruction& zoomOut) { this->zoomOut(zoomOut, line); },
          [&](const HideInstruction&) { segments_.hide(line); },
          [&](const ShowInstruction&) { segments_.show(line); },
          [&](const RequireInstruction& require) {
            requireProgram(text(require.program, line), line);
          },
          [&](const EnvInstruction& env) { setEnvironment(env.name, text(env.value, line)); },
          [&](const ScreenshotInstruction& screenshot) { this->screenshot(screenshot, line); },
          [&](const OutputInstruction& output) { segments_.addOutput(text(output.path, line)); },
          [](const IncludeInstruction&) {
            // The check of the script put the included lines in its place.
          },
          [&](const CaptionInstruction& caption) { this->caption(caption, line); },
          [&](const WaitForTextInstruction& wait) {
            ScriptTextWait(services_, clock_, targets_, segments_)
                .wait(text(wait.pattern, line), number(wait.timeout, line), wait.lastLine, line);
          },
          [&](const ChapterInstruction& chapter) {
            segments_.timeline().addChapter(text(chapter.title, line), line, segments_.stamp());
          },
      },
      instruction);
}

void ScriptEngine::finish() {
  if (segments_.recording()) {
    segments_.endSegment();
  }
  if (!renderCalled_) {
    if (segments_.segments().empty()) {
      if (!shouldStop()) {
        throw ScriptError::runtimeError(0, "No segments recorded");
      }
      ScriptOutcome stopped;
      stopped.output = segments_.outputPath();
      stopped.interrupted = true;
      outcome_ = stopped;
    } else {
      try {
        outcome_ = segments_.render(0);
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
    options_.progress("Cleaning up...");
    cleanup();
  }
}

void ScriptEngine::cleanup() {
  const Clock::TimePoint started = clock_.now();
  targets_.closeAll();
  services_.processes.stopBackgroundProcesses();
  profiler_.record(0, "clean-up", clock_.secondsSince(started));
}

// --- Settings, windows ---------------------------------------------------------------------

void ScriptEngine::setSetting(const SetInstruction& set, int line) {
  const std::string value = text(set.value, line);
  context_.setSetting(set.name, value);
  if (set.name == "output") {
    std::vector<std::filesystem::path> outputs{value};
    for (const ScriptValue& more : set.moreValues) {
      outputs.emplace_back(text(more, line));
    }
    segments_.setOutputs(std::move(outputs));
    return;
  }
  if (set.name != "pace") {
    return;
  }
  if (const auto preset = pacePresetNamed(value)) {
    context_.applyPace(*preset);
    options_.progress("Applied '" + value + "' timing preset");
  } else {
    logLine("Warning: line " + std::to_string(line) + ": unknown pace preset '" + value +
            "' (expected: " + pacePresetNames() + ")");
  }
}

void ScriptEngine::setEnvironment(const std::string& name, const std::string& value) {
  const std::string prefix = name + "=";
  std::erase_if(environment_, [&](const std::string& entry) { return entry.starts_with(prefix); });
  environment_.push_back(prefix + value);
}

void ScriptEngine::resize(const ResizeInstruction& resize, int line) {
  const std::optional<std::uint32_t> recording = segments_.recordingWindow();
  const std::optional<TargetWindow> window =
      recording ? std::optional(TargetWindow{*recording, targets_.windowLabel(*recording), 0})
                : targets_.capturedWindow();
  if (!window) {
    throw ScriptError::runtimeError(line, "'resize' requires a captured or recording window");
  }
  const int width = whole(resize.width, line);
  const int height = whole(resize.height, line);
  const ScreenRect reached = services_.windows.resize(window->id, width, height);
  options_.progress(
      fmt::format("Resized {} to {}x{}", window->appName, reached.width, reached.height));
}

void ScriptEngine::clear() {
  if (const auto& window = targets_.targetWindow()) {
    services_.windows.focus(window->id);
  }
  services_.input.pressKey("l", ModifierFlags{Modifier::control});
}

void ScriptEngine::dialog(std::optional<std::string> app, std::optional<std::string> button) {
  const std::optional<TargetWindow>& target = targets_.targetWindow();
  const std::string owner = app ? *app : (target ? target->appName : "");
  const std::string report = button ? services_.windows.clickButtonInDialog(owner, *button)
                                    : services_.windows.dismissDialog(owner);
  if (report.starts_with("Warning:")) {
    logLine(report);
  } else {
    options_.progress("     " + report);
  }
}

// --- Input and waits -----------------------------------------------------------------------

void ScriptEngine::type(const TypeInstruction& type, int line) {
  const double delay =
      type.delay ? number(*type.delay, line) : context_.doubleSetting("typing-delay", 0.05);
  const std::string typed = text(type.text, line);
  if (lineEndedAt_) {
    settleAfterEnter(*lineEndedAt_);
  }
  services_.input.typeText(typed, delay, type.enter, [this] { return shouldStop(); });
  if (type.enter || typed.ends_with('\n')) {
    lineEndedAt_ = clock_.now();
  } else {
    lineEndedAt_.reset();
  }
}

void ScriptEngine::settleAfterEnter(Clock::TimePoint enter) {
  // After Enter a shell runs the line and then prints its prompt; keys typed before that are
  // echoed ahead of the prompt. A new line waits for the screen to settle first.
  const double left = kSettleAtMost - clock_.secondsSince(enter);
  if (left <= 0) {
    return;
  }
  if (!segments_.recording() && services_.screen.userPicksWindows()) {
    // Watching the screen here would ask the user to share it: a plain pause has to do.
    clock_.wait(std::min(kSettleQuiet, left));
    return;
  }
  try {
    waitForStillScreen(kSettleQuiet, enter, clock_.after(left), kSettlePoll);
  } catch (const CancellationError&) {
    throw;
  } catch (const std::exception& error) {
    // Settling is a courtesy to the typed line; a screen that cannot be watched does not fail it.
    logLine(std::string("BrimbleCore: could not watch the screen settle: ") + error.what());
  }
}

void ScriptEngine::key(const KeyInstruction& key, int line) {
  const std::string written = text(key.keyChord, line);
  const KeyChord chord = InputSimulator::parseKeyChord(written);
  if (!services_.input.pressKey(chord.key, chord.modifiers)) {
    throw ScriptError::runtimeError(line, "Unknown key '" + chord.key + "' in '" + written + "'");
  }
}

void ScriptEngine::autoPace() {
  if (context_.boolSetting("auto-pace", false)) {
    clock_.wait(context_.doubleSetting("auto-pace-delay", 0.8));
  }
}

void ScriptEngine::waitForIdle(double seconds, int line) {
  if (!waitForStillScreen(seconds, clock_.now(), clock_.after(seconds + kIdleGiveUpAfter),
                          kIdlePoll)) {
    logLine(fmt::format("Warning: line {}: the screen kept changing for {} s; going on", line,
                        formatScriptNumber(seconds + kIdleGiveUpAfter)));
  }
}

bool ScriptEngine::waitForStillScreen(double quiet, Clock::TimePoint since, Clock::TimePoint giveUp,
                                      double poll) {
  const Clock::TimePoint start = clock_.now();
  // While a segment records, its recorder knows when the picture last changed; otherwise the
  // window being driven (or the first display) is looked at here, from now on.
  std::unique_ptr<ScreenStream> stream;
  std::optional<Image> last;
  Clock::TimePoint lastChange = start;
  if (!segments_.recording()) {
    const std::optional<TargetWindow>& window = targets_.targetWindow();
    CaptureTarget target;
    if (window && services_.screen.window(window->id)) {
      target = CaptureTarget::windowOf(window->id);
    } else {
      const auto displays = services_.screen.displays();
      if (displays.empty()) {
        return true;
      }
      target = CaptureTarget::screenAreaOf(displays.front().frame);
    }
    stream = services_.screen.openStream(target, false);
  }
  while (!shouldStop()) {
    const Clock::TimePoint now = clock_.now();
    if (segments_.recording()) {
      lastChange = std::max(segments_.lastChangeTime(), std::min(since, now));
    } else if (auto picture = stream->grab()) {
      if (!last || !samePicture(*last, *picture)) {
        lastChange = now;
      }
      last = std::move(picture);
    }
    if (ScriptClock::secondsBetween(lastChange, now) >= quiet) {
      return true;
    }
    if (now >= giveUp) {
      return false;
    }
    clock_.sleep(poll);
  }
  return true;
}

void ScriptEngine::screenshot(const ScreenshotInstruction& screenshot, int line) {
  const std::filesystem::path file = text(screenshot.path, line);
  checkScreenshotFile(file, line);
  // What the viewer would see now: the segment being recorded, else the window the script
  // drives, else the first display.
  std::optional<CaptureTarget> target = segments_.recordingTarget();
  if (!target) {
    const std::optional<TargetWindow>& window = targets_.targetWindow();
    if (window && services_.screen.window(window->id)) {
      target = CaptureTarget::windowOf(window->id);
    } else {
      const auto displays = services_.screen.displays();
      if (displays.empty()) {
        throw ScriptError::runtimeError(line, services_.texts.screenRecordingRequired);
      }
      target = CaptureTarget::screenAreaOf(displays.front().frame);
    }
  }
  const bool showCursor = context_.boolSetting("show-cursor", true);
  const std::optional<Image> picture = services_.screen.openStream(*target, showCursor)->grab();
  if (!picture) {
    throw ScriptError::runtimeError(line, "screenshot: the screen gave no picture");
  }
  const std::vector<std::uint8_t> png = encodePNG(*picture);
  writeFileAtomically(file, std::string_view(reinterpret_cast<const char*>(png.data()), png.size()),
                      0644);
  options_.progress(
      fmt::format("     {}x{} written to {}", picture->width(), picture->height(), file.string()));
}

// --- Elements and the browser --------------------------------------------------------------

void ScriptEngine::clickTarget(const ClickTargetInstruction& click, int line) {
  const ScreenRect rect = targets_.elementRect(text(click.target, line), line);
  const int x = rect.x + rect.width / 2;
  const int y = rect.y + rect.height / 2;
  // The pointer travels there and clicks, as a person would, so the recording shows it.
  services_.input.smoothMove(x, y, kDefaultMoveDuration);
  services_.input.click(x, y, click.right ? MouseButton::right : MouseButton::left);
}

void ScriptEngine::fill(const FillInstruction& fill, int line) {
  const std::string target = text(fill.target, line);
  const std::string value = text(fill.text, line);
  ElementDriver& driver = targets_.elementDriver(line);
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
  ElementDriver& driver = targets_.elementDriver(line);
  const Clock::TimePoint giveUp = clock_.after(timeout);
  while (!shouldStop()) {
    if (driver.find(target)) {
      return;
    }
    if (clock_.now() >= giveUp) {
      throw DemoDriverError::elementNotFound(target + " (waited " + formatScriptNumber(timeout) +
                                             " s)");
    }
    clock_.sleep(kElementPoll);
  }
}

void ScriptEngine::navigate(const NavigateInstruction& navigate, int line) {
  if (targets_.browserSession() == nullptr) {
    throw ScriptError::runtimeError(line, "navigate requires a Chrome (browser) session");
  }
  const std::string url = targets_.pageAddress(text(navigate.url, line), line);
  DemoEvent event = demoEvent(DemoEvent::Kind::navigate);
  event.url = url;
  segments_.addDemoEvent(std::move(event), "", line);
  if (navigate.showTyping) {
    segments_.showChromeTyping();
  }
  targets_.navigate(url);
}

void ScriptEngine::caption(const CaptionInstruction& caption, int line) {
  Caption placed;
  placed.text = text(caption.text, line);
  if (caption.duration) {
    const double seconds = number(*caption.duration, line);
    if (!(seconds > 0)) {
      throw ScriptError::runtimeError(line, "caption duration must be more than 0 seconds, not " +
                                                formatScriptNumber(seconds));
    }
    placed.duration = seconds;
  }
  placed.position = caption.top ? Caption::Position::top : Caption::Position::bottom;
  segments_.addCaption(std::move(placed));
}

void ScriptEngine::highlight(const HighlightInstruction& highlight, int line) {
  const ScreenRect rect = targets_.elementRect(text(highlight.target, line), line);
  static constexpr const char* kStyles[] = {"outline", "glow", "box"};
  DemoEvent event = demoEvent(DemoEvent::Kind::highlight, number(highlight.duration, line));
  event.rect = rect;
  event.style = kStyles[static_cast<int>(highlight.style)];
  segments_.addDemoEvent(std::move(event), "highlight", line);
}

void ScriptEngine::zoom(const ZoomInstruction& zoom, int line) {
  const std::string target = text(zoom.target, line);
  const double scale = number(zoom.scale, line);
  const ZoomMode mode =
      zoom.mode.value_or(targets_.drivesPage() ? ZoomMode::page : ZoomMode::digital);
  if (mode == ZoomMode::page) {
    targets_.zoomPage(scale, target, number(zoom.duration, line), line);
    return;
  }
  DemoEvent event = demoEvent(DemoEvent::Kind::zoom, number(zoom.duration, line));
  event.rect = targets_.elementRect(target, line);
  event.scale = scale;
  segments_.addDemoEvent(std::move(event), "zoom", line);
}

void ScriptEngine::zoomOut(const ZoomOutInstruction& zoomOut, int line) {
  if (targets_.resetPageZoom(number(zoomOut.duration, line))) {
    return;
  }
  segments_.addDemoEvent(demoEvent(DemoEvent::Kind::zoomOut, number(zoomOut.duration, line)),
                         "zoom-out", line);
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
  segments_.addEffect(std::move(annotation), shift ? "spotlight-shift" : "spotlight", line);
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

void ScriptEngine::setBackground(const SetBackgroundInstruction& background, int line) {
  const std::string colour = text(background.color, line);
  const auto hex = hexColour(colour);
  if (!hex) {
    throw ScriptError::invalidValue(line, colour, "set-background",
                                    "expected a hex colour such as #1a1a2e");
  }
  segments_.setBackground(*hex);
}

}  // namespace brimble
