#include "BrimbleCore/Platform/X11/X11ScreenStream.h"

#include <X11/Xlib.h>
#include <X11/extensions/Xcomposite.h>
#include <X11/extensions/Xfixes.h>

namespace brimble::x11 {
namespace {

bool windowExists(Display* display, Window window) {
  XWindowAttributes attributes{};
  Status status = 0;
  return succeeds(display, [&] { status = XGetWindowAttributes(display, window, &attributes); }) &&
         status != 0;
}

/// XFixes hands out premultiplied ARGB, one pixel in the low 32 bits of each unsigned long.
Image cursorPicture(const XFixesCursorImage& cursor) {
  const std::size_t count = std::size_t{cursor.width} * cursor.height;
  PixelBuffer pixels(count * 4);
  for (std::size_t i = 0; i < count; ++i) {
    const unsigned long argb = cursor.pixels[i];
    pixels[4 * i] = static_cast<std::uint8_t>(argb & 0xff);
    pixels[4 * i + 1] = static_cast<std::uint8_t>((argb >> 8) & 0xff);
    pixels[4 * i + 2] = static_cast<std::uint8_t>((argb >> 16) & 0xff);
    pixels[4 * i + 3] = static_cast<std::uint8_t>((argb >> 24) & 0xff);
  }
  return Image::bgra8(cursor.width, cursor.height, std::move(pixels));
}

}  // namespace

X11ScreenStream::X11ScreenStream(const std::string& displayName, const CaptureTarget& target,
                                 bool showCursor, bool sharedMemory)
    : display_(openDisplay(displayName)),
      target_(target),
      showCursor_(showCursor),
      sharedMemory_(sharedMemory) {
  if (!display_) {
    throw ScreenCaptureError::displayUnreachable(displayName);
  }
  Display* display = display_.get();
  root_ = DefaultRootWindow(display);
  if (target_.kind == CaptureTarget::Kind::window) {
    openWindow();
  } else {
    grabber_ = std::make_unique<XImageGrabber>(
        display, DefaultDepth(display, DefaultScreen(display)), sharedMemory_);
  }
}

X11ScreenStream::~X11ScreenStream() = default;

void X11ScreenStream::checkStillConnected() const {
  if (connectionLost(display_.get())) {
    throw ScreenCaptureError::displayLost(
        std::string("the X display \"") + DisplayString(display_.get()) + "\"",
        "the X server ended");
  }
}

void X11ScreenStream::openWindow() {
  Display* display = display_.get();
  const Window window = target_.windowID;
  XWindowAttributes attributes{};
  Status status = 0;
  if (!succeeds(display, [&] { status = XGetWindowAttributes(display, window, &attributes); }) ||
      status == 0 || attributes.c_class == InputOnly) {
    throw ScreenCaptureError::windowNotFound(target_.windowID);
  }
  // Structure events from now on, so that no resize before the first pixmap goes unnoticed.
  XSelectInput(display, window, StructureNotifyMask);
  windowWidth_ = attributes.width;
  windowHeight_ = attributes.height;
  borderWidth_ = attributes.border_width;
  mapped_ = attributes.map_state == IsViewable;

  int eventBase = 0;
  int errorBase = 0;
  int major = 0;
  int minor = 2;
  composite_ = XCompositeQueryExtension(display, &eventBase, &errorBase) != 0 &&
               XCompositeQueryVersion(display, &major, &minor) != 0 && (major > 0 || minor >= 2);
  if (composite_) {
    // The client window itself, not the window manager's frame around it: naming the pixmap of
    // a reparented client gives BadMatch unless the client is redirected.
    if (!succeeds(display,
                  [&] { XCompositeRedirectWindow(display, window, CompositeRedirectAutomatic); })) {
      throw ScreenCaptureError::windowNotFound(target_.windowID);
    }
    redirection_ = CompositeRedirection(display, window);
  }
  grabber_ = std::make_unique<XImageGrabber>(display, attributes.depth, sharedMemory_);
}

void X11ScreenStream::followWindow() {
  Display* display = display_.get();
  while (XPending(display) > 0) {
    XEvent event;
    XNextEvent(display, &event);
    switch (event.type) {
      case ConfigureNotify:
        if (event.xconfigure.width != windowWidth_ || event.xconfigure.height != windowHeight_ ||
            event.xconfigure.border_width != borderWidth_) {
          windowWidth_ = event.xconfigure.width;
          windowHeight_ = event.xconfigure.height;
          borderWidth_ = event.xconfigure.border_width;
          pixmapStale_ = true;
        }
        break;
      case MapNotify:
        // A window mapped again is backed by a new pixmap.
        mapped_ = true;
        pixmapStale_ = true;
        break;
      case UnmapNotify:
        mapped_ = false;
        pixmap_ = XPixmap();
        break;
      case DestroyNotify:
        throw ScreenCaptureError::windowClosed(target_.windowID);
      default:
        break;
    }
  }
}

bool X11ScreenStream::updateCursor(int& rootX, int& rootY) {
  const XFreePtr<XFixesCursorImage> cursor(XFixesGetCursorImage(display_.get()));
  if (!cursor) {
    return false;
  }
  if (!cursor_ || cursor->cursor_serial != cursorSerial_) {
    cursor_ = CursorImage{cursorPicture(*cursor), cursor->xhot, cursor->yhot};
    cursorSerial_ = cursor->cursor_serial;
  }
  rootX = cursor->x;
  rootY = cursor->y;
  return true;
}

std::optional<brimble::PointerState> X11ScreenStream::pointer() {
  int x = 0;
  int y = 0;
  if (!updateCursor(x, y)) {
    return std::nullopt;
  }
  return brimble::PointerState{x, y, *cursor_, cursorSerial_};
}

std::optional<PixelBuffer> X11ScreenStream::grabWindow() {
  Display* display = display_.get();
  const Window window = target_.windowID;
  followWindow();
  if (!mapped_) {
    return std::nullopt;
  }
  XID drawable = window;
  int offset = 0;
  if (composite_) {
    if (pixmapStale_ || !pixmap_) {
      pixmap_ = XPixmap();
      XID named = 0;
      if (!succeeds(display, [&] { named = XCompositeNameWindowPixmap(display, window); })) {
        if (!windowExists(display, window)) {
          throw ScreenCaptureError::windowClosed(target_.windowID);
        }
        return std::nullopt;  // not viewable this instant; the next map event tells
      }
      pixmap_ = XPixmap(display, named);
      pixmapStale_ = false;
    }
    drawable = pixmap_.get();
    offset = borderWidth_;  // the pixmap holds the border too
  }
  auto pixels = grabber_->grab(drawable, offset, offset, windowWidth_, windowHeight_);
  if (!pixels) {
    // Resized or gone between the events and the grab: look again next time.
    pixmapStale_ = true;
    if (!windowExists(display, window)) {
      throw ScreenCaptureError::windowClosed(target_.windowID);
    }
  }
  return pixels;
}

std::optional<Image> X11ScreenStream::grab() {
  const bool isWindow = target_.kind == CaptureTarget::Kind::window;
  std::optional<PixelBuffer> pixels;
  try {
    pixels = isWindow ? grabWindow()
                      : grabber_->grab(root_, target_.area.x, target_.area.y, target_.area.width,
                                       target_.area.height);
  } catch (const ScreenCaptureError&) {
    checkStillConnected();  // a lost server looks like a closed window
    throw;
  }
  // A lost server fails every grab quietly; without this the recording would go on capturing
  // nothing.
  checkStillConnected();
  if (!pixels) {
    return std::nullopt;
  }
  const int width = isWindow ? windowWidth_ : target_.area.width;
  const int height = isWindow ? windowHeight_ : target_.area.height;
  int pointerX = 0;
  int pointerY = 0;
  if (showCursor_ && updateCursor(pointerX, pointerY)) {
    // Where the captured pixels begin, in root coordinates.
    int originX = target_.area.x;
    int originY = target_.area.y;
    if (isWindow) {
      Window child = 0;
      XTranslateCoordinates(display_.get(), target_.windowID, root_, 0, 0, &originX, &originY,
                            &child);
    }
    blendCursor(*pixels, std::size_t{4} * static_cast<std::size_t>(width), width, height, *cursor_,
                pointerX - originX, pointerY - originY);
  }
  return Image::bgra8(width, height, std::move(*pixels));
}

}  // namespace brimble::x11
