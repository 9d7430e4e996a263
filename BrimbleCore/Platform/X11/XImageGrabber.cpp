#include "BrimbleCore/Platform/X11/XImageGrabber.h"

#include <cstdint>
#include <cstring>

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>

#include "BrimbleCore/Capture/ScreenSource.h"
#include "BrimbleCore/Platform/X11/XDisplay.h"

namespace brimble::x11 {
namespace {

/// The visual of `depth`: the default one, else a TrueColor visual of that depth.
Visual* visualOfDepth(Display* display, int depth) {
  const int screen = DefaultScreen(display);
  if (DefaultDepth(display, screen) == depth) {
    return DefaultVisual(display, screen);
  }
  XVisualInfo info{};
  if (XMatchVisualInfo(display, screen, depth, TrueColor, &info) != 0) {
    return info.visual;
  }
  throw ScreenCaptureError::unsupportedPixelFormat(depth, 0);
}

/// Our pixel routines read bytes B, G, R, A: 32-bit pixels, least significant byte first, red in
/// bits 16-23. The masks are the visual's (XGetImage leaves an image's own masks unset).
void checkFormat(const XImage& image, const Visual& visual) {
  if (image.bits_per_pixel != 32 || image.byte_order != LSBFirst || visual.red_mask != 0xff0000 ||
      visual.green_mask != 0xff00 || visual.blue_mask != 0xff) {
    throw ScreenCaptureError::unsupportedPixelFormat(image.depth, image.bits_per_pixel);
  }
}

/// The image's pixels, tightly packed, with alpha 0xFF: depth-24 pixels leave the fourth byte
/// undefined (Xvfb fills it with 0), and even ARGB windows are recorded as they look on screen.
PixelBuffer opaqueCopy(const XImage& image) {
  const auto width = static_cast<std::size_t>(image.width);
  const auto height = static_cast<std::size_t>(image.height);
  PixelBuffer pixels(width * height * 4);
  for (std::size_t y = 0; y < height; ++y) {
    const auto* source = reinterpret_cast<const std::uint8_t*>(image.data) +
                         y * static_cast<std::size_t>(image.bytes_per_line);
    std::uint8_t* target = pixels.data() + y * width * 4;
    for (std::size_t x = 0; x < width; ++x) {
      std::uint32_t pixel = 0;
      std::memcpy(&pixel, source + 4 * x, 4);
      pixel |= 0xff000000u;
      std::memcpy(target + 4 * x, &pixel, 4);
    }
  }
  return pixels;
}

}  // namespace

struct XImageGrabber::State {
  Display* display = nullptr;
  int depth = 0;
  Visual* visual = nullptr;
  bool trySharedMemory = true;
  bool sharedMemory = false;

  // The shared-memory image, reused while the size stays.
  XImagePtr image;
  SharedMemorySegment segment;
  XShmSegmentInfo info{};
  bool attached = false;

  ~State() { release(); }

  void release() noexcept {
    if (attached) {
      XShmDetach(display, &info);
      XSync(display, False);
      attached = false;
    }
    if (image) {
      image->data = nullptr;  // the segment's memory, not Xlib's to free
      image.reset();
    }
    segment = SharedMemorySegment();
  }

  /// A shared-memory image of `width` x `height`, attached to the server; false (and shared
  /// memory off from then on) when the server cannot attach it.
  bool prepareSharedImage(int width, int height) {
    if (image && image->width == width && image->height == height) {
      return true;
    }
    release();
    image.reset(XShmCreateImage(display, visual, static_cast<unsigned>(depth), ZPixmap, nullptr,
                                &info, static_cast<unsigned>(width),
                                static_cast<unsigned>(height)));
    if (!image) {
      return false;
    }
    checkFormat(*image, *visual);
    segment = SharedMemorySegment(static_cast<std::size_t>(image->bytes_per_line) *
                                  static_cast<std::size_t>(height));
    info.shmid = segment.id();
    info.shmaddr = static_cast<char*>(segment.address());
    info.readOnly = False;
    image->data = info.shmaddr;
    // A server in another IPC namespace (a container, a remote display) answers BadAccess.
    attached = succeeds(display, [&] { XShmAttach(display, &info); });
    // Both sides are attached now (or never will be): the segment can be marked for removal, so
    // the kernel frees it even if this process dies without detaching.
    segment.markForRemoval();
    if (!attached) {
      release();
    }
    return attached;
  }
};

XImageGrabber::XImageGrabber(_XDisplay* display, int depth, bool sharedMemory)
    : state_(std::make_unique<State>()) {
  state_->display = display;
  state_->depth = depth;
  state_->visual = visualOfDepth(display, depth);
  state_->trySharedMemory = sharedMemory && XShmQueryExtension(display) != 0;
}

XImageGrabber::~XImageGrabber() = default;

bool XImageGrabber::usesSharedMemory() const noexcept {
  return state_->sharedMemory;
}

std::optional<PixelBuffer> XImageGrabber::grab(XID drawable, int x, int y, int width, int height) {
  State& state = *state_;
  if (state.trySharedMemory) {
    if (state.prepareSharedImage(width, height)) {
      state.sharedMemory = true;
      if (XShmGetImage(state.display, drawable, state.image.get(), x, y, AllPlanes) == 0) {
        return std::nullopt;
      }
      return opaqueCopy(*state.image);
    }
    state.trySharedMemory = false;
    state.sharedMemory = false;
  }
  const XImagePtr image(XGetImage(state.display, drawable, x, y, static_cast<unsigned>(width),
                                  static_cast<unsigned>(height), AllPlanes, ZPixmap));
  if (!image) {
    return std::nullopt;
  }
  checkFormat(*image, *state.visual);
  return opaqueCopy(*image);
}

}  // namespace brimble::x11
