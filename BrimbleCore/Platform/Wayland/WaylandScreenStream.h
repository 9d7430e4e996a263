#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"
#include "BrimbleCore/Platform/Wayland/PipeWireStream.h"
#include "BrimbleCore/Platform/Wayland/ScreenCastSession.h"

namespace brimble::wayland {

/// One screen-cast session as its source and its streams share it: open while any of them holds
/// it, so a still and then a recording need the user's permission once. Thread-safe through the
/// locks below.
struct ScreenCastShare {
  /// Starts the session (the dialog, unless the token is honoured). Throws PortalError.
  ScreenCastShare(std::shared_ptr<DesktopPortal> desktopPortal,
                  const ScreenCastSession::Options& options)
      : portal(std::move(desktopPortal)), session(*portal, options) {}

  /// Declared before the session, which uses it until it closes.
  const std::shared_ptr<DesktopPortal> portal;

  std::mutex sessionMutex;  // guards the session, which is one thread at a time
  ScreenCastSession session;

  /// The connection to node `nodeID`'s video that the session's streams of that monitor share,
  /// made when none is open. Shared because the compositor sends a picture only when the screen
  /// changes: a second connection to the same node would see nothing of a still screen, while
  /// the first already holds the picture. Throws ScreenCaptureError::displayUnreachable.
  std::shared_ptr<PipeWireStream> connect(std::uint32_t nodeID);

  /// Keeps the pointer's picture that a connection to `nodeID` last saw, for the next one.
  void keepCursor(std::uint32_t nodeID, CursorImage cursor);

  /// A node's connection, shared while any stream uses it, and the pointer's picture it last saw.
  struct Connection {
    std::uint32_t nodeID = 0;
    std::weak_ptr<PipeWireStream> stream;
    CursorImage cursor;
  };
  std::mutex connectionsMutex;  // guards the field below
  std::vector<Connection> connections;

  /// Set once a stream of the session has ended: the next capture starts a new session.
  std::atomic<bool> ended = false;

  std::mutex pointerMutex;  // guards the field below
  /// Where a stream last saw the pointer, in screen coordinates.
  std::optional<std::pair<int, int>> lastPointer;
};

/// Frames of an area of one shared monitor, from the PipeWire stream of that monitor.
///
/// The compositor sends a picture only when the screen changes, so `grab` repeats the last one
/// until another comes; only opening the stream waits for the first, for a bounded time. The
/// pointer comes as metadata beside the pictures, so it is drawn in here when the stream was opened
/// with the cursor on, and `pointer` tells where it is and what it looks like.
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
  WaylandScreenStream(const WaylandScreenStream&) = delete;
  WaylandScreenStream& operator=(const WaylandScreenStream&) = delete;
  ~WaylandScreenStream() override;

  /// The area as it is now, or as it was last shown when nothing has changed since. No value
  /// while the compositor has sent no picture yet. Throws ScreenCaptureError::displayLost once
  /// the stream has ended (the compositor or PipeWire went away, or the user stopped sharing).
  std::optional<Image> grab() override;
  /// From the cursor metadata; no value when the session has none, or before it told anything.
  std::optional<PointerState> pointer() override;

 private:
  /// Throws displayLost when the stream has ended, and marks the session as ended.
  void checkStillStreaming();
  /// `pointer` (in the picture's pixels) in screen coordinates, which the share also keeps as
  /// the last known position.
  PointerState onScreen(const PipeWireStream::Pointer& pointer);

  const std::shared_ptr<ScreenCastShare> share_;
  const ScreenDisplay display_;
  const ScreenRect area_;  // from the display's top-left corner, in its logical coordinates
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
