#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>
#include <vector>

#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Platform/Wayland/DesktopPortal.h"
#include "BrimbleCore/Platform/Wayland/RestoreTokenFile.h"
#include "BrimbleCore/Platform/Wayland/ScreenCastShare.h"
#include "BrimbleCore/Platform/Wayland/WaylandScreenStream.h"

namespace brimble::wayland {

/// The screen of a Wayland desktop as a ScreenSource, through the desktop portal's screen
/// casting (org.freedesktop.portal.ScreenCast) and PipeWire, which every Wayland desktop offers.
///
/// The first use starts a screen-cast session of one monitor, with the pointer as metadata where
/// the portal offers it: the desktop asks the user which monitor to share. The portal's restore
/// token is kept in `Options::tokenFile` after every start (a portal may replace it each time), so
/// later sessions, in this run or the next, skip the dialog; a stale or damaged token only brings
/// the dialog back. The session stays open while the source lives: a still and then a recording, or
/// both at once, share one permission. Streams of the same monitor open at the same time share
/// one PipeWire connection, which holds the newest picture for all of them (a second connection
/// would get nothing until the screen changed). Once a stream of the session has ended (the
/// compositor went away, or the user stopped sharing), the next use starts a new session.
///
/// Displays are the shared monitors, in the compositor's logical coordinates, identified by their
/// PipeWire node id (stable while the session lasts). Windows are not offered yet: capturing a
/// window would go through the portal's own chooser, which may come later; until then `window`
/// has no value and a window target throws windowNotFound.
///
/// Thread-safe. The session is started under a lock of its own, so callers that arrive while its
/// dialog is up wait for the same answer. Each stream belongs to the thread that opened it (the
/// recorder opens its stream on its capture thread); its pictures arrive on PipeWire's own thread.
class WaylandScreenSource final : public ScreenSource {
 public:
  struct Options {
    /// Where the restore token is kept between runs; empty: nowhere.
    std::filesystem::path tokenFile{};
    /// How long the user may take with the dialog.
    std::chrono::milliseconds dialogTimeout = std::chrono::minutes(5);
    /// How long opening a stream waits for the compositor's first picture.
    std::chrono::milliseconds firstFrameTimeout = std::chrono::seconds(5);
    /// Ends a wait for the dialog early (PortalError::cancelled).
    std::stop_token stop{};
  };

  /// Nothing is asked until the source is first used.
  WaylandScreenSource(std::shared_ptr<DesktopPortal> portal, Options options);
  WaylandScreenSource(const WaylandScreenSource&) = delete;
  WaylandScreenSource& operator=(const WaylandScreenSource&) = delete;

  /// The shared monitors. Throws PortalError (cancelled when the user said no).
  std::vector<ScreenDisplay> displays() override;
  /// Throws ScreenCaptureError::windowCaptureUnavailable: a Wayland client cannot tell where
  /// another's window is, and the portal's window chooser is not used yet.
  std::optional<ScreenWindow> window(std::uint32_t windowID) override;
  /// A stream of the monitor holding most of a screen area, cut to the area. Throws
  /// ScreenCaptureError (windowCaptureUnavailable for a window, displayUnreachable for an area on
  /// no shared monitor) and PortalError.
  std::unique_ptr<ScreenStream> openStream(const CaptureTarget& target, bool showCursor) override;
  /// Where a stream last saw the pointer; no value before any did.
  std::optional<std::pair<int, int>> pointerPosition() override;
  /// Whether the portal gives the pointer as metadata (asked once, without a dialog).
  bool followsPointer() const override;

 private:
  /// The running session, started (or started again) when there is none.
  std::shared_ptr<ScreenCastShare> currentShare();
  static std::vector<ScreenDisplay> displaysOf(const ScreenCastShare& share);

  const std::shared_ptr<DesktopPortal> portal_;
  const Options options_;
  const RestoreTokenFile tokenFile_;

  // Held while a session starts, which may wait minutes for the user: a second caller waits for
  // the same answer rather than opening a second dialog.
  std::mutex startMutex_;
  mutable std::mutex shareMutex_;  // guards the fields below
  std::shared_ptr<ScreenCastShare> share_;
  mutable std::optional<bool> cursorMetadata_;
};

}  // namespace brimble::wayland
