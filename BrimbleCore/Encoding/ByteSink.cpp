#include "BrimbleCore/Encoding/ByteSink.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <system_error>

#include <fcntl.h>

#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/SystemError.h"

namespace brimble {
namespace {

void checkPatchRange(std::size_t offset, std::size_t length, std::size_t written) {
  if (offset > written || length > written - offset) {
    throw MuxError::unexpectedLayout("patch of " + std::to_string(length) + " bytes at " +
                                     std::to_string(offset) + " exceeds " +
                                     std::to_string(written) + " written");
  }
}

}  // namespace

FileByteSink::FileByteSink(std::filesystem::path url) : url_(std::move(url)) {
  handle_.reset(::open(url_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!handle_) {
    throw MuxError::unexpectedLayout("could not create " + url_.string() + ": " +
                                     std::strerror(errno));
  }
}

void FileByteSink::write(std::span<const std::uint8_t> data) {
  if (!handle_) {
    throw MuxError::unexpectedLayout("write after the sink was closed or discarded");
  }
  // Writing at our own end offset, not the handle's position, keeps appends correct after a patch.
  writeAllAt(handle_.get(), data, offset_, url_);
  offset_ += data.size();
}

void FileByteSink::patch(std::size_t offset, std::span<const std::uint8_t> data) {
  if (!handle_) {
    throw MuxError::unexpectedLayout("patch after the sink was closed or discarded");
  }
  checkPatchRange(offset, data.size(), offset_);
  writeAllAt(handle_.get(), data, offset, url_);
}

void FileByteSink::close() {
  if (const int error = handle_.close(); error != 0) {
    throw systemError(error, "close", url_);
  }
}

void FileByteSink::discard() noexcept {
  handle_.close();
  std::error_code ignored;
  std::filesystem::remove(url_, ignored);
}

void MemoryByteSink::write(std::span<const std::uint8_t> bytes) {
  data.insert(data.end(), bytes.begin(), bytes.end());
}

void MemoryByteSink::patch(std::size_t offset, std::span<const std::uint8_t> bytes) {
  checkPatchRange(offset, bytes.size(), data.size());
  std::copy(bytes.begin(), bytes.end(), data.begin() + static_cast<std::ptrdiff_t>(offset));
}

}  // namespace brimble
