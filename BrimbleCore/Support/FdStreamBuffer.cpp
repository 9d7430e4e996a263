#include "BrimbleCore/Support/FdStreamBuffer.h"

#include <cerrno>

#include <poll.h>
#include <unistd.h>

namespace brimble {

FdInputBuffer::int_type FdInputBuffer::underflow() {
  if (gptr() < egptr()) {
    return traits_type::to_int_type(*gptr());
  }
  while (!ended_) {
    if (wakeFd_ >= 0) {
      pollfd fds[2] = {{fd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
      if (::poll(fds, 2, -1) < 0) {
        if (errno == EINTR) {
          continue;
        }
        ended_ = true;
        break;
      }
      // The wake descriptor wins over pending input: a stop request must not wait for a chatty
      // client to fall silent.
      if (fds[1].revents != 0) {
        ended_ = true;
        break;
      }
    }
    const ssize_t got = ::read(fd_, buffer_.data(), buffer_.size());
    if (got > 0) {
      setg(buffer_.data(), buffer_.data(), buffer_.data() + got);
      return traits_type::to_int_type(*gptr());
    }
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
      continue;
    }
    ended_ = true;
  }
  return traits_type::eof();
}

FdOutputBuffer::int_type FdOutputBuffer::overflow(int_type c) {
  if (!traits_type::eq_int_type(c, traits_type::eof())) {
    pending_.push_back(traits_type::to_char_type(c));
  }
  return traits_type::not_eof(c);
}

std::streamsize FdOutputBuffer::xsputn(const char* data, std::streamsize count) {
  pending_.append(data, static_cast<std::size_t>(count));
  return count;
}

int FdOutputBuffer::sync() {
  std::size_t written = 0;
  while (written < pending_.size()) {
    const ssize_t result = ::write(fd_, pending_.data() + written, pending_.size() - written);
    if (result < 0) {
      if (errno == EINTR) {
        continue;
      }
      pending_.clear();
      return -1;
    }
    written += static_cast<std::size_t>(result);
  }
  pending_.clear();
  return 0;
}

}  // namespace brimble
