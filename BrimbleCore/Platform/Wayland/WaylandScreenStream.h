#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Platform/Wayland/PipeWireStream.h"
#include "BrimbleCore/Platform/Wayland/ScreenCastShare.h"

namespace brimble::wayland {

/// Frames of an area of one shared monitor, or of one shared window, from the PipeWire stream of
/// that monitor or window.
///
/// The compositor sends a picture only when the screen changes, so `grab` repeats the last one
/// until another comes; only opening the stream waits for the first, for a bounded time. The
/// pointer comes as metadata beside the pictures, so it is drawn in here when the stream was opened
/// with the cursor on, and `pointer` tells where it is and what it looks like. A window's frames
/// are its whole picture at the size the window has now, and its pointer is in the window's own
/// coordinates: the desktop does not say where the window is.
///
/// Belongs to the thread that opened it; its pictures arrive on PipeWire's own thread.
class WaylandScreenStream final : public ScreenStream {
 public:
  /// Connects to the stream of `display` (one of `share`'s monitors) for `area`, in screen
  /// coordinates inside the display, and waits up to `firstFrameTimeout` for its first picture.
  /// Throws ScreenCaptureError::displayUnreachable, displayLost when the stream ended at once,
  /// and PortalError.
  WaylandScreenStream(std::shared_ptr<ScreenCastShare> share, const ScreenDisplay& display,
                      const ScreenRect& area, bool showCursor,
                      std::chrono::milliseconds firstFrameTimeout);
  /// Connects to the window stream `nodeID` of `share`, which records window `windowID`, and
  /// waits as above. Throws ScreenCaptureError::displayUnreachable, windowClosed when the stream
  /// ended at once, and PortalError.
  WaylandScreenStream(std::shared_ptr<ScreenCastShare> share, std::uint32_t nodeID,
                      std::uint32_t windowID, bool showCursor,
                      std::chrono::milliseconds firstFrameTimeout);
  WaylandScreenStream(const WaylandScreenStream&) = delete;
  WaylandScreenStream& operator=(const WaylandScreenStream&) = delete;
  ~WaylandScreenStream() override;

  /// The area as it is now, or as it was last shown when nothing has changed since. No value
  /// while the compositor has sent no picture yet. Throws ScreenCaptureError::displayLost once
  /// the stream has ended (the compositor or PipeWire went away, or the user stopped sharing);
  /// windowClosed when a window's has.
  std::optional<Image> grab() override;
  /// From the cursor metadata; no value when the session has none, or before it told anything.
  std::optional<PointerState> pointer() override;

 private:
  /// Throws displayLost (windowClosed for a window) when the stream has ended, and marks the
  /// session as ended.
  void checkStillStreaming();
  /// `pointer` (in the picture's pixels) in screen coordinates, which the share also keeps as
  /// the last known position; in the window's own for a window.
  PointerState onScreen(const PipeWireStream::Pointer& pointer);

  const std::shared_ptr<ScreenCastShare> share_;
  const std::uint32_t nodeID_;
  // The monitor and the area of it; no value for a window, whose picture is taken whole.
  const std::optional<ScreenDisplay> display_;
  const ScreenRect area_;  // from the display's top-left corner, in its logical coordinates
  const std::uint32_t windowID_ = 0;
  const bool showCursor_;
  const std::shared_ptr<PipeWireStream> stream_;

  // The last picture, repeated until another comes, and the same with the pointer drawn in.
  std::optional<PipeWireStream::Frame> frame_;
  Image composed_;
  std::uint64_t composedSequence_ = 0;
  std::uint64_t composedSerial_ = 0;
  std::pair<int, int> composedAt_;
};

}  // namespace brimble::wayland
