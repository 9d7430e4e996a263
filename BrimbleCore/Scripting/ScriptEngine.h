#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "BrimbleCore/Automation/BrowserSession.h"
#include "BrimbleCore/Automation/InputSimulator.h"
#include "BrimbleCore/Automation/WindowManager.h"
#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Capture/SegmentRecorder.h"
#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/RenderSettings.h"
#include "BrimbleCore/Encoding/GIFEncoder.h"
#include "BrimbleCore/Platform/PlatformTexts.h"
#include "BrimbleCore/Scripting/ParsedScript.h"
#include "BrimbleCore/Scripting/ProcessRunner.h"
#include "BrimbleCore/Scripting/ScriptContext.h"
#include "BrimbleCore/Scripting/ScriptInstruction.h"
#include "BrimbleCore/Scripting/ScriptProfiler.h"
#include "BrimbleCore/Scripting/ShellCommand.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// What a script drives, borrowed from the engine's owner, which keeps them alive while it
/// runs.
struct ScriptServices {
  /// The screen: whether it can be captured, and its picture for `wait-for-idle`.
  ScreenSource& screen;
  InputSimulator& input;
  WindowManager& windows;
  ProcessRunner& processes;
  Clock& clock;
  /// How the platform words what it cannot do (no screen to record, say).
  const PlatformTexts& texts;
  /// Makes the recorder of each segment.
  std::function<std::unique_ptr<SegmentRecorder>()> makeRecorder;
  /// Starts browser sessions for `browser chrome`; null when there is no browser to drive.
  BrowserLauncher* browsers = nullptr;
};

/// How a script runs.
struct ScriptOptions {
  /// No progress lines (warnings still go to the log).
  bool quiet = false;
  /// A quick, small render: 10 fps, at most 400 pixels wide.
  bool preview = false;
  /// Replaces the script's `output` setting.
  std::optional<std::filesystem::path> output{};
  /// The script's folder: a page named by a relative path is looked for there when it is not
  /// in the working directory.
  std::filesystem::path scriptDirectory{};
  /// Receives progress lines; empty: none.
  ScriptOutput print{};
  /// The encoder's progress.
  EncodeProgress renderProgress{};
  /// An interrupt: the script stops before its next instruction (a blocking `record` ends at
  /// once) and renders what it recorded.
  std::stop_token interrupt{};
  /// Abandons the render: nothing is written (CancellationError).
  std::stop_token abandon{};
};

/// What a finished script produced.
struct ScriptOutcome {
  std::filesystem::path output;
  EncodeSummary summary;
  int segments = 0;
  /// Seconds of screen the segments recorded.
  double recordedSeconds = 0;
  /// The script stopped early for an interrupt; what it had recorded was rendered.
  bool interrupted = false;
};

/// Runs `.brim` demo scripts: parses them, runs their instructions one after another against the
/// desktop (windows, input, shell commands, browser pages), records segments of it and renders
/// them into one animation. Between instructions it holds the state of the script: no segment,
/// a blocking segment (inside a `record` without `continue`), a running `continue` segment, or
/// rendered. One script per engine; one thread at a time (interrupts come through the options'
/// stop tokens).
class ScriptEngine {
 public:
  ScriptEngine(ScriptServices services, ScriptOptions options);
  ScriptEngine(const ScriptEngine&) = delete;
  ScriptEngine& operator=(const ScriptEngine&) = delete;
  /// Stops a running segment and deletes its frames, and ends the browsers it started.
  ~ScriptEngine();

  /// Runs a script that `validate` parsed to its end: every instruction, then the end of the
  /// script (a running segment is stopped; without an explicit `render` the segments are
  /// rendered now, or the script fails with "No segments recorded"; with `cleanup` on, the
  /// windows, browsers and background commands it started are ended). Throws ScriptError, the
  /// failing line's error as "Line N: ..." (after the same clean-up); CancellationError when the
  /// render was abandoned.
  ScriptOutcome execute(const ParsedScript& script);
  /// Parses `source` (through `validate`, whose warnings it leaves to its caller) and runs it as
  /// above; a parse error is thrown as it stands.
  ScriptOutcome execute(std::string_view source);

  /// Runs one instruction. Throws ScriptError "Line N: ...".
  void executeInstruction(const LocatedInstruction& instruction);

  /// Whether an interrupt asked the script to stop.
  bool shouldStop() const { return options_.interrupt.stop_requested(); }
  bool renderCalled() const noexcept { return renderCalled_; }
  ScriptContext& context() noexcept { return context_; }
  const ScriptProfiler& profiler() const noexcept { return profiler_; }
  /// The segments recorded so far.
  const std::vector<RenderSegment>& segments() const noexcept { return segments_; }

