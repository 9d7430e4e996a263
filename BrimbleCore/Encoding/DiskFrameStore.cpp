#include "BrimbleCore/Encoding/DiskFrameStore.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/SystemError.h"

namespace brimble {

DiskFrameStore::DiskFrameStore(std::filesystem::path fileURL, std::vector<FrameExtent> offsets)
    : fileURL_(std::move(fileURL)), offsets_(std::move(offsets)) {
  fileHandle_.reset(::open(fileURL_.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fileHandle_) {
    throw systemError(errno, "open", fileURL_);
  }
  // Shared with the writer that hands the file over: the sweep of orphaned frame files takes an
  // exclusive lock, so a file some store still reads is never swept.
  if (::flock(fileHandle_.get(), LOCK_SH) != 0) {
    throw systemError(errno, "lock", fileURL_);
  }
}

DiskFrameStore::~DiskFrameStore() {
  fileHandle_.close();
  std::error_code ignored;
  std::filesystem::remove(fileURL_, ignored);
}

std::vector<std::uint8_t> DiskFrameStore::data(int index) const {
  std::scoped_lock lock(fileMutex_);
  if (index < 0 || static_cast<std::size_t>(index) >= offsets_.size()) {
    throw CompressedFrameStoreError::indexOutOfRange(index, offsets_.size());
  }
  // An open descriptor keeps reading a deleted file; a recording that was discarded (or a file
  // someone removed) must not be read back as if it still existed.
  struct stat status {};
  if (::fstat(fileHandle_.get(), &status) != 0) {
    throw systemError(errno, "stat", fileURL_);
  }
  if (status.st_nlink == 0) {
    throw systemError(ENOENT, "read", fileURL_);
  }
  const FrameExtent extent = offsets_[static_cast<std::size_t>(index)];
  std::vector<std::uint8_t> bytes(extent.length);
  if (readAt(fileHandle_.get(), bytes, extent.offset, fileURL_) < extent.length) {
    throw CompressedFrameStoreError::indexOutOfRange(index, offsets_.size());
  }
  return bytes;
}

}  // namespace brimble
