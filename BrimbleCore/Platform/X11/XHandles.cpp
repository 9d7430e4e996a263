#include "BrimbleCore/Platform/X11/XHandles.h"

#include <cerrno>
#include <system_error>

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xcomposite.h>
#include <sys/ipc.h>
#include <sys/shm.h>

namespace brimble::x11 {

void XImageDestroyer::operator()(_XImage* image) const noexcept {
  XDestroyImage(image);
}

void XFreeDeleter::operator()(void* data) const noexcept {
  XFree(data);
}

SharedMemorySegment::SharedMemorySegment(std::size_t bytes) : size_(bytes) {
  id_ = ::shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
  if (id_ < 0) {
    throw std::system_error(errno, std::generic_category(), "shmget");
  }
  address_ = ::shmat(id_, nullptr, 0);
  if (address_ == reinterpret_cast<void*>(-1)) {
    const int error = errno;
    address_ = nullptr;
    markForRemoval();
    throw std::system_error(error, std::generic_category(), "shmat");
  }
}

SharedMemorySegment::~SharedMemorySegment() {
  if (address_ != nullptr) {
    ::shmdt(address_);
  }
  if (id_ >= 0 && !removed_) {
    ::shmctl(id_, IPC_RMID, nullptr);
  }
}

void SharedMemorySegment::markForRemoval() noexcept {
  if (id_ >= 0 && !removed_) {
    ::shmctl(id_, IPC_RMID, nullptr);
    removed_ = true;
  }
}

XPixmap::~XPixmap() {
  if (pixmap_ != 0) {
    XFreePixmap(display_, pixmap_);
  }
}

CompositeRedirection::~CompositeRedirection() {
  if (window_ != 0) {
    XCompositeUnredirectWindow(display_, window_, CompositeRedirectAutomatic);
  }
}

}  // namespace brimble::x11
