#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "Brimble/Recording/RecordingPhase.h"
#include "BrimbleCore/Capture/ScreenRect.h"
#include "BrimbleCore/Encoding/CompressedFrameStore.h"
#include "BrimbleCore/Support/Clock.h"

namespace brimble {

/// What one session records: a region (screen coordinates), the display under the pointer, or
/// a window by its X id.
struct RecordingTarget {
  CaptureMode mode = CaptureMode::region;
  ScreenRect region{};
  std::uint32_t windowID = 0;
};

/// The capture engine as the recording session sees it: the ScreenRecorder in the application,
/// a fake in the session's tests. Main thread only.
class SessionRecorder {
 public:
  virtual ~SessionRecorder() = default;

  /// Starts capturing `target`; throws (RecordingError, ScreenCaptureError) when it cannot.
  virtual void start(const RecordingTarget& target, int fps, bool showCursor) = 0;
  virtual void pause() = 0;
  virtual void resume() = 0;
  /// Stops and hands back everything written; nothing when nothing could be kept.
  virtual std::unique_ptr<CompressedFrameStore> stopAndCollectFrameStore() = 0;
  virtual bool isDiskCritical() const = 0;
  /// When the picture last changed.
  virtual Clock::TimePoint lastChangeTime() const = 0;
  virtual std::int64_t lostFrameCount() const = 0;
  /// When each frame of the collected store was grabbed, in recording time (seconds, pauses
  /// excluded); complete once `stopAndCollectFrameStore` has returned.
  virtual std::vector<double> frameTimes() const = 0;
  /// What every frame shows, in screen coordinates (scaled to the frame's size), when marks drawn
  /// on the screen do not reach the frames by themselves, so they are drawn into them: a
  /// window's own pixels never show the layer above it, and on Wayland the layer cannot stay
  /// above the other windows. No value where the frames show the marks already (a region or a
  /// display on X11).
  virtual std::optional<ScreenRect> markedArea() const = 0;
};

}  // namespace brimble
