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

TEST(GIFByteLayout, TakesASingleImageFileApart) {
  const Bytes comment = {0x21, 0xFE, 0x03, 'a', 'b', 'c', 0x00};
  const Bytes control = {0x21, 0xF9, 0x04, 0x05, 0x0A, 0x00, 0x01, 0x00};
  const Bytes data = kHeader + kTable + comment + control + kDescriptor + kImageData + Bytes{0x3B};
  const GIFFrameLayout layout = GIFByteLayout::parseSingleFrame(data);
  EXPECT_EQ(layout.width, 3);
  EXPECT_EQ(layout.height, 2);
  EXPECT_EQ(layout.colorTable, kTable);
  EXPECT_EQ(layout.colorTableSizeBits, 0);
  EXPECT_EQ(layout.backgroundIndex, 1);
  EXPECT_EQ(layout.aspectRatio, 0);
  EXPECT_EQ(layout.imageDescriptor, kDescriptor);
  EXPECT_EQ(layout.lzwMinimumCodeSize, 2);
  EXPECT_EQ(layout.lzwSubBlocks, (Bytes{0x02, 0x4C, 0x01, 0x00}));
  EXPECT_TRUE(layout.transparentFlag);
  EXPECT_EQ(layout.transparentIndex, 1);
}

TEST(GIFByteLayout, UsesTheLastGraphicControlBeforeTheImageAndIgnoresWhatFollows) {
  const Bytes transparent = {0x21, 0xF9, 0x04, 0x01, 0, 0, 0x07, 0x00};
  const Bytes opaque = {0x21, 0xF9, 0x04, 0x00, 0, 0, 0x09, 0x00};
  const GIFFrameLayout layout = GIFByteLayout::parseSingleFrame(
      kHeader + kTable + transparent + opaque + kDescriptor + kImageData + Bytes{0x99, 0x99});
  EXPECT_FALSE(layout.transparentFlag);
  EXPECT_EQ(layout.transparentIndex, 9);

  const GIFFrameLayout plain =
      GIFByteLayout::parseSingleFrame(kHeader + kTable + kDescriptor + kImageData);
  EXPECT_FALSE(plain.transparentFlag);
  EXPECT_EQ(plain.transparentIndex, 0);
}

TEST(GIFByteLayout, ReadsLargeTablesAndWideScreens) {
  Bytes header = {'G', 'I', 'F', '8', '7', 'a', 0x20, 0x03, 0xF4, 0x01, 0xF7, 0, 49};
  const Bytes table(768, 0xAB);
  const GIFFrameLayout layout =
      GIFByteLayout::parseSingleFrame(header + table + kDescriptor + kImageData);
  EXPECT_EQ(layout.width, 800);
  EXPECT_EQ(layout.height, 500);
  EXPECT_EQ(layout.colorTableSizeBits, 7);
  EXPECT_EQ(layout.colorTable.size(), 768u);
  EXPECT_EQ(layout.aspectRatio, 49);
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

TEST(GIFByteLayout, AShortGraphicControlThatReachesByteSevenIsRead) {
  // Three body bytes put byte p+7 just inside the data when the image follows.
  const Bytes control = {0x21, 0xF9, 0x03, 0x01, 0x00, 0x00, 0x00};
  const GIFFrameLayout layout =
      GIFByteLayout::parseSingleFrame(kHeader + kTable + control + kDescriptor + kImageData);
  EXPECT_TRUE(layout.transparentFlag);
  EXPECT_EQ(layout.transparentIndex, 0x00);
}

}  // namespace
}  // namespace brimble
