#pragma once

#include <memory>
#include <optional>
#include <string>

#include "BrimbleCore/Capture/CursorImage.h"
#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Platform/X11/XDisplay.h"
#include "BrimbleCore/Platform/X11/XHandles.h"
#include "BrimbleCore/Platform/X11/XImageGrabber.h"

namespace brimble::x11 {

/// Frames of one capture target on an X display, over a connection of its own.
///
/// A screen area is grabbed from the root window. A window is redirected off-screen with
/// XComposite and grabbed from its pixmap, so windows on top of it do not show; the pixmap is
/// named again whenever the window is resized or mapped again. Where the server has no
/// Composite extension, the window itself is grabbed and what covers it shows.
///
/// With the cursor on, the pointer's picture (XFixes, converted again only when its serial
/// changes) is blended in at the pointer position. Confined to the thread that opened it.
class X11ScreenStream final : public ScreenStream {
 public:
  /// Connects to `displayName` and prepares `target`. `sharedMemory` false forces XGetImage.
  /// Throws ScreenCaptureError: displayUnreachable, windowNotFound, unsupportedPixelFormat.
  X11ScreenStream(const std::string& displayName, const CaptureTarget& target, bool showCursor,
                  bool sharedMemory);
  X11ScreenStream(const X11ScreenStream&) = delete;
  X11ScreenStream& operator=(const X11ScreenStream&) = delete;
  ~X11ScreenStream() override;

  std::optional<Image> grab() override;
  /// From XFixes, on this stream's connection.
  std::optional<brimble::PointerState> pointer() override;

  /// Whether frames come through MIT-SHM (known after the first grab).
  bool usesSharedMemory() const noexcept { return grabber_ && grabber_->usesSharedMemory(); }

 private:
  /// Throws ScreenCaptureError::displayLost when the server went away.
  void checkStillConnected() const;
  void openWindow();
  /// Reads the window's structure events: size, mapping, destruction.
  void followWindow();
  /// The window's pixels at its current size (windowWidth_ x windowHeight_); no value while it
  /// is unmapped. Throws ScreenCaptureError::windowClosed.
  std::optional<PixelBuffer> grabWindow();
  /// Reads the pointer position (root coordinates) and, when its serial changed, its picture
  /// into `cursor_`. False when XFixes cannot tell.
  bool updateCursor(int& rootX, int& rootY);

  XDisplayPtr display_;
  const CaptureTarget target_;
  const bool showCursor_;
  const bool sharedMemory_;
  XID root_ = 0;
  std::unique_ptr<XImageGrabber> grabber_;

  // Window targets.
  bool composite_ = false;
  CompositeRedirection redirection_;  // declared before the pixmap: freed after it
  XPixmap pixmap_;
  bool mapped_ = false;
  bool pixmapStale_ = true;
  int windowWidth_ = 0;
  int windowHeight_ = 0;
  int borderWidth_ = 0;

  // The cursor picture, converted once per serial.
  std::optional<CursorImage> cursor_;
  unsigned long cursorSerial_ = 0;
};

}  // namespace brimble::x11
