#include "BrimbleCore/Encoding/FrameComparison.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "BrimbleCore/Encoding/SampledDifference.h"

namespace brimble::FrameComparison {
namespace {

// Pixels are B, G, R, A in memory, so on a little-endian machine alpha is the top byte.
constexpr std::uint32_t kColorMask = 0x00FFFFFF;
constexpr std::uint32_t kOpaque = 0xFF000000;
// JPEG at the recorders' quality moves a static pixel by a few levels at most.
constexpr int kEveryPixelTolerance = 10;

}  // namespace

std::optional<Image> createDiffFrame(const Image& current, const Image& previous, int tolerance) {
  if (current.width() != previous.width() || current.height() != previous.height()) {
    return std::nullopt;
  }
  const Image now = current.toBGRA8();
  const Image before = previous.toBGRA8();
  const auto width = static_cast<std::size_t>(now.width());
  PixelBuffer bytes(width * 4 * static_cast<std::size_t>(now.height()));
  std::uint8_t* out = bytes.data();
  for (int y = 0; y < now.height(); ++y, out += 4 * width) {
    const std::uint8_t* a = now.row(y).data();
    const std::uint8_t* b = before.row(y).data();
    if (tolerance == 0) {
      // Screens change in a few places: most rows are identical and stay transparent.
      if (std::memcmp(a, b, 4 * width) == 0) {
        std::memset(out, 0, 4 * width);
        continue;
      }
      // Whole-pixel compares without branches, which the compiler turns into vector code.
      for (std::size_t x = 0; x < width; ++x) {
        std::uint32_t p;
        std::uint32_t q;
        std::memcpy(&p, a + 4 * x, 4);
        std::memcpy(&q, b + 4 * x, 4);
        const std::uint32_t pixel = ((p ^ q) & kColorMask) != 0 ? (p | kOpaque) : 0;
        std::memcpy(out + 4 * x, &pixel, 4);
      }
      continue;
    }
    for (std::size_t x = 0; x < width; ++x) {
      const std::uint8_t* p = a + 4 * x;
      const std::uint8_t* q = b + 4 * x;
      if (std::abs(p[0] - q[0]) > tolerance || std::abs(p[1] - q[1]) > tolerance ||
          std::abs(p[2] - q[2]) > tolerance) {
        std::memcpy(out + 4 * x, p, 3);
        out[4 * x + 3] = 0xFF;
      } else {
        std::memset(out + 4 * x, 0, 4);
      }
    }
  }
  return Image::bgra8(now.width(), now.height(), std::move(bytes));
}

bool framesRepeat(const Image& kept, const Image& next, DedupRule rule) {
  return rule == DedupRule::sampled ? compressedFramesAreSimilar(kept, next)
                                    : framesMatchEveryPixel(kept, next, kEveryPixelTolerance);
}

bool framesMatchEveryPixel(const Image& a, const Image& b, int tolerance) {
  if (a.width() != b.width() || a.height() != b.height()) {
    return false;
  }
  const Image left = a.toBGRA8();
  const Image right = b.toBGRA8();
  for (int y = 0; y < left.height(); ++y) {
    const auto p = left.row(y);
    const auto q = right.row(y);
    if (std::memcmp(p.data(), q.data(), p.size()) == 0) {
      continue;
    }
    // Branch-free per row so the compiler vectorises it.
    int worst = 0;
    for (std::size_t i = 0; i < p.size(); ++i) {
      const int difference = std::abs(p[i] - q[i]) & ((i & 3) == 3 ? 0 : 0xFF);
      worst = std::max(worst, difference);
    }
    if (worst > tolerance) {
      return false;
    }
  }
  return true;
}

bool compressedFramesAreSimilar(const Image& a, const Image& b) {
  if (a.width() != b.width() || a.height() != b.height()) {
    return false;
  }
  const auto first = a.bytes();
  const auto second = b.bytes();
  if (first.empty() || second.empty() || a.bitsPerPixel() < 24 || b.bitsPerPixel() < 24) {
    return false;
  }
  const std::size_t pixelCount = static_cast<std::size_t>(a.width()) * a.height();
  const bool small = pixelCount < 100;
  const std::size_t stride = small ? 1 : pixelCount / 100;
  // Up to 5 of about 100 samples may differ; for tiny images the same share, 205/4096.
  const std::size_t allowed = small ? pixelCount * 205 / 4096 : 5;
  return countDifferingSamples(a, b, stride, 10, allowed + 1) <= allowed;
}

}  // namespace brimble::FrameComparison
