#pragma once

#include <cstddef>
#include <memory>
#include <utility>

struct _XDisplay;  // Xlib's Display
struct _XImage;    // Xlib's XImage

namespace brimble::x11 {

/// X ids (windows, pixmaps, drawables) are CARD32 values that Xlib keeps in unsigned longs.
using XID = unsigned long;

struct XImageDestroyer {
  void operator()(_XImage* image) const noexcept;  // XDestroyImage
};
/// An image Xlib allocated (XGetImage, XShmCreateImage).
using XImagePtr = std::unique_ptr<_XImage, XImageDestroyer>;

/// Frees what Xlib returned for the caller to XFree (properties, class hints, cursor images).
struct XFreeDeleter {
  void operator()(void* data) const noexcept;
};
template <typename T>
using XFreePtr = std::unique_ptr<T, XFreeDeleter>;

/// A System V shared-memory segment attached to this process. Once `markForRemoval` is called,
/// the kernel deletes it when the last process detaches, so a crash cannot leak it. Move-only;
/// the destructor detaches (and removes it if it was not marked). One thread at a time.
class SharedMemorySegment {
 public:
  SharedMemorySegment() = default;
  /// A new private segment of `bytes`, attached. Throws std::system_error.
  explicit SharedMemorySegment(std::size_t bytes);
  SharedMemorySegment(SharedMemorySegment&& other) noexcept { swap(other); }
  SharedMemorySegment& operator=(SharedMemorySegment&& other) noexcept {
    SharedMemorySegment(std::move(other)).swap(*this);
    return *this;
  }
  SharedMemorySegment(const SharedMemorySegment&) = delete;
  SharedMemorySegment& operator=(const SharedMemorySegment&) = delete;
  ~SharedMemorySegment();

  int id() const noexcept { return id_; }
  void* address() const noexcept { return address_; }
  std::size_t size() const noexcept { return size_; }

  /// IPC_RMID: the segment goes away with its last attachment. Call it once the X server has
  /// attached too.
  void markForRemoval() noexcept;

 private:
  void swap(SharedMemorySegment& other) noexcept {
    std::swap(id_, other.id_);
    std::swap(address_, other.address_);
    std::swap(size_, other.size_);
    std::swap(removed_, other.removed_);
  }

  int id_ = -1;
  void* address_ = nullptr;
  std::size_t size_ = 0;
  bool removed_ = false;
};

/// A pixmap this client created or named; freed with XFreePixmap. Move-only, empty after a move.
/// The display connection must outlive it.
class XPixmap {
 public:
  XPixmap() = default;
  XPixmap(_XDisplay* display, XID pixmap) noexcept : display_(display), pixmap_(pixmap) {}
  XPixmap(XPixmap&& other) noexcept
      : display_(std::exchange(other.display_, nullptr)),
        pixmap_(std::exchange(other.pixmap_, 0)) {}
  XPixmap& operator=(XPixmap&& other) noexcept {
    XPixmap(std::move(other)).swap(*this);
    return *this;
  }
  XPixmap(const XPixmap&) = delete;
  XPixmap& operator=(const XPixmap&) = delete;
  ~XPixmap();

  XID get() const noexcept { return pixmap_; }
  explicit operator bool() const noexcept { return pixmap_ != 0; }

 private:
  void swap(XPixmap& other) noexcept {
    std::swap(display_, other.display_);
    std::swap(pixmap_, other.pixmap_);
  }

  _XDisplay* display_ = nullptr;
  XID pixmap_ = 0;
};

/// A window this client redirected off-screen with XComposite (automatic updates); the
/// destructor gives the window back to normal rendering. Move-only. The display connection must
/// outlive it.
class CompositeRedirection {
 public:
  CompositeRedirection() = default;
  CompositeRedirection(_XDisplay* display, XID window) noexcept
      : display_(display), window_(window) {}
  CompositeRedirection(CompositeRedirection&& other) noexcept
      : display_(std::exchange(other.display_, nullptr)),
        window_(std::exchange(other.window_, 0)) {}
  CompositeRedirection& operator=(CompositeRedirection&& other) noexcept {
    CompositeRedirection(std::move(other)).swap(*this);
    return *this;
  }
  CompositeRedirection(const CompositeRedirection&) = delete;
  CompositeRedirection& operator=(const CompositeRedirection&) = delete;
  ~CompositeRedirection();

 private:
  void swap(CompositeRedirection& other) noexcept {
    std::swap(display_, other.display_);
    std::swap(window_, other.window_);
  }

  _XDisplay* display_ = nullptr;
  XID window_ = 0;
};

}  // namespace brimble::x11
