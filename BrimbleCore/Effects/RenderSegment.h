#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "BrimbleCore/Capture/RecordedSegment.h"
#include "BrimbleCore/Capture/ScreenRect.h"

namespace brimble {

/// A spotlight placed by a script: everything outside `rect` is dimmed from `startTime` for
/// `duration` seconds; a shift moves the light there from where the previous one stood.
struct EffectAnnotation {
  enum class Kind { spotlight, spotlightShift };

  Kind kind = Kind::spotlight;
  /// Seconds from the start of the segment.
  double startTime = 0;
  double duration = 0;
  /// Screen coordinates. Empty when the light falls on `text` instead.
  ScreenRect rect;
  /// A line of command output (`spotlight stdout $v[N]`) to find on the frames at `startTime`:
  /// the light falls on the line of the recording that shows it. Empty for a rectangle.
  std::string text;
};

/// Something else a script did during a segment that the render shows: `clear-fx`, `highlight`,
/// `zoom`, `zoom-out`, and a browser's `navigate ... show-typing`.
struct DemoEvent {
  enum class Kind { clearEffects, highlight, zoom, zoomOut, navigate };

  Kind kind = Kind::clearEffects;
  /// Seconds from the start of the segment.
  double time = 0;
  double duration = 0;
  /// Screen coordinates of the element (highlight, zoom).
  ScreenRect rect;
  /// zoom: the magnification.
  double scale = 1;
  /// highlight: "outline", "glow" or "box".
  std::string style;
  /// navigate: the address typed into the browser's bar.
  std::string url;
};

/// A subtitle a script burns into the frames: `text` from `time` (seconds from the start of the
/// segment) for `duration` seconds, or, without one, until the next caption in the same place
/// or the end of the segment. An empty text only ends the caption before it.
struct Caption {
  enum class Position { bottom, top };

  double time = 0;
  std::optional<double> duration;
  std::string text;
  Position position = Position::bottom;
};

/// A recorded segment as the render takes it: what the recorder captured, and what the script
/// placed on it while it ran, so that the recorders hand over only what they captured.
/// Move-only.
struct RenderSegment : RecordedSegment {
  RenderSegment() = default;
  explicit RenderSegment(RecordedSegment recorded) : RecordedSegment(std::move(recorded)) {}

  std::vector<EffectAnnotation> effects;
  std::vector<DemoEvent> demoEvents;
  std::vector<Caption> captions;
  /// The segment shows a browser page: the render can draw a browser's frame around it.
  bool isBrowserContent = false;
  /// Browser segments: the page's address, and whether a `navigate ... show-typing` typed it.
  std::string chromeURL;
  bool chromeTyping = false;
  /// The window manager's frame comes off this segment whatever the settings say: a browser
  /// segment has the address bar the render draws, and a title bar above it would be a second
  /// frame.
  bool cutsWindowFrame = false;
};

}  // namespace brimble
