#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "BrimbleCore/Capture/CursorImage.h"
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

}  // namespace brimble::wayland
