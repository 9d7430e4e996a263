#include "BrimbleCore/Encoding/GIFByteLayout.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/MuxError.h"

namespace brimble {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// A 3x2 logical screen with a 2-entry global table (bits 0), background 1, aspect 0.
const Bytes kHeader = {'G', 'I', 'F', '8', '9', 'a', 3, 0, 2, 0, 0x80, 1, 0};
const Bytes kTable = {10, 20, 30, 40, 50, 60};
const Bytes kDescriptor = {0x2C, 1, 0, 0, 0, 2, 0, 2, 0, 0x00};
const Bytes kImageData = {0x02, 0x02, 0x4C, 0x01, 0x00};  // min code size 2, one block, end

std::string parseFailure(const Bytes& data) {
  try {
    GIFByteLayout::parseSingleFrame(data);
  } catch (const MuxError& error) {
    EXPECT_EQ(error.code(), MuxError::Code::unexpectedLayout);
    return error.what();
  }
  return "(parsed)";
}

TEST(GIFByteLayout, TakesSingleImageFilesApart) {
  const GIFFrameLayout plain{.width = 3,
                             .height = 2,
                             .colorTable = kTable,
                             .backgroundIndex = 1,
                             .imageDescriptor = kDescriptor,
                             .lzwMinimumCodeSize = 2,
                             .lzwSubBlocks = {0x02, 0x4C, 0x01, 0x00}};
  const auto transparent = [&](bool flag, std::uint8_t index) {
    GIFFrameLayout layout = plain;
    layout.transparentFlag = flag;
    layout.transparentIndex = index;
    return layout;
  };
  GIFFrameLayout wide = plain;
  wide.width = 800;
  wide.height = 500;
  wide.colorTable = Bytes(768, 0xAB);
  wide.colorTableSizeBits = 7;
  wide.backgroundIndex = 0;
  wide.aspectRatio = 49;
  const Bytes start = kHeader + kTable;
  const Bytes image = kDescriptor + kImageData;
  const std::pair<Bytes, GIFFrameLayout> cases[] = {
      {start + image, plain},
      // A comment is skipped; the control extension gives transparent index 1.
      {start + Bytes{0x21, 0xFE, 0x03, 'a', 'b', 'c', 0x00} +
           Bytes{0x21, 0xF9, 0x04, 0x05, 0x0A, 0x00, 0x01, 0x00} + image + Bytes{0x3B},
       transparent(true, 1)},
      // The last control extension before the image counts, and what follows it is ignored.
      {start + Bytes{0x21, 0xF9, 0x04, 0x01, 0, 0, 0x07, 0x00} +
           Bytes{0x21, 0xF9, 0x04, 0x00, 0, 0, 0x09, 0x00} + image + Bytes{0x99, 0x99},
       transparent(false, 9)},
      // Three body bytes put byte p+7 just inside the data when the image follows.
      {start + Bytes{0x21, 0xF9, 0x03, 0x01, 0x00, 0x00, 0x00} + image, transparent(true, 0)},
      {Bytes{'G', 'I', 'F', '8', '7', 'a', 0x20, 0x03, 0xF4, 0x01, 0xF7, 0, 49} + Bytes(768, 0xAB) +
           image,
       wide},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_TRUE(GIFByteLayout::parseSingleFrame(cases[i].first) == cases[i].second) << "case " << i;
  }
}

TEST(GIFByteLayout, EveryTruncationAndOddityIsNamed) {
  const Bytes start = kHeader + kTable;
  const Bytes noTable = {'G', 'I', 'F', '8', '9', 'a', 3, 0, 2, 0, 0x00, 0, 0};
  const struct {
    Bytes data;
    std::string message;
  } cases[] = {
      {{}, "truncated before header"},
      {{'G', 'I', 'F', '8', '9'}, "truncated before header"},
      {{'P', 'N', 'G', '8', '9', 'a', 0, 0}, "not a GIF"},
      {{'G', 'I', 'F', '8', '9', 'a', 3, 0, 2, 0, 0x80, 1},
       "truncated before logical screen descriptor"},
      {noTable + kDescriptor + kImageData, "no global color table to relocate"},
      {kHeader + Bytes{10, 20, 30, 40, 50}, "truncated before global color table"},
      {start, "truncated before block introducer"},
      {start + Bytes{0x21, 0xFE, 0x00}, "truncated before block introducer"},
      {start + Bytes{0x21}, "truncated before extension label"},
      {start + Bytes{0x21, 0xFE}, "truncated before sub-block length"},
      {start + Bytes{0x21, 0xFE, 0x02, 'a', 'b'}, "truncated before sub-block length"},
      {start + Bytes{0x21, 0xFE, 0x05, 'a', 'b'}, "truncated before sub-block body"},
      {start + Bytes{0x21, 0xF9, 0x01, 0x01, 0x00}, "short graphic control extension"},
      {start + Bytes{0x2C, 0, 0, 0, 0, 1, 0, 1, 0}, "truncated before image descriptor"},
      {start + Bytes{0x2C, 0, 0, 0, 0, 1, 0, 1, 0, 0x81, 0x02},
       "source frame already has a local color table"},
      {start + kDescriptor, "truncated before lzw minimum code size"},
      {start + kDescriptor + Bytes{0x02}, "truncated before lzw sub-block length"},
      {start + kDescriptor + Bytes{0x02, 0x03, 0x4C}, "truncated before lzw sub-block body"},
      {start + kDescriptor + Bytes{0x02, 0x01, 0x4C}, "truncated before lzw sub-block length"},
      {start + Bytes{0x3B}, "unexpected block introducer 0x3B"},
      {start + Bytes{0x05}, "unexpected block introducer 0x5"},
      {start + Bytes{0x21, 0xFE, 0x00, 0xAB}, "unexpected block introducer 0xAB"},
  };
  for (const auto& example : cases) {
    EXPECT_EQ(parseFailure(example.data), example.message)
        << "input of " << example.data.size() << " bytes";
  }
}

}  // namespace
}  // namespace brimble
