#include "BrimbleCore/Encoding/FileFrameStore.h"

#include "BrimbleCore/Encoding/ImageCodec.h"

namespace brimble {

std::vector<std::uint8_t> FileFrameStore::data(int index) const {
  if (index < 0 || static_cast<std::size_t>(index) >= files_.size()) {
    throw CompressedFrameStoreError::indexOutOfRange(index, files_.size());
  }
  return readFileBytes(files_[static_cast<std::size_t>(index)]);
}

}  // namespace brimble
