#include "BrimbleCore/Encoding/CompressedFrameStore.h"

namespace brimble {

CompressedFrameStoreError CompressedFrameStoreError::indexOutOfRange(long index,
                                                                     std::size_t count) {
  return {Code::indexOutOfRange, "frame index " + std::to_string(index) +
                                     " is out of range for a store of " + std::to_string(count) +
                                     " frame(s)"};
}

CompressedFrameStoreError CompressedFrameStoreError::writerUnavailable(
    const std::filesystem::path& file) {
  return {Code::writerUnavailable, "could not create the frame file " + file.string()};
}

std::vector<std::uint8_t> InMemoryFrameStore::data(int index) const {
  if (index < 0 || static_cast<std::size_t>(index) >= frames.size()) {
    throw CompressedFrameStoreError::indexOutOfRange(index, frames.size());
  }
  return frames[static_cast<std::size_t>(index)];
}

}  // namespace brimble
