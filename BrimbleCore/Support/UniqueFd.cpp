#include "BrimbleCore/Support/UniqueFd.h"

#include <cerrno>

#include <unistd.h>

namespace brimble {

void UniqueFd::reset(int fd) noexcept {
  if (fd_ >= 0 && fd_ != fd) {
    ::close(fd_);
  }
  fd_ = fd;
}

int UniqueFd::close() noexcept {
  if (fd_ < 0) {
    return 0;
  }
  // Linux releases the descriptor even when close fails, so never retry it.
  const int result = ::close(release());
  return result == 0 ? 0 : errno;
}

}  // namespace brimble
