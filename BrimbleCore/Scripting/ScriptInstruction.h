#pragma once

#include <optional>
#include <string>
#include <variant>

#include "BrimbleCore/Automation/InputSimulator.h"
#include "BrimbleCore/Scripting/ScriptValue.h"

namespace brimble {

// The instruction set of `.brim` scripts: one struct per command, with the arguments its grammar
// names. Numeric arguments stay ScriptValues so that variables can supply them; the engine
// resolves them when the instruction runs. Plain values: copy them freely between threads.

/// A rectangle in screen points (or device pixels for the simulator).
struct ScriptRect {
  ScriptValue x;
  ScriptValue y;
  ScriptValue width;
  ScriptValue height;

  bool operator==(const ScriptRect& other) const = default;
};

/// The window `capture-window` looks for: by application name or by window number.
struct WindowReference {
  enum class Kind { appName, windowID };
  Kind kind = Kind::appName;
  ScriptValue value;

  bool operator==(const WindowReference& other) const = default;
};

/// What a `record` captures.
struct RecordTarget {
  enum class Kind { window, region, windowCrop, simulator };
  Kind kind = Kind::window;
  /// The window variable's name (`window`, `windowCrop`).
  std::string variable;
  /// The captured rectangle (`region`: on screen; `windowCrop`: inside the window).
  std::optional<ScriptRect> rect;

  bool operator==(const RecordTarget& other) const = default;
};

/// Where a spotlight points: one line of a captured command output, or a screen region.
struct SpotlightTarget {
  enum class Kind { stdout, region };
  Kind kind = Kind::stdout;
  /// `stdout`: the variable holding the output, and the line's index in it.
  std::string variable;
  int lineIndex = 0;
  /// `region`: the rectangle.
  std::optional<ScriptRect> rect;