 private:
  /// The window element commands and dialogs act on by default.
  struct TargetWindow {
    std::uint32_t id = 0;
    std::string appName;
    int pid = 0;
  };

  void run(const std::vector<LocatedInstruction>& instructions);
  void dispatch(const ScriptInstruction& instruction, int line);
  void finish();
  void cleanup();

  // Settings and windows.
  void setSetting(const SetInstruction& set, int line);
  void open(const OpenInstruction& open, int line);
  /// Asks `find` until it finds a window, for up to 10 seconds.
  std::optional<WindowInfo> waitForWindow(const std::function<std::optional<WindowInfo>()>& find);
  std::string windowLabel(std::uint32_t id) const;
  void captureWindow(const CaptureWindowInstruction& capture, int line);
  void target(const TargetInstruction& target, int line);
  void resize(const ResizeInstruction& resize, int line);
  void clear();
  void dialog(std::optional<std::string> app, std::optional<std::string> button);

  // Recording.
  void record(const RecordInstruction& record, int line);
  void waitWhileRecording(double seconds);
  void remain(int line);
  void endSegment();
  std::filesystem::path outputPath() const;
  void render(int line);
  double segmentTime() const;
  void checkRecordingPermissions(int line);

  // Input and waits.
  void type(const TypeInstruction& type, int line);
  void key(const KeyInstruction& key, int line);
  void wait(double seconds);
  void waitForIdle(double seconds, int line);
  void autoPace();

  // Elements and the browser.
  ElementDriver& elementDriver(int line);
  ScreenRect elementRect(const std::string& target, int line);
  void clickTarget(const ClickTargetInstruction& click, int line);
  void fill(const FillInstruction& fill, int line);
  void waitFor(const WaitForInstruction& waitFor, int line);
  void browser(const BrowserInstruction& browser, int line);
  void navigate(const NavigateInstruction& navigate, int line);
  void zoom(const ZoomInstruction& zoom, int line);
  void zoomOut(const ZoomOutInstruction& zoomOut, int line);

  // Effects.
  void spotlight(const SpotlightTarget& target, const ScriptValue& duration, bool shift, int line);
  /// Adds `event` at the segment's current time; outside a recording it is dropped with a
  /// warning naming `command` (none when `command` is empty).
  void addDemoEvent(DemoEvent event, std::string_view command, int line);
  TitleCard titleCard(const ScriptValue& title, const std::optional<ScriptValue>& subtitle,
                      const std::optional<ScriptValue>& duration, int line) const;

  std::string text(const ScriptValue& value, int line) const {
    return context_.resolve(value, line);
  }
  double number(const ScriptValue& value, int line) const {
    return context_.resolveDouble(value, line);
  }
  int whole(const ScriptValue& value, int line) const;
  std::uint32_t windowVariable(const std::string& name, int line) const;
  void print(const std::string& line) const;
  void sleep(double seconds);

  ScriptServices services_;
  ScriptOptions options_;
  ScriptContext context_;
  ScriptProfiler profiler_;

  std::optional<TargetWindow> targetWindow_;
  std::optional<TargetWindow> capturedWindow_;  // the last capture-window or target
  std::unique_ptr<ElementDriver> nativeDriver_;
  int nativeDriverPID_ = 0;
  std::unique_ptr<BrowserSession> browser_;
  std::uint32_t browserWindowID_ = 0;
  std::string browserURL_;
  /// Element targets go to the browser's page rather than the native application.
  bool activeDriverIsBrowser_ = false;
  bool pageZoomed_ = false;
  bool checkedPermissions_ = false;
  /// The script drives native applications by element (warned about without accessibility).
  bool elementScript_ = false;

  // The segment being recorded.
  std::unique_ptr<SegmentRecorder> activeRecorder_;
  Clock::TimePoint recordingStartTime_;
  std::optional<double> segmentTargetDuration_;
  std::optional<std::uint32_t> activeWindow_;
  std::vector<EffectAnnotation> segmentEffects_;
  std::vector<DemoEvent> segmentDemoEffects_;
  bool segmentChromeTyping_ = false;
  std::string segmentURL_;

  std::vector<RenderSegment> segments_;
  RenderSettings renderAdditions_;  // title cards and background set by instructions
  bool renderCalled_ = false;
  std::optional<ScriptOutcome> outcome_;
};

}  // namespace brimble
