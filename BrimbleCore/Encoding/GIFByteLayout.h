#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace brimble {

/// What the GIF writer takes out of one single-image GIF file.
struct GIFFrameLayout {
  int width = 0;                         // logical screen width
  int height = 0;                        // logical screen height
  std::vector<std::uint8_t> colorTable;  // the global colour table, 3 bytes per entry
  std::uint8_t colorTableSizeBits = 0;   // the table has 2^(bits+1) entries
  std::uint8_t backgroundIndex = 0;
  std::uint8_t aspectRatio = 0;
  std::vector<std::uint8_t> imageDescriptor;  // 10 bytes from the 0x2C introducer on
  std::uint8_t lzwMinimumCodeSize = 0;
  std::vector<std::uint8_t> lzwSubBlocks;  // every data sub-block and the closing empty block
  bool transparentFlag = false;            // from the last graphic control extension, if any
  std::uint8_t transparentIndex = 0;

  bool operator==(const GIFFrameLayout&) const = default;
};

namespace GIFByteLayout {

/// Splits a single-image GIF into its pieces. Throws MuxError::unexpectedLayout naming the first
/// thing that is missing or unexpected; anything after the first image is ignored.
GIFFrameLayout parseSingleFrame(std::span<const std::uint8_t> data);

}  // namespace GIFByteLayout
}  // namespace brimble
