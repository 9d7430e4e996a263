#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Scripting/ParsedScript.h"
#include "BrimbleCore/Scripting/ScriptClock.h"
#include "BrimbleCore/Scripting/ScriptContext.h"
#include "BrimbleCore/Scripting/ScriptInstruction.h"
#include "BrimbleCore/Scripting/ScriptOptions.h"
#include "BrimbleCore/Scripting/ScriptProfiler.h"
#include "BrimbleCore/Scripting/ScriptSegments.h"
#include "BrimbleCore/Scripting/ScriptServices.h"
#include "BrimbleCore/Scripting/ScriptTargets.h"

namespace brimble {

/// Runs `.brim` demo scripts: runs their instructions one after another against the desktop
/// (windows, input, shell commands, browser pages), records segments of it and renders them into
/// one animation. The engine keeps the loop, the dispatch of each instruction and the "Line N: "
/// errors; what the script drives is kept by its ScriptTargets and what it records by its
/// ScriptSegments. Between instructions the script has no segment, a blocking segment (inside
/// a `record` without `continue`), a running `continue` segment, or is rendered. One script per
/// engine; one thread at a time (interrupts come through the options' stop tokens).
class ScriptEngine {
 public:
  ScriptEngine(ScriptServices services, ScriptOptions options);
  ScriptEngine(const ScriptEngine&) = delete;
  ScriptEngine& operator=(const ScriptEngine&) = delete;
  /// Stops a running segment and deletes its frames, and ends the browsers it started.
  ~ScriptEngine() = default;

  /// Runs a script that `validate` parsed to its end: every instruction, then the end of the
  /// script (a running segment is stopped; without an explicit `render` the segments are
  /// rendered now, or the script fails with "No segments recorded"; with `cleanup` on, the
  /// windows, browsers and background commands it started are ended). Throws ScriptError, the
  /// failing line's error as "Line N: ..." (after the same clean-up, and after what was recorded
  /// is rendered into a file of its own: `keptPartial`); CancellationError when the render was
  /// abandoned, and then nothing is written.
  ScriptOutcome execute(const ParsedScript& script);
  /// Parses `source` (through `validate`, whose warnings it leaves to its caller) and runs it as
  /// above; a parse error is thrown as it stands.
  ScriptOutcome execute(std::string_view source);

  /// Runs one instruction. Throws ScriptError "Line N: ...".
  void executeInstruction(const LocatedInstruction& instruction);

  /// Whether an interrupt asked the script to stop.
  bool shouldStop() const { return clock_.shouldStop(); }
  bool renderCalled() const noexcept { return renderCalled_; }
  ScriptContext& context() noexcept { return context_; }
  const ScriptProfiler& profiler() const noexcept { return profiler_; }
  /// The segments recorded so far.
  const std::vector<RenderSegment>& segments() const noexcept { return segments_.segments(); }
  /// After `execute` failed: the partial file that keeps what the script had recorded, if it
  /// had recorded anything and the file could be written.
  const std::optional<ScriptOutcome>& keptPartial() const noexcept { return partial_; }

 private:
  void run(const std::vector<LocatedInstruction>& instructions);
  void dispatch(const ScriptInstruction& instruction, int line);
  void finish();
  void cleanup();
  void keepPartial();

  // Settings and windows.
  void setSetting(const SetInstruction& set, int line);
  /// `env`: a later `env` of the same name replaces the value.
  void setEnvironment(const std::string& name, const std::string& value);
  void resize(const ResizeInstruction& resize, int line);
  void clear();
  void dialog(std::optional<std::string> app, std::optional<std::string> button);

  // Input and waits.
  void type(const TypeInstruction& type, int line);
  /// Before a line typed after Enter: waits (boundedly) for the screen to hold still.
  void settleAfterEnter(Clock::TimePoint enter);
  void key(const KeyInstruction& key, int line);
  void autoPace();
  void waitForIdle(double seconds, int line);
  void screenshot(const ScreenshotInstruction& screenshot, int line);
  /// Waits until the picture has held still for `quiet` seconds (while recording, counted from
  /// `since` at the earliest), looking every `poll` seconds; false when `giveUp` came first.
  bool waitForStillScreen(double quiet, Clock::TimePoint since, Clock::TimePoint giveUp,
                          double poll);

  // Elements and the browser.
  void clickTarget(const ClickTargetInstruction& click, int line);
  void fill(const FillInstruction& fill, int line);
  void waitFor(const WaitForInstruction& waitFor, int line);
  void navigate(const NavigateInstruction& navigate, int line);
  void highlight(const HighlightInstruction& highlight, int line);
  void zoom(const ZoomInstruction& zoom, int line);
  void zoomOut(const ZoomOutInstruction& zoomOut, int line);

  // Effects.
  void spotlight(const SpotlightTarget& target, const ScriptValue& duration, bool shift, int line);
  TitleCard titleCard(const ScriptValue& title, const std::optional<ScriptValue>& subtitle,
                      const std::optional<ScriptValue>& duration, int line) const;
  void setBackground(const SetBackgroundInstruction& background, int line);
  void caption(const CaptionInstruction& caption, int line);

  std::string text(const ScriptValue& value, int line) const {
    return context_.resolve(value, line);
  }
  double number(const ScriptValue& value, int line) const {
    return context_.resolveDouble(value, line);
  }
  int whole(const ScriptValue& value, int line) const { return context_.resolveInt(value, line); }

  ScriptServices services_;
  ScriptOptions options_;
  ScriptContext context_;
  ScriptProfiler profiler_;
  ScriptClock clock_;
  ScriptTargets targets_;
  // After the targets: a segment that is still recording stops before the browser it shows ends.
  ScriptSegments segments_;

  bool renderCalled_ = false;
  /// When the last `type` pressed Enter at its end; reset by one that did not.
  std::optional<Clock::TimePoint> lineEndedAt_;
  std::optional<ScriptOutcome> outcome_;
  std::optional<ScriptOutcome> partial_;
  /// "NAME=value" of each `env` line run so far.
  std::vector<std::string> environment_;
};

}  // namespace brimble
