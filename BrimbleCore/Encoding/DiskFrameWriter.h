#pragma once

#include <filesystem>
#include <mutex>
#include <vector>

#include "BrimbleCore/Encoding/CompressedFrameStore.h"
#include "BrimbleCore/Encoding/DiskFrameStore.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {

/// Appends a recording's JPEG frames to one temporary file ("brimble-frames-<UUID>" in the
/// temporary directory): the plain concatenation of the blobs, indexed only in memory. A writer
/// destroyed without `finalize` deletes its file. The writer, then its stores, hold a shared
/// flock on the file, which tells the sweep it is in use. Thread-safe.
class DiskFrameWriter final : public FrameWriting {
 public:
  /// Creates the empty frame file in `directory` (the temporary directory by default). Throws
  /// CompressedFrameStoreError::writerUnavailable when the file cannot be created.
  explicit DiskFrameWriter(const std::filesystem::path& directory = {});
  DiskFrameWriter(const DiskFrameWriter&) = delete;
  DiskFrameWriter& operator=(const DiskFrameWriter&) = delete;
  ~DiskFrameWriter() override;

  int count() const override;
  /// Writes `data` at the end of the file. On failure the platform error is thrown and nothing
  /// is recorded, so the index never refers to bytes that were not written.
  void append(std::span<const std::uint8_t> data) override;
  /// Closes the file for writing (once) and returns a store over it and the frames so far. May be
  /// called again; each call returns another store over the same file.
  std::unique_ptr<CompressedFrameStore> finalize() override;
  /// Closes the file if still open and deletes it; stores over it fail to read from then on.
  void discard() noexcept override;

  const std::filesystem::path& fileURL() const noexcept { return fileURL_; }

  /// Deletes what runs that crashed left in `directory`, untouched for more than `age` seconds:
  /// "brimble-frames-" files no writer or store holds (they keep a shared lock on the file for
  /// as long as they live), "brimble-display-" folders and empty ".<name>.brimble-XXXXXX"
  /// temporaries of atomic writes that no running process has open, works in, or names in its
  /// environment. Ignores every failure; logs how many it deleted.
  static void sweepOrphans(const std::filesystem::path& directory, double age);

  static constexpr const char* kFilePrefix = "brimble-frames-";
  /// The private folder of an embedded display session.
  static constexpr const char* kDisplayFolderPrefix = "brimble-display-";

 private:
  const std::filesystem::path fileURL_;
  mutable std::mutex indexMutex_;  // guards the fields below and writes through the handle
  UniqueFd fileHandle_;
  std::vector<FrameExtent> offsets_;
  std::uint64_t currentOffset_ = 0;
  bool isClosed_ = false;
  bool handedOver_ = false;  // a store owns the file now, so the writer must not delete it
};

}  // namespace brimble
