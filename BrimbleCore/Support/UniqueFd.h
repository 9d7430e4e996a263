#pragma once

#include <utility>

namespace brimble {

/// Owns one POSIX file descriptor; closes it on destruction. Move-only, -1 when empty.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  int get() const noexcept { return fd_; }
  explicit operator bool() const noexcept { return fd_ >= 0; }
  int release() noexcept { return std::exchange(fd_, -1); }

  /// Closes the descriptor held so far (ignoring errors) and takes `fd`.
  void reset(int fd = -1) noexcept;

  /// Closes the descriptor and reports close(2)'s errno, 0 on success. Empty afterwards.
  int close() noexcept;

 private:
  int fd_ = -1;
};

}  // namespace brimble
