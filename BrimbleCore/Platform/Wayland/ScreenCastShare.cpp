#include "BrimbleCore/Platform/Wayland/ScreenCastShare.h"

#include <algorithm>

namespace brimble::wayland {

std::shared_ptr<PipeWireStream> ScreenCastShare::connect(std::uint32_t nodeID) {
  std::scoped_lock lock(connectionsMutex);
  auto connection = std::find_if(connections.begin(), connections.end(),
                                 [&](const Connection& c) { return c.nodeID == nodeID; });
  if (connection == connections.end()) {
    connection = connections.insert(connections.end(),
                                    Connection{.nodeID = nodeID, .stream = {}, .cursor = {}});
  }
  if (auto stream = connection->stream.lock(); stream && !stream->endReason()) {
    return stream;
  }
  auto stream = [&] {
    std::scoped_lock sessionLock(sessionMutex);
    return std::make_shared<PipeWireStream>(session.openPipeWireRemote(), nodeID,
                                            connection->cursor);
  }();
  connection->stream = stream;
  return stream;
}

void ScreenCastShare::keepCursor(std::uint32_t nodeID, CursorImage cursor) {
  if (cursor.image.empty()) {
    return;
  }
  std::scoped_lock lock(connectionsMutex);
  for (Connection& connection : connections) {
    if (connection.nodeID == nodeID) {
      connection.cursor = std::move(cursor);
    }
  }
}

}  // namespace brimble::wayland
