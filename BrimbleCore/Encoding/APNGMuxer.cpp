#include "BrimbleCore/Encoding/APNGMuxer.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include <zlib.h>

#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/MuxTiming.h"
#include "BrimbleCore/Encoding/StraightAlpha.h"

namespace brimble {
namespace {

constexpr std::uint8_t kColorTypeRGB = 2;
constexpr std::uint8_t kColorTypeRGBA = 6;
constexpr std::uint8_t kDisposeNone = 0;
constexpr std::uint8_t kBlendSource = 0;

void put32(std::vector<std::uint8_t>& out, std::uint32_t value) {
  out.push_back(static_cast<std::uint8_t>(value >> 24));
  out.push_back(static_cast<std::uint8_t>(value >> 16));
  out.push_back(static_cast<std::uint8_t>(value >> 8));
  out.push_back(static_cast<std::uint8_t>(value));
}

void put16(std::vector<std::uint8_t>& out, std::uint16_t value) {
  out.push_back(static_cast<std::uint8_t>(value >> 8));
  out.push_back(static_cast<std::uint8_t>(value));
}

struct Rect {
  int left;
  int top;
  int width;
  int height;
};

/// The smallest rectangle holding every pixel of `current` that differs from `previous`; one
/// pixel when nothing changed (a frame must hold at least one).
Rect changedRect(const Image& current, const Image& previous) {
  int minX = current.width();
  int maxX = -1;
  int minY = current.height();
  int maxY = -1;
  for (int y = 0; y < current.height(); ++y) {
    const auto a = current.row(y);
    const auto b = previous.row(y);
    if (std::memcmp(a.data(), b.data(), a.size()) == 0) {
      continue;
    }
    int first = -1;
    int last = -1;
    for (int x = 0; x < current.width(); ++x) {
      if (std::memcmp(a.data() + 4 * x, b.data() + 4 * x, 4) != 0) {
        first = first < 0 ? x : first;
        last = x;
      }
    }
    minX = std::min(minX, first);
    maxX = std::max(maxX, last);
    minY = std::min(minY, y);
    maxY = y;
  }
  if (maxX < 0) {
    return {0, 0, 1, 1};
  }
  return {minX, minY, maxX - minX + 1, maxY - minY + 1};
}

int paeth(int a, int b, int c) {
  const int p = a + b - c;
  const int pa = std::abs(p - a);
  const int pb = std::abs(p - b);
  const int pc = std::abs(p - c);
  if (pa <= pb && pa <= pc) {
    return a;
  }
  return pb <= pc ? b : c;
}

/// The filtered scanlines of `rect`, each row with the filter that leaves the smallest sum of
/// absolute values (the usual heuristic), then deflated into a zlib stream.
std::vector<std::uint8_t> compressRect(const Image& image, Rect rect, bool withAlpha) {
  const std::size_t channels = withAlpha ? 4 : 3;
  const std::size_t rowBytes = static_cast<std::size_t>(rect.width) * channels;
  std::vector<std::uint8_t> previous(rowBytes, 0);
  std::vector<std::uint8_t> current(rowBytes);
  std::array<std::vector<std::uint8_t>, 5> candidates;
  for (auto& candidate : candidates) {
    candidate.resize(rowBytes);
  }
  std::vector<std::uint8_t> raw;
  raw.reserve((rowBytes + 1) * static_cast<std::size_t>(rect.height));
  for (int y = rect.top; y < rect.top + rect.height; ++y) {
    const std::uint8_t* pixel = image.row(y).data() + static_cast<std::size_t>(rect.left) * 4;
    for (std::size_t x = 0; x < static_cast<std::size_t>(rect.width); ++x, pixel += 4) {
      // Stored as R, G, B(, A) with straight alpha; ours is B, G, R, A premultiplied.
      const unsigned alpha = withAlpha ? pixel[3] : 255;
      for (std::size_t c = 0; c < 3; ++c) {
        current[x * channels + c] = unpremultiplied(pixel[2 - c], alpha);
      }
      if (withAlpha) {
        current[x * channels + 3] = static_cast<std::uint8_t>(alpha);
      }
    }
    std::size_t best = 0;
    std::uint64_t bestCost = UINT64_MAX;
    for (std::size_t filter = 0; filter < candidates.size(); ++filter) {
      std::uint64_t cost = 0;
      for (std::size_t i = 0; i < rowBytes; ++i) {
        const int left = i >= channels ? current[i - channels] : 0;
        const int up = previous[i];
        const int upLeft = i >= channels ? previous[i - channels] : 0;
        int predicted = 0;
        switch (filter) {
          case 1:
            predicted = left;
            break;
          case 2:
            predicted = up;
            break;
          case 3:
            predicted = (left + up) / 2;
            break;
          case 4:
            predicted = paeth(left, up, upLeft);
            break;
          default:
            break;
        }
        const auto value = static_cast<std::uint8_t>(current[i] - predicted);
        candidates[filter][i] = value;
        cost += value < 128 ? value : 256 - value;
      }
      if (cost < bestCost) {
        bestCost = cost;
        best = filter;
      }
    }
    raw.push_back(static_cast<std::uint8_t>(best));
    raw.insert(raw.end(), candidates[best].begin(), candidates[best].end());
    std::swap(previous, current);
  }
  uLongf size = compressBound(static_cast<uLong>(raw.size()));
  std::vector<std::uint8_t> compressed(size);
  if (compress2(compressed.data(), &size, raw.data(), static_cast<uLong>(raw.size()), 6) != Z_OK) {
    throw MuxError::encoderFailed();
  }
  compressed.resize(size);
  return compressed;
}

}  // namespace

APNGMuxer::APNGMuxer(std::unique_ptr<ByteSink> sink, int loopCount, bool withAlpha)
    : sink_(std::move(sink)), loopCount_(loopCount), withAlpha_(withAlpha) {}

void APNGMuxer::writeChunk(const char type[4], const std::vector<std::uint8_t>& data) {
  std::vector<std::uint8_t> chunk;
  chunk.reserve(data.size() + 12);
  put32(chunk, static_cast<std::uint32_t>(data.size()));
  chunk.insert(chunk.end(), type, type + 4);
  chunk.insert(chunk.end(), data.begin(), data.end());
  const uLong crc =
      crc32(crc32(0, nullptr, 0), chunk.data() + 4, static_cast<uInt>(data.size() + 4));
  put32(chunk, static_cast<std::uint32_t>(crc));
  sink_->write(chunk);
}

void APNGMuxer::writeHeader(const Image& first) {
  if (!withAlpha_) {
    withAlpha_ = hasTranslucentPixels(first);
  }
  static constexpr std::uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  sink_->write(kSignature);
  std::vector<std::uint8_t> header;
  put32(header, static_cast<std::uint32_t>(width_));
  put32(header, static_cast<std::uint32_t>(height_));
  header.insert(header.end(), {8, withAlpha_ ? kColorTypeRGBA : kColorTypeRGB, 0, 0, 0});
  writeChunk("IHDR", header);
  animationControlOffset_ = sink_->offset();
  std::vector<std::uint8_t> control;
  put32(control, 0);  // frame count, patched at finish
  put32(control, static_cast<std::uint32_t>(std::max(loopCount_, 0)));
  writeChunk("acTL", control);
}

void APNGMuxer::append(const Image& source, double delay) {
  if (frameCount_ > 0 && (source.width() != width_ || source.height() != height_)) {
    throw MuxError::inconsistentCanvas();
  }
  if (source.empty()) {
    throw MuxError::encoderFailed();
  }
  const Image image = source.toBGRA8();
  Rect rect{0, 0, image.width(), image.height()};
  if (frameCount_ == 0) {
    width_ = image.width();
    height_ = image.height();
    writeHeader(image);
  } else {
    if (!withAlpha_ && hasTranslucentPixels(image)) {
      throw MuxError::unsupportedColorType(kColorTypeRGBA);
    }
    rect = changedRect(image, previousFrame_);
  }
  const MuxTiming::APNGDelay timing = MuxTiming::apngRational(delay);
  std::vector<std::uint8_t> control;
  put32(control, sequenceNumber_++);
  put32(control, static_cast<std::uint32_t>(rect.width));
  put32(control, static_cast<std::uint32_t>(rect.height));
  put32(control, static_cast<std::uint32_t>(rect.left));
  put32(control, static_cast<std::uint32_t>(rect.top));
  put16(control, timing.numerator);
  put16(control, timing.denominator);
  control.push_back(kDisposeNone);
  control.push_back(kBlendSource);
  writeChunk("fcTL", control);

  std::vector<std::uint8_t> data = compressRect(image, rect, withAlpha_);
  if (frameCount_ == 0) {
    writeChunk("IDAT", data);
  } else {
    std::vector<std::uint8_t> frameData;
    frameData.reserve(data.size() + 4);
    put32(frameData, sequenceNumber_++);
    frameData.insert(frameData.end(), data.begin(), data.end());
    writeChunk("fdAT", frameData);
  }
  previousFrame_ = image;
  ++frameCount_;
}

void APNGMuxer::finish() {
  if (frameCount_ == 0) {
    throw MuxError::noFramesAppended();
  }
  writeChunk("IEND", {});
  std::vector<std::uint8_t> count;
  put32(count, frameCount_);
  sink_->patch(animationControlOffset_ + 8, count);
  std::vector<std::uint8_t> body = {'a', 'c', 'T', 'L'};
  body.insert(body.end(), count.begin(), count.end());
  put32(body, static_cast<std::uint32_t>(std::max(loopCount_, 0)));
  std::vector<std::uint8_t> crc;
  put32(crc, static_cast<std::uint32_t>(
                 crc32(crc32(0, nullptr, 0), body.data(), static_cast<uInt>(body.size()))));
  sink_->patch(animationControlOffset_ + 16, crc);
  sink_->close();
}

}  // namespace brimble
