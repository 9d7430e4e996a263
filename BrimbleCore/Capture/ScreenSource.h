#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "BrimbleCore/Capture/CursorImage.h"
#include "BrimbleCore/Capture/ScreenRect.h"
#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// One display (monitor) of the screen.
struct ScreenDisplay {
  /// The display identifier: the RandR output id on X11.
  std::uint32_t displayID = 0;
  std::string name{};
  ScreenRect frame{};
  double scaleFactor = 1;
  bool primary = false;
};

/// A top-level window that can be recorded.
struct ScreenWindow {
  /// The X window id of the application's own (client) window.
  std::uint32_t windowID = 0;
  /// Its content area in screen coordinates, without the window manager's frame.
  ScreenRect frame{};
  /// Whether `frame` is where the window is on screen. False where the platform records a
  /// window without saying where it is (a Wayland desktop shares it as a stream of its own):
  /// `frame` then holds its size at 0,0, and its streams tell the pointer in the window's own
  /// coordinates.
  bool positionKnown = true;
};

/// The window manager's decorations around a window, in screen pixels: the title bar is `top`.
struct FrameExtents {
  int left = 0;
  int right = 0;
  int top = 0;
  int bottom = 0;
  bool operator==(const FrameExtents&) const = default;
};

/// A window with the window manager's frame around it, recordable as one window.
struct DecoratedWindow {
  /// The frame: its id names it to `openStream`, and `frame` covers decorations and content.
  ScreenWindow window;
  FrameExtents extents;
};

/// What a stream records: a rectangle of the screen (a region or a whole display), or one window
/// wherever it is and whatever covers it.
struct CaptureTarget {
  enum class Kind { screenArea, window };

  Kind kind = Kind::screenArea;
  ScreenRect area;             // screenArea
  std::uint32_t windowID = 0;  // window

  static CaptureTarget screenAreaOf(const ScreenRect& rect) { return {Kind::screenArea, rect, 0}; }
  static CaptureTarget windowOf(std::uint32_t id) { return {Kind::window, {}, id}; }
  /// A part of a window: `crop` counted from the top-left corner of the window's `content`
  /// (in screen coordinates), recorded as the area of the screen it covers. The area is cut to
  /// the content, and empty when `crop` lies outside it.
  static CaptureTarget windowCropOf(const ScreenRect& content, const ScreenRect& crop);
};

/// The display that holds most of `area`: the one rule for which display records an area of
/// the screen. No value when `area` lies on none of `displays`.
std::optional<ScreenDisplay> displayHolding(const ScreenRect& area,
                                            const std::vector<ScreenDisplay>& displays);

class ScreenCaptureError : public std::runtime_error {
 public:
  enum class Code {
    displayUnreachable,
    displayLost,
    windowNotFound,
    windowClosed,
    unsupportedPixelFormat
  };

  static ScreenCaptureError displayUnreachable(const std::string& displayName);
  /// The display server went away while `what` ("the X display \":0\"") was being captured,
  /// for `cause` ("the X server ended").
  static ScreenCaptureError displayLost(const std::string& what, const std::string& cause);
  static ScreenCaptureError windowNotFound(std::uint32_t windowID);
  static ScreenCaptureError windowClosed(std::uint32_t windowID);
  static ScreenCaptureError unsupportedPixelFormat(int depth, int bitsPerPixel);

  Code code() const noexcept { return code_; }

 private:
  ScreenCaptureError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// The pointer as a stream last saw it.
struct PointerState {
  /// Screen coordinates of the hot spot.
  int x = 0;
  int y = 0;
  CursorImage cursor;
  /// Changes whenever the pointer's picture does.
  std::uint64_t serial = 0;
};

/// The frames of one capture target, grabbed on demand. A stream belongs to the thread that
/// opened it: it holds that thread's own connection to the display server.
class ScreenStream {
 public:
  virtual ~ScreenStream() = default;

  /// The target's current pixels as an opaque bgra8 image (alpha 255 everywhere), with the
  /// pointer drawn in when the stream was opened with the cursor on. A window is grabbed at its
  /// current size, which may change between grabs. No value when there is nothing to grab at the
  /// moment (a window that is unmapped). Throws ScreenCaptureError: windowClosed when the window
  /// is gone for good, displayLost when the display server is.
  virtual std::optional<Image> grab() = 0;

  /// Where the pointer is now and what it looks like; no value when the platform cannot tell.
  virtual std::optional<PointerState> pointer() { return std::nullopt; }
};

/// The screen as a source of raw frames: its displays, its windows, and streams of pixels.
/// Implementations are thread-safe; each stream is confined to the thread that opened it.
class ScreenSource {
 public:
  virtual ~ScreenSource() = default;

  /// The displays, primary or not, in the order the display server lists them. Throws
  /// ScreenCaptureError: displayUnreachable, displayLost.
  virtual std::vector<ScreenDisplay> displays() = 0;

  /// The window `windowID` with its current frame; no value when there is no such window.
  /// Throws ScreenCaptureError: displayUnreachable, displayLost; where the user picks windows
  /// (`userPicksWindows`), also windowClosed and the desktop's own errors (a cancelled dialog).
  virtual std::optional<ScreenWindow> window(std::uint32_t windowID) = 0;

  /// Opens a stream of `target` for the calling thread, with the pointer drawn in when
  /// `showCursor` is set. Throws ScreenCaptureError.
  virtual std::unique_ptr<ScreenStream> openStream(const CaptureTarget& target,
                                                   bool showCursor) = 0;

  /// The pointer's position in screen coordinates; no value when it cannot be read.
  virtual std::optional<std::pair<int, int>> pointerPosition() = 0;

  /// The window manager's frame around window `windowID`, with its title bar and borders, when
  /// it has one; no value for an undecorated window or one that is gone.
  virtual std::optional<DecoratedWindow> decoratedWindow(std::uint32_t windowID) {
    (void)windowID;
    return std::nullopt;
  }

  /// Whether a single window is recorded as the user picks it in a dialog of the desktop's own
  /// rather than by its id alone: a Wayland client cannot name another's window, so the desktop
  /// asks the user (the first time; it may remember the choice). Callers tell the user which
  /// window to pick before they ask for one (`window`, or a stream of it).
  virtual bool userPicksWindows() const { return false; }
  /// Whether the next use of the screen shows the desktop's share dialog (nothing is shared yet
  /// and no earlier answer is remembered), so the caller can say what is coming first.
  virtual bool asksBeforeSharing() const { return false; }

  /// Whether its streams tell where the pointer is and what it looks like
  /// (ScreenStream::pointer), so that frames can be taken without it and have it drawn later.
  virtual bool followsPointer() const { return false; }
};

}  // namespace brimble
