#pragma once

#include <filesystem>
#include <vector>

#include "BrimbleCore/Encoding/CompressedFrameStore.h"

namespace brimble {

/// Image files (JPEG or PNG) as a frame store, read when asked for. Thread-safe.
class FileFrameStore final : public CompressedFrameStore {
 public:
  explicit FileFrameStore(std::vector<std::filesystem::path> files) : files_(std::move(files)) {}

  int count() const override { return static_cast<int>(files_.size()); }
  /// The file's bytes. Throws indexOutOfRange, or ImageCodecError when the file cannot be read.
  std::vector<std::uint8_t> data(int index) const override;

  const std::vector<std::filesystem::path>& files() const noexcept { return files_; }

 private:
  const std::vector<std::filesystem::path> files_;
};

}  // namespace brimble
