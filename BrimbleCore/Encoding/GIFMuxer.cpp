#include "BrimbleCore/Encoding/GIFMuxer.h"

#include <array>

#include "BrimbleCore/Encoding/FrameComparison.h"
#include "BrimbleCore/Encoding/IndexedFrame.h"
#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/MuxTiming.h"
#include "BrimbleCore/Encoding/SingleImageGIF.h"

namespace brimble {
namespace {

constexpr std::uint8_t kTrailer = 0x3B;
// Global table present, colour resolution 7 (8 bits per primary), table not sorted.
constexpr std::uint8_t kGlobalTableFlags = 0xF0;
constexpr std::uint8_t kLocalTableFlag = 0x80;
constexpr std::uint8_t kInterlaceFlag = 0x40;
// Disposal method 1, "do not dispose": transparent pixels of a difference frame show the frame
// underneath.
constexpr std::uint8_t kDoNotDispose = 0x04;

void putLittleEndian16(std::uint8_t* at, std::uint16_t value) {
  at[0] = static_cast<std::uint8_t>(value & 0xFF);
  at[1] = static_cast<std::uint8_t>(value >> 8);
}

}  // namespace

GIFMuxer::GIFMuxer(std::unique_ptr<ByteSink> sink, int loopCount, bool frameDiffing,
                   int diffTolerance)
    : sink_(std::move(sink)),
      loopCount_(loopCount),
      frameDiffing_(frameDiffing),
      diffTolerance_(diffTolerance) {}

std::vector<std::uint8_t> GIFMuxer::encodeStandalone(const Image& image) {
  if (image.empty()) {
    throw MuxError::encoderFailed();
  }
  return encodeSingleImageGIF(indexFrame(image), image.width(), image.height());
}

void GIFMuxer::append(const Image& image, double delay) {
  if (canvas_ && (image.width() != canvas_->width || image.height() != canvas_->height)) {
    throw MuxError::inconsistentCanvas();
  }
  std::optional<Image> difference;
  if (frameDiffing_ && !previousFrame_.empty()) {
    difference = FrameComparison::createDiffFrame(image, previousFrame_, diffTolerance_);
  }
  // Differences are always taken between consecutive source frames, never against a diff.
  previousFrame_ = image;
  const GIFFrameLayout layout =
      GIFByteLayout::parseSingleFrame(encodeStandalone(difference ? *difference : image));
  if (!canvas_) {
    canvas_ = Canvas{layout.width, layout.height};
    writeHeader(layout);
  }
  writeFrame(layout, delay);
  ++frameCount_;
}

void GIFMuxer::finish() {
  if (frameCount_ < 1) {
    throw MuxError::noFramesAppended();
  }
  sink_->write(std::array{kTrailer});
  sink_->close();
}

void GIFMuxer::writeHeader(const GIFFrameLayout& layout) {
  std::vector<std::uint8_t> header = {'G', 'I', 'F', '8', '9', 'a', 0, 0, 0, 0};
  putLittleEndian16(&header[6], static_cast<std::uint16_t>(layout.width));
  putLittleEndian16(&header[8], static_cast<std::uint16_t>(layout.height));
  header.push_back(layout.colorTableSizeBits | kGlobalTableFlags);
  header.push_back(layout.backgroundIndex);
  header.push_back(layout.aspectRatio);
  header.insert(header.end(), layout.colorTable.begin(), layout.colorTable.end());
  sink_->write(header);
  globalTable_ = layout.colorTable;

  if (const auto repetitions = MuxTiming::netscapeRepetitions(loopCount_)) {
    std::array<std::uint8_t, 19> loop = {0x21, 0xFF, 0x0B, 'N', 'E',  'T',  'S', 'C', 'A', 'P',
                                         'E',  '2',  '.',  '0', 0x03, 0x01, 0,   0,   0x00};
    putLittleEndian16(&loop[16], *repetitions);
    sink_->write(loop);
  }
}

void GIFMuxer::writeFrame(const GIFFrameLayout& layout, double delay) {
  std::array<std::uint8_t, 8> control = {
      0x21, 0xF9, 0x04, kDoNotDispose, 0, 0, layout.transparentIndex, 0x00};
  if (layout.transparentFlag) {
    control[3] |= 1;
  }
  putLittleEndian16(&control[4], MuxTiming::gifDelayCentiseconds(delay));
  sink_->write(control);

  std::vector<std::uint8_t> descriptor = layout.imageDescriptor;
  if (reuseGlobalTable_ && layout.colorTable == globalTable_) {
    descriptor[9] = descriptor[9] & kInterlaceFlag;
    sink_->write(descriptor);
  } else {
    descriptor[9] = static_cast<std::uint8_t>((descriptor[9] & kInterlaceFlag) |
                                              layout.colorTableSizeBits | kLocalTableFlag);
    sink_->write(descriptor);
    sink_->write(layout.colorTable);
  }
  sink_->write(std::array{layout.lzwMinimumCodeSize});
  sink_->write(layout.lzwSubBlocks);
}

}  // namespace brimble
