#include "BrimbleCore/Encoding/GIFByteLayout.h"

#include <cstdio>
#include <string>

#include "BrimbleCore/Encoding/MuxError.h"

namespace brimble::GIFByteLayout {
namespace {

constexpr std::uint8_t kExtensionIntroducer = 0x21;
constexpr std::uint8_t kImageIntroducer = 0x2C;
constexpr std::uint8_t kGraphicControlLabel = 0xF9;
constexpr std::size_t kScreenDescriptorEnd = 13;
constexpr std::size_t kImageDescriptorLength = 10;

[[noreturn]] void fail(const char* message) {
  throw MuxError::unexpectedLayout(message);
}

/// Skips a chain of data sub-blocks starting at `p`; returns the position after its empty block.
std::size_t skipSubBlocks(std::span<const std::uint8_t> data, std::size_t p,
                          const char* truncatedLength, const char* truncatedBody) {
  while (true) {
    if (p >= data.size()) {
      fail(truncatedLength);
    }
    const std::size_t length = data[p];
    ++p;
    if (length == 0) {
      return p;
    }
    if (length > data.size() - p) {
      fail(truncatedBody);
    }
    p += length;
  }
}

}  // namespace

GIFFrameLayout parseSingleFrame(std::span<const std::uint8_t> data) {
  if (data.size() < 6) {
    fail("truncated before header");
  }
  if (data[0] != 'G' || data[1] != 'I' || data[2] != 'F') {
    fail("not a GIF");
  }
  if (data.size() < kScreenDescriptorEnd) {
    fail("truncated before logical screen descriptor");
  }
  const std::uint8_t packed = data[10];
  if ((packed & 0x80) == 0) {
    fail("no global color table to relocate");
  }
  GIFFrameLayout layout;
  layout.colorTableSizeBits = packed & 0x07;
  const std::size_t tableLength = std::size_t{3} << (layout.colorTableSizeBits + 1);
  if (data.size() < kScreenDescriptorEnd + tableLength) {
    fail("truncated before global color table");
  }
  layout.width = data[6] | (data[7] << 8);
  layout.height = data[8] | (data[9] << 8);
  layout.backgroundIndex = data[11];
  layout.aspectRatio = data[12];
  layout.colorTable.assign(
      data.begin() + kScreenDescriptorEnd,
      data.begin() + static_cast<std::ptrdiff_t>(kScreenDescriptorEnd + tableLength));

  std::size_t p = kScreenDescriptorEnd + tableLength;
  while (true) {
    if (p >= data.size()) {
      fail("truncated before block introducer");
    }
    const std::uint8_t introducer = data[p];
    if (introducer == kExtensionIntroducer) {
      if (p + 1 >= data.size()) {
        fail("truncated before extension label");
      }
      const std::uint8_t label = data[p + 1];
      const std::size_t next = skipSubBlocks(data, p + 2, "truncated before sub-block length",
                                             "truncated before sub-block body");
      if (label == kGraphicControlLabel) {
        if (p + 7 >= data.size()) {
          fail("short graphic control extension");
        }
        layout.transparentFlag = (data[p + 3] & 1) != 0;
        layout.transparentIndex = data[p + 6];
      }
      p = next;
    } else if (introducer == kImageIntroducer) {
      if (data.size() - p < kImageDescriptorLength) {
        fail("truncated before image descriptor");
      }
      if ((data[p + 9] & 0x80) != 0) {
        fail("source frame already has a local color table");
      }
      if (p + kImageDescriptorLength >= data.size()) {
        fail("truncated before lzw minimum code size");
      }
      const std::size_t blocksStart = p + kImageDescriptorLength + 1;
      const std::size_t blocksEnd =
          skipSubBlocks(data, blocksStart, "truncated before lzw sub-block length",
                        "truncated before lzw sub-block body");
      const auto at = [&](std::size_t offset) {
        return data.begin() + static_cast<std::ptrdiff_t>(offset);
      };
      layout.imageDescriptor.assign(at(p), at(p + kImageDescriptorLength));
      layout.lzwMinimumCodeSize = data[p + kImageDescriptorLength];
      layout.lzwSubBlocks.assign(at(blocksStart), at(blocksEnd));
      return layout;
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "%X", introducer);
      throw MuxError::unexpectedLayout(std::string("unexpected block introducer 0x") + hex);
    }
  }
}

}  // namespace brimble::GIFByteLayout
