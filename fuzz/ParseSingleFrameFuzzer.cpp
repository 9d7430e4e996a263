// Any bytes at all: parseSingleFrame either returns a layout that lies inside the input or throws
// MuxError; it never reads out of bounds, hangs or throws anything else.

#include <cstdint>
#include <cstdlib>
#include <span>

#include "BrimbleCore/Encoding/GIFByteLayout.h"
#include "BrimbleCore/Encoding/MuxError.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const brimble::GIFFrameLayout layout =
        brimble::GIFByteLayout::parseSingleFrame(std::span<const std::uint8_t>(data, size));
    const std::size_t pieces = 13 + layout.colorTable.size() + layout.imageDescriptor.size() + 1 +
                               layout.lzwSubBlocks.size();
    if (pieces > size || layout.imageDescriptor.size() != 10 || layout.lzwSubBlocks.empty() ||
        layout.lzwSubBlocks.back() != 0 ||
        layout.colorTable.size() != (std::size_t{3} << (layout.colorTableSizeBits + 1))) {
      std::abort();
    }
  } catch (const brimble::MuxError&) {
  }
  return 0;
}
