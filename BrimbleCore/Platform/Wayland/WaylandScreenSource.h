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
/// PipeWire node id (stable while the session lasts).
///
/// A window is shared by a session of its own, in which the user picks the window in the
/// desktop's chooser: a Wayland client cannot name another's window to the portal, so the id
/// asked for (the accessibility bus's, as `WindowSystem` lists them) only says which session
/// stands for it, and the caller tells the user which window to pick (`userPicksWindows`). That
/// session's token is kept apart from the monitor's (`Options::windowTokenFile`, with the id it
/// was given for), so asking for the same window again, in this run or the next, asks nothing
/// while the window lives; another window, or a stale token, brings the chooser back. The
/// desktop does not say where a shared window is: `window` gives its size, as its stream shows
/// it, at 0,0 (`ScreenWindow::positionKnown` is false), and its streams take the whole picture
/// at whatever size the window has now.
///
/// Thread-safe. The session is started under a lock of its own, so callers that arrive while its
/// dialog is up wait for the same answer. Each stream belongs to the thread that opened it (the
/// recorder opens its stream on its capture thread); its pictures arrive on PipeWire's own thread.
class WaylandScreenSource final : public ScreenSource {
 public:
  struct Options {
    /// Where the restore token is kept between runs; empty: nowhere.
    std::filesystem::path tokenFile{};
    /// Where the token of the last window shared is kept, with that window's id; empty: nowhere.
    std::filesystem::path windowTokenFile{};
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
  /// The window the user picked for `windowID`, with its size at 0,0 (the chooser, unless this
  /// source or the kept token already shares one for that id); no value when its stream showed
  /// no picture in time. Throws PortalError (cancelled when the user said no),
  /// ScreenCaptureError::windowClosed when its stream ended at once.
  std::optional<ScreenWindow> window(std::uint32_t windowID) override;
  /// A stream of the monitor holding most of a screen area, cut to the area, or of a window (as
  /// `window` shares it). Throws ScreenCaptureError (displayUnreachable for an area on no shared
  /// monitor, windowClosed) and PortalError.
  std::unique_ptr<ScreenStream> openStream(const CaptureTarget& target, bool showCursor) override;
  /// Where a stream last saw the pointer; no value before any did.
  std::optional<std::pair<int, int>> pointerPosition() override;
  /// Whether the portal gives the pointer as metadata (asked once, without a dialog).
  bool followsPointer() const override;
  /// True: the portal's chooser picks the window.
  bool userPicksWindows() const override { return true; }
  /// True while no session runs and no restore token is kept. A kept token the desktop no
  /// longer honours still brings the dialog, unannounced.
  bool asksBeforeSharing() const override;

 private:
  /// A window's session and the connection to its stream.
  struct SharedWindow {
    std::uint32_t windowID = 0;
    std::shared_ptr<ScreenCastShare> share;
    std::uint32_t nodeID = 0;
    /// Held while the session lasts: the compositor sends a still window's picture once, to the
    /// connection open then, so one opened later would show nothing.
    std::shared_ptr<PipeWireStream> stream;
  };

  /// The running session, started (or started again) when there is none.
  std::shared_ptr<ScreenCastShare> currentShare();
  /// The running session that shares a window for `windowID`, started (or started again) when
  /// there is none.
  SharedWindow sharedWindow(std::uint32_t windowID);
  static std::vector<ScreenDisplay> displaysOf(const ScreenCastShare& share);

  const std::shared_ptr<DesktopPortal> portal_;
  const Options options_;
  const RestoreTokenFile tokenFile_;
  const RestoreTokenFile windowTokenFile_;

  // Held while a session starts, which may wait minutes for the user: a second caller waits for
  // the same answer rather than opening a second dialog.
  std::mutex startMutex_;
  mutable std::mutex shareMutex_;  // guards the fields below
  std::shared_ptr<ScreenCastShare> share_;
  std::vector<SharedWindow> windows_;
  mutable std::optional<bool> cursorMetadata_;
};

}  // namespace brimble::wayland
