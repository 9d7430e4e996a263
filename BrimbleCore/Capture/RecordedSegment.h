#pragma once

#include <memory>
#include <vector>

#include "BrimbleCore/Automation/EventCapture.h"
#include "BrimbleCore/Capture/CursorImage.h"
#include "BrimbleCore/Capture/ScreenRect.h"
#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Encoding/AudioTrack.h"
#include "BrimbleCore/Encoding/CompressedFrameStore.h"

namespace brimble {

/// Where the pointer was at `time` (seconds from the segment's start), in screen coordinates,
/// and which of the segment's cursor pictures it showed (-1: none known).
struct PointerSample {
  double time = 0;
  ScreenPoint position;
  int cursor = -1;
};

/// One finished recording of a segment (a script's `record`, an assistant's recording): its
/// frames, the input that happened while it ran, and where it was on screen. What a script
/// places on it for the render (spotlights, zooms) is kept beside it, in RenderSegment.
/// Move-only: it owns its frame store.
struct RecordedSegment {
  /// The JPEG frames, in capture order; their file lives as long as the store.
  std::unique_ptr<CompressedFrameStore> frames;
  /// Capture time of each frame in seconds from the segment's start; empty when the frames are
  /// 1/fps apart.
  std::vector<double> frameTimes;
  /// Keyboard and pointer input, timestamped from the segment's start.
  std::vector<InputEvent> events;
  int fps = 30;
  /// The recorded area on screen (a window's content, or a region) at the start.
  ScreenRect windowFrame;
  /// Frame pixels per screen pixel: below 1 when the recorder scaled a wide capture down.
  double scaleFactor = 1;
  bool isRegionCapture = false;
  bool isDeviceCapture = false;
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
