#pragma once

#include <array>
#include <streambuf>
#include <string>

namespace brimble {

/// Reads a file descriptor as a std::streambuf. When `wakeFd` is given, the buffer reports end
/// of input as soon as that descriptor becomes readable (a byte written to a pipe, from a signal
/// handler for example), even while the main descriptor has nothing to read. Borrows both
/// descriptors. One thread at a time.
class FdInputBuffer : public std::streambuf {
 public:
  explicit FdInputBuffer(int fd, int wakeFd = -1) : fd_(fd), wakeFd_(wakeFd) {}

 protected:
  int_type underflow() override;

 private:
  const int fd_;
  const int wakeFd_;
  bool ended_ = false;
  std::array<char, 65536> buffer_{};
};

/// Writes to a file descriptor as a std::streambuf. Bytes are held until `sync` (a flush), which
/// writes them with as few write(2) calls as the kernel allows, so that a line flushed at once
/// reaches a pipe in one piece. A failed write makes the stream bad. Borrows the descriptor. One
/// thread at a time.
class FdOutputBuffer : public std::streambuf {
 public:
  explicit FdOutputBuffer(int fd) : fd_(fd) {}
  ~FdOutputBuffer() override { sync(); }

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* data, std::streamsize count) override;
  int sync() override;

 private:
  const int fd_;
  std::string pending_;
};

}  // namespace brimble
