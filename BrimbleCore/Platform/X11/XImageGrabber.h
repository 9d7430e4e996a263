#pragma once

#include <memory>
#include <optional>

#include "BrimbleCore/Encoding/Image.h"
#include "BrimbleCore/Platform/X11/XHandles.h"

namespace brimble::x11 {

/// Copies rectangles of drawables of one depth into opaque bgra8 images: with MIT-SHM into one
/// reused shared-memory image (made again only when the size changes), or with XGetImage where
/// the server refuses shared memory (remote displays, containers with their own IPC namespace).
/// One thread at a time, on the connection it was made with, which must outlive it.
class XImageGrabber {
 public:
  /// Grabs drawables of `depth` (24 or 32) on `display`; `sharedMemory` false forces XGetImage.
  /// Throws ScreenCaptureError::unsupportedPixelFormat when the server's pixels are not 32-bit
  /// BGRX or BGRA.
  XImageGrabber(_XDisplay* display, int depth, bool sharedMemory);
  XImageGrabber(const XImageGrabber&) = delete;
  XImageGrabber& operator=(const XImageGrabber&) = delete;
  ~XImageGrabber();

  /// The pixels of `width` x `height` at (`x`, `y`) of `drawable`, the fourth byte forced to
  /// 0xFF (depth 24 leaves it undefined). No value when the server refuses: the rectangle is not
  /// inside the drawable, or the drawable is gone. Throws std::system_error when shared memory
  /// cannot be allocated.
  std::optional<PixelBuffer> grab(XID drawable, int x, int y, int width, int height);

  /// Whether grabs go through MIT-SHM (false until the first grab has tried it).
  bool usesSharedMemory() const noexcept;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace brimble::x11
