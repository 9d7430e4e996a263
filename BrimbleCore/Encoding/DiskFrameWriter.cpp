#include "BrimbleCore/Encoding/DiskFrameWriter.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <system_error>

#include <fcntl.h>

#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/SystemError.h"

namespace brimble {

DiskFrameWriter::DiskFrameWriter(const std::filesystem::path& directory)
    : fileURL_((directory.empty() ? temporaryDirectory() : directory) /
               (std::string(kFilePrefix) + makeUUIDString())) {
  // O_EXCL: a fresh UUID never names an existing file, so a clash means something is wrong.
  fileHandle_.reset(::open(fileURL_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!fileHandle_) {
    throw CompressedFrameStoreError::writerUnavailable(fileURL_);
  }
}

DiskFrameWriter::~DiskFrameWriter() {
  bool ownsFile = false;
  {
    std::scoped_lock lock(indexMutex_);
    ownsFile = !handedOver_;
  }
  if (ownsFile) {
    discard();
  }
}

int DiskFrameWriter::count() const {
  std::scoped_lock lock(indexMutex_);
  return static_cast<int>(offsets_.size());
}

void DiskFrameWriter::append(std::span<const std::uint8_t> data) {
  std::scoped_lock lock(indexMutex_);
  if (!fileHandle_) {
    // The handle is gone after finalize or discard; report it the way the OS would.
    throw systemError(EBADF, "write", fileURL_);
  }
  writeAllAt(fileHandle_.get(), data, currentOffset_, fileURL_);
  if (data.size() > UINT64_MAX - currentOffset_) {
    std::abort();  // a frame file cannot outgrow 64-bit offsets; continuing would corrupt it
  }
  offsets_.push_back({currentOffset_, data.size()});
  currentOffset_ += data.size();
}

std::unique_ptr<CompressedFrameStore> DiskFrameWriter::finalize() {
  std::vector<FrameExtent> offsets;
  bool wasClosed = false;
  UniqueFd handle;
  {
    std::scoped_lock lock(indexMutex_);
    offsets = offsets_;
    wasClosed = isClosed_;
    isClosed_ = true;
    handedOver_ = true;
    handle = std::move(fileHandle_);
  }
  if (!wasClosed) {
    if (const int error = handle.close(); error != 0) {
      throw systemError(error, "close", fileURL_);
    }
  }
  return std::make_unique<DiskFrameStore>(fileURL_, std::move(offsets));
}

void DiskFrameWriter::discard() noexcept {
  UniqueFd handle;
  {
    std::scoped_lock lock(indexMutex_);
    isClosed_ = true;
    handle = std::move(fileHandle_);
  }
  handle.close();
  std::error_code ignored;
  std::filesystem::remove(fileURL_, ignored);
}

void DiskFrameWriter::sweepOrphans(const std::filesystem::path& directory, double age) {
  namespace fs = std::filesystem;
  const auto cutoff =
      fs::file_time_type::clock::now() -
      std::chrono::duration_cast<fs::file_time_type::duration>(std::chrono::duration<double>(age));
  int swept = 0;
  std::error_code error;
  fs::directory_iterator entries(directory, error);
  if (error) {
    return;
  }
  for (const fs::directory_entry& entry : entries) {
    if (!entry.path().filename().string().starts_with(kFilePrefix)) {
      continue;
    }
    std::error_code entryError;
    const auto modified = entry.last_write_time(entryError);
    if (entryError || modified >= cutoff) {
      continue;
    }
    if (fs::remove(entry.path(), entryError) && !entryError) {
      ++swept;
    }
  }
  if (swept > 0) {
    logLine("Brimble: swept " + std::to_string(swept) +
            " orphaned frame-store file(s) from a prior session");
  }
}

}  // namespace brimble