  bool operator==(const SpotlightTarget& other) const = default;
};

enum class HighlightStyle { outline, glow, box };
enum class ZoomMode { digital, page };
enum class BrowserEngine { chrome, safari };

inline constexpr double kDefaultMoveDuration = 0.3;
inline constexpr double kDefaultScrollTicks = 3;
inline constexpr double kDefaultSpotlightDuration = 2.0;
inline constexpr double kDefaultWaitForTimeout = 10;
inline constexpr double kDefaultWaitForTextTimeout = 15;
inline constexpr double kDefaultHighlightDuration = 2.0;
inline constexpr double kDefaultZoomScale = 2.0;
inline constexpr double kDefaultZoomDuration = 0.6;
inline constexpr double kDefaultZoomOutDuration = 0.5;

/// `set <name> <value>`: the name lower-cased, the value as written.
struct SetInstruction {
  std::string name;
  ScriptValue value;
  /// `set output "demo.gif" "demo.mp4"`: the outputs after the first (only `output` takes more).
  std::vector<ScriptValue> moreValues{};
  bool operator==(const SetInstruction& other) const = default;
};

/// `open <app>`.
struct OpenInstruction {
  ScriptValue app;
  bool operator==(const OpenInstruction& other) const = default;
};

/// `focus <app>`.
struct FocusInstruction {
  ScriptValue app;
  bool operator==(const FocusInstruction& other) const = default;
};

/// `capture-window app <name> [as $v]` or `capture-window id <windowID> [as $v]`, the id in
/// decimal or 0x-hexadecimal.
struct CaptureWindowInstruction {
  WindowReference window;
  std::optional<std::string> variable;
  bool operator==(const CaptureWindowInstruction& other) const = default;
};

/// `resize <width> <height>`.
struct ResizeInstruction {
  ScriptValue width;
  ScriptValue height;
  bool operator==(const ResizeInstruction& other) const = default;
};

/// `clear`: Ctrl+L to the target window.
struct ClearInstruction {
  bool operator==(const ClearInstruction& other) const = default;
};

/// `record <target> [duration <s>] [continue] [audio]`.
struct RecordInstruction {
  RecordTarget target;
  /// No value: the segment runs until `stop`, `remain`, the next `record` or `render`.
  std::optional<ScriptValue> duration;
  /// `continue`: the script goes on while the segment records.
  bool continues = false;
  /// `audio`: record sound with the segment (video output only).
  bool audio = false;
  bool operator==(const RecordInstruction& other) const = default;
};

/// `stop`.
struct StopInstruction {
  bool operator==(const StopInstruction& other) const = default;
};

/// `remain`.
struct RemainInstruction {
  bool operator==(const RemainInstruction& other) const = default;
};

/// `render`.
struct RenderInstruction {
  bool operator==(const RenderInstruction& other) const = default;
};

/// `type <text> [enter] [delay <s>]`.
struct TypeInstruction {
  ScriptValue text;
  bool enter = false;
  /// Seconds per character. No value: the `typing-delay` setting, 0.05 seconds unless set.
  std::optional<ScriptValue> delay;
  bool operator==(const TypeInstruction& other) const = default;
};

/// `click [<x> <y>] [right]`.
struct ClickInstruction {
  /// No value: where the cursor is.
  std::optional<ScriptValue> x;
  std::optional<ScriptValue> y;
  bool right = false;
  bool operator==(const ClickInstruction& other) const = default;
};

/// `click <target> [right]`, with an element target such as `text:Save`.
struct ClickTargetInstruction {
  ScriptValue target;
  bool right = false;
  bool operator==(const ClickTargetInstruction& other) const = default;
};

/// `tap <x> <y>` in device framebuffer pixels of the recorded simulator.
struct TapInstruction {
  ScriptValue x;
  ScriptValue y;
  bool operator==(const TapInstruction& other) const = default;
};

/// `move <x> <y> [duration <s>]`.
struct MoveInstruction {
  ScriptValue x;
  ScriptValue y;
  ScriptValue duration = ScriptValue::number(kDefaultMoveDuration);
  bool operator==(const MoveInstruction& other) const = default;
};

/// `cursor <x> <y>`: an instant jump.
struct CursorInstruction {
  ScriptValue x;
  ScriptValue y;
  bool operator==(const CursorInstruction& other) const = default;
};

/// `scroll <direction> [<ticks>]`.
struct ScrollInstruction {
  ScrollDirection direction = ScrollDirection::down;
  ScriptValue ticks = ScriptValue::number(kDefaultScrollTicks);
  bool operator==(const ScrollInstruction& other) const = default;
};

/// `key <keyspec>` such as `enter` or `cmd+c`.
struct KeyInstruction {
  ScriptValue keyChord;
  bool operator==(const KeyInstruction& other) const = default;
};

/// `wait <seconds>`.
struct WaitInstruction {
  ScriptValue seconds;
  bool operator==(const WaitInstruction& other) const = default;
};

/// `wait-for-idle <seconds>`.
struct WaitForIdleInstruction {
  ScriptValue seconds;
  bool operator==(const WaitForIdleInstruction& other) const = default;
};

/// `run <command> [as $v]`.
struct RunInstruction {
  ScriptValue command;
  std::optional<std::string> variable;
  bool operator==(const RunInstruction& other) const = default;
};

/// `spotlight stdout $v[N] | region <x> <y> <w> <h> [duration <s>]`.
struct SpotlightInstruction {
  SpotlightTarget target;
  ScriptValue duration = ScriptValue::number(kDefaultSpotlightDuration);
  bool operator==(const SpotlightInstruction& other) const = default;
};

/// `spotlight-shift`: the forms of `spotlight`, moving from the previous spotlight.
struct SpotlightShiftInstruction {
  SpotlightTarget target;
  ScriptValue duration = ScriptValue::number(kDefaultSpotlightDuration);
  bool operator==(const SpotlightShiftInstruction& other) const = default;
};

/// `clear-fx`.
struct ClearFxInstruction {
  bool operator==(const ClearFxInstruction& other) const = default;
};

/// `intro <title> [subtitle <sub>] [duration <s>]`. No duration: the title card's own default.
struct IntroInstruction {
  ScriptValue title;
  std::optional<ScriptValue> subtitle;
  std::optional<ScriptValue> duration;
  bool operator==(const IntroInstruction& other) const = default;
};

/// `outro`: the forms of `intro`, for the end of the GIF.
struct OutroInstruction {
  ScriptValue title;
  std::optional<ScriptValue> subtitle;
  std::optional<ScriptValue> duration;
  bool operator==(const OutroInstruction& other) const = default;
};

/// `dismiss-dialog` with `app <name>`, `button <label>` or both: at least one is set.
struct DismissDialogInstruction {
  std::optional<ScriptValue> app;
  std::optional<ScriptValue> button;
  bool operator==(const DismissDialogInstruction& other) const = default;
};

/// `click-button-in-dialog button <label> [app <name>]`.
struct ClickButtonInDialogInstruction {
  ScriptValue button;
  std::optional<ScriptValue> app;
  bool operator==(const ClickButtonInDialogInstruction& other) const = default;
};

/// `set-background color <hex colour>`; a colour written as digits keeps its leading zeros.
struct SetBackgroundInstruction {
  ScriptValue color;
  bool operator==(const SetBackgroundInstruction& other) const = default;
};

/// `target window "Match" [as $v]` or `target app "Name" [as $v]`.
struct TargetInstruction {
  enum class Kind { window, app };
  Kind kind = Kind::app;
  ScriptValue match;
  std::optional<std::string> variable;
  bool operator==(const TargetInstruction& other) const = default;
};

/// `fill <target> <text> [enter]`.
struct FillInstruction {
  ScriptValue target;
  ScriptValue text;
  bool enter = false;
  bool operator==(const FillInstruction& other) const = default;
};

/// `move-to <target>`.
struct MoveToInstruction {
  ScriptValue target;
  bool operator==(const MoveToInstruction& other) const = default;
};

/// `wait-for <target> [timeout <s>]`.
struct WaitForInstruction {
  ScriptValue target;
  ScriptValue timeout = ScriptValue::number(kDefaultWaitForTimeout);
  bool operator==(const WaitForInstruction& other) const = default;
};

/// `wait-for-text "REGEX" [timeout <s>] [in screen|line]`: until the text of the window being
/// recorded matches REGEX anywhere (`screen`) or in its last line that is not blank (`line`).
struct WaitForTextInstruction {
  ScriptValue pattern;
  ScriptValue timeout = ScriptValue::number(kDefaultWaitForTextTimeout);
  bool lastLine = false;
  bool operator==(const WaitForTextInstruction& other) const = default;
};

/// `browser <chrome|safari> "url" [as $v]`.
struct BrowserInstruction {
  BrowserEngine engine = BrowserEngine::chrome;
  ScriptValue url;
  std::optional<std::string> variable;
  bool operator==(const BrowserInstruction& other) const = default;
};

/// `navigate "url" [show-typing]`.
struct NavigateInstruction {
  ScriptValue url;
  bool showTyping = false;
  bool operator==(const NavigateInstruction& other) const = default;
};

/// `highlight <target> [duration <s>] [style outline|glow|box]`.
struct HighlightInstruction {
  ScriptValue target;
  ScriptValue duration = ScriptValue::number(kDefaultHighlightDuration);
  HighlightStyle style = HighlightStyle::outline;
  bool operator==(const HighlightInstruction& other) const = default;
};

/// `zoom <target> [scale <n>] [duration <s>] [mode digital|page]`.
struct ZoomInstruction {
  ScriptValue target;
  ScriptValue scale = ScriptValue::number(kDefaultZoomScale);
  ScriptValue duration = ScriptValue::number(kDefaultZoomDuration);
  /// No value: page zoom in a Chrome session, digital zoom otherwise.
  std::optional<ZoomMode> mode;
  bool operator==(const ZoomInstruction& other) const = default;
};

/// `zoom-out [duration <s>]`: back to scale 1.0.
struct ZoomOutInstruction {
  ScriptValue duration = ScriptValue::number(kDefaultZoomOutDuration);
  bool operator==(const ZoomOutInstruction& other) const = default;
};

/// `hide`: the lines after it run but record nothing until `show`.
struct HideInstruction {
  bool operator==(const HideInstruction& other) const = default;
};

/// `show`: recording resumes where `hide` left it, from the screen as it is now.
struct ShowInstruction {
  bool operator==(const ShowInstruction& other) const = default;
};

/// `require "program"`: the script needs `program` on PATH.
struct RequireInstruction {
  ScriptValue program;
  bool operator==(const RequireInstruction& other) const = default;
};

/// `env NAME "value"`: NAME=value in the environment of the shell commands that follow.
struct EnvInstruction {
  std::string name;
  ScriptValue value;
  bool operator==(const EnvInstruction& other) const = default;
};

/// `screenshot "file.png"`: the picture being recorded (or the target window, or the screen) now.
struct ScreenshotInstruction {
  ScriptValue path;
  bool operator==(const ScreenshotInstruction& other) const = default;
};

/// `output "demo.mp4"`: one more file (or, ending in "/", a folder of PNG frames) the render
/// writes; the first replaces the default output.
struct OutputInstruction {
  ScriptValue path;
  bool operator==(const OutputInstruction& other) const = default;
};

/// `include "other.brim"`: the other script's lines run here. Replaced by them when the script
/// is checked, so the engine never runs one.
struct IncludeInstruction {
  std::string file;
  bool operator==(const IncludeInstruction& other) const = default;
};

/// `caption "<text>" [duration <s>] [position top|bottom]`: a subtitle from this moment.
struct CaptionInstruction {
  ScriptValue text;
  std::optional<ScriptValue> duration;
  bool top = false;
  bool operator==(const CaptionInstruction& other) const = default;
};

/// `chapter "<name>"`: a named point in the output's timeline.
struct ChapterInstruction {
  ScriptValue title;
  bool operator==(const ChapterInstruction& other) const = default;
};

using ScriptInstruction = std::variant<
    SetInstruction, OpenInstruction, FocusInstruction, CaptureWindowInstruction, ResizeInstruction,
    ClearInstruction, RecordInstruction, StopInstruction, RemainInstruction, RenderInstruction,
    TypeInstruction, ClickInstruction, ClickTargetInstruction, TapInstruction, MoveInstruction,
    CursorInstruction, ScrollInstruction, KeyInstruction, WaitInstruction, WaitForIdleInstruction,
    RunInstruction, SpotlightInstruction, SpotlightShiftInstruction, ClearFxInstruction,
    IntroInstruction, OutroInstruction, DismissDialogInstruction, ClickButtonInDialogInstruction,
    SetBackgroundInstruction, TargetInstruction, FillInstruction, MoveToInstruction,
    WaitForInstruction, BrowserInstruction, NavigateInstruction, HighlightInstruction,
    ZoomInstruction, ZoomOutInstruction, HideInstruction, ShowInstruction, RequireInstruction,
    EnvInstruction, ScreenshotInstruction, IncludeInstruction, OutputInstruction,
    CaptionInstruction, ChapterInstruction, WaitForTextInstruction>;

/// One parsed line.
struct LocatedInstruction {
  ScriptInstruction instruction;
  /// The 1-based source line.
  int line = 0;
  /// The line's text after comment stripping and trimming.
  std::string source;
  /// The included script the line comes from, as its `include` named it; empty for the script
  /// itself.
  std::string file{};

  bool operator==(const LocatedInstruction& other) const = default;
};

}  // namespace brimble
