#pragma once

#include <filesystem>
#include <mutex>
#include <vector>

#include "BrimbleCore/Encoding/CompressedFrameStore.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {

/// Where one frame lies in a frame file.
struct FrameExtent {
  std::uint64_t offset = 0;
  std::size_t length = 0;
};

/// The frames of one recording, read back from the file a DiskFrameWriter wrote. The store owns
/// the file: destroying the store deletes it, so keep the store alive until every frame is read.
/// Thread-safe.
class DiskFrameStore final : public CompressedFrameStore {
 public:
  /// Opens `fileURL` for reading. Throws std::system_error when it cannot be opened.
  DiskFrameStore(std::filesystem::path fileURL, std::vector<FrameExtent> offsets);
  DiskFrameStore(const DiskFrameStore&) = delete;
  DiskFrameStore& operator=(const DiskFrameStore&) = delete;
  ~DiskFrameStore() override;

  int count() const override { return static_cast<int>(offsets_.size()); }
  /// Throws indexOutOfRange for an index outside 0..<count or a frame the file no longer holds
  /// in full, and std::system_error when the file was deleted or cannot be read.
  std::vector<std::uint8_t> data(int index) const override;

  const std::filesystem::path& fileURL() const noexcept { return fileURL_; }

 private:
  const std::filesystem::path fileURL_;
  const std::vector<FrameExtent> offsets_;
  mutable std::mutex fileMutex_;  // guards reads through fileHandle_
  UniqueFd fileHandle_;
};

}  // namespace brimble
