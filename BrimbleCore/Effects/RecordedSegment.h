#pragma once

#include <memory>
#include <string>
#include <vector>

#include "BrimbleCore/Automation/EventCapture.h"
#include "BrimbleCore/Capture/CursorImage.h"
#include "BrimbleCore/Capture/ScreenRect.h"
#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Encoding/AudioTrack.h"
#include "BrimbleCore/Encoding/CompressedFrameStore.h"

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

/// Where the pointer was at `time` (seconds from the segment's start), in screen coordinates,
/// and which of the segment's cursor pictures it showed (-1: none known).
struct PointerSample {
  double time = 0;
  ScreenPoint position;
  int cursor = -1;
};

/// One finished `record` of a script (or one recording of an assistant): its frames, what
/// happened while it ran, and where it was on screen. Move-only: it owns its frame store.
struct RecordedSegment {
  /// The JPEG frames, in capture order; their file lives as long as the store.
  std::unique_ptr<CompressedFrameStore> frames;
  /// Capture time of each frame in seconds from the segment's start; empty when the frames are
  /// 1/fps apart.
  std::vector<double> frameTimes;
  /// Keyboard and pointer input, timestamped from the segment's start.
  std::vector<InputEvent> events;
  std::vector<EffectAnnotation> effects;
  std::vector<DemoEvent> demoEvents;
  int fps = 30;
  /// The recorded area on screen (a window's content, or a region) at the start.
  ScreenRect windowFrame;
  /// Frame pixels per screen pixel: below 1 when the recorder scaled a wide capture down.
  double scaleFactor = 1;
  bool isRegionCapture = false;
  bool isBrowserContent = false;
  bool isDeviceCapture = false;
  /// Browser segments: the page's address, and whether a `navigate ... show-typing` typed it.
  std::string chromeURL;
  bool chromeTyping = false;
  /// Display time of each frame when the recorder measured it; empty otherwise.
  std::vector<double> frameDelays;
  /// How long the segment ran, in seconds.
  double duration = 0;
  /// Whether the frames show the pointer. When they do not, the render draws it from
  /// `pointerTrack` (smoothed, or not at all, as the settings say).
  bool framesShowCursor = true;
  /// The pointer over time, ascending in time; empty when it was not followed.
  std::vector<PointerSample> pointerTrack;
  /// The pictures `pointerTrack` refers to.
  std::vector<CursorImage> cursorImages;
  /// The window manager's decorations that the frames include at the edges of `windowFrame`
  /// (which then is the whole decorated window); all 0 when the frames show content only.
  FrameExtents frameExtents;
  /// Sound recorded with the segment, timed from its start (where `frameTimes` count from);
  /// `soundFile` owns its file.
  std::optional<AudioTrack> sound;
  std::shared_ptr<const void> soundFile;
};

}  // namespace brimble
