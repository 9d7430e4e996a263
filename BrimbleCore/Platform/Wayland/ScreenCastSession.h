#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "BrimbleCore/Capture/ScreenRect.h"
#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble::wayland {

/// One stream a screen-cast session shares: a monitor or a window, as a PipeWire node.
struct ScreenCastStream {
  std::uint32_t nodeID = 0;
  /// Where it is, in the compositor's logical coordinates (empty for a window, which has no
  /// place the portal tells).
  ScreenRect frame;
  /// 1 a monitor, 2 a window, 4 a virtual output.
  std::uint32_t sourceType = 0;
};

/// The "streams" a portal session's Start reply (`results`) lists; none when it lists none.
std::vector<ScreenCastStream> sharedStreams(GVariant* results);

/// A screen-cast session of the desktop portal (org.freedesktop.portal.ScreenCast): the user
/// chooses what to share in the desktop's dialog, once; the portal remembers the choice under a
/// restore token, which the next session passes to skip the dialog. Closed when it goes. One
/// thread at a time.
class ScreenCastSession {
 public:
  enum class Sources : std::uint32_t { monitor = 1, window = 2 };
  enum class CursorMode : std::uint32_t { hidden = 1, embedded = 2, metadata = 4 };

  struct Options {
    Sources sources = Sources::monitor;
    /// How the pointer reaches the frames; metadata (drawn by us) when the portal offers it.
    CursorMode cursor = CursorMode::metadata;
    /// The token of an earlier session; a stale one brings the dialog back.
    std::string restoreToken{};
    /// How long the user may take with the dialog.
    std::chrono::milliseconds dialogTimeout = std::chrono::minutes(5);
    std::stop_token stop{};
  };

  /// Whether the portal offers cursor `mode`, asked without a session or a dialog. False when
  /// there is no screen-cast portal.
  static bool offersCursorMode(DesktopPortal& portal, CursorMode mode) noexcept;

  /// Creates the session, selects the sources and starts it: the dialog, unless the token is
  /// honoured. Throws PortalError (cancelled when the user said no).
  ScreenCastSession(DesktopPortal& portal, const Options& options);
  ScreenCastSession(const ScreenCastSession&) = delete;
  ScreenCastSession& operator=(const ScreenCastSession&) = delete;
  ~ScreenCastSession();

  const std::vector<ScreenCastStream>& streams() const noexcept { return streams_; }
  /// The token for the next session (single-use: store it after every start); empty when the
  /// portal gave none.
  const std::string& restoreToken() const noexcept { return restoreToken_; }
  /// The cursor mode in use: what the portal offers of the one asked for.
  CursorMode cursorMode() const noexcept { return cursorMode_; }

  /// A connection to PipeWire that reaches this session's streams. Throws PortalError.
  UniqueFd openPipeWireRemote();

 private:
  DesktopPortal& portal_;
  std::string handle_;
  std::vector<ScreenCastStream> streams_;
  std::string restoreToken_;
  CursorMode cursorMode_ = CursorMode::hidden;
};

}  // namespace brimble::wayland
