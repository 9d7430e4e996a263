#include "BrimbleCore/Encoding/ImageScaler.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <vector>

namespace brimble::ImageScaler {
namespace {

constexpr int kLobes = 3;
constexpr int kWeightBits = 14;  // fixed-point weights: sums of 255 * 2^14 fit easily in 32 bits

double lanczos(double x) {
  if (x == 0) {
    return 1;
  }
  if (x <= -kLobes || x >= kLobes) {
    return 0;
  }
  const double px = std::numbers::pi * x;
  return kLobes * std::sin(px) * std::sin(px / kLobes) / (px * px);
}

/// For each output position, the first source index it reads and one fixed-point weight per
/// tap (all rows of taps equally long, unused taps weigh 0), normalised to sum to 2^14.
struct FilterBank {
  int sources = 0;  // input rows (or columns) there are to read
  int taps = 0;
  std::vector<int> first;
  std::vector<std::int32_t> weights;
};

FilterBank makeFilterBank(int source, int target) {
  const double scale = static_cast<double>(source) / target;
  const double widen = std::max(scale, 1.0);
  const double support = kLobes * widen;
  FilterBank bank;
  bank.sources = source;
  bank.taps = static_cast<int>(std::ceil(support)) * 2 + 1;
  bank.first.resize(static_cast<std::size_t>(target));
  bank.weights.assign(static_cast<std::size_t>(target) * bank.taps, 0);
  std::vector<double> real(static_cast<std::size_t>(bank.taps));
  for (int out = 0; out < target; ++out) {
    const double center = (out + 0.5) * scale - 0.5;
    const int start = static_cast<int>(std::floor(center - support)) + 1;
    // Taps past the image's edges repeat the edge pixel; fold them onto it.
    const int first = std::clamp(start, 0, std::max(source - bank.taps, 0));
    std::fill(real.begin(), real.end(), 0.0);
    double total = 0;
    for (int k = 0; k < bank.taps; ++k) {
      const int index = start + k;
      const double weight = lanczos((index - center) / widen);
      const int clamped = std::clamp(index, 0, source - 1);
      const int slot = clamped - first;
      if (slot >= 0 && slot < bank.taps) {
        real[static_cast<std::size_t>(slot)] += weight;
        total += weight;
      }
    }
    bank.first[static_cast<std::size_t>(out)] = first;
    std::int32_t fixedTotal = 0;
    int biggest = 0;
    for (int k = 0; k < bank.taps; ++k) {
      const auto fixed = static_cast<std::int32_t>(
          std::lround(real[static_cast<std::size_t>(k)] / total * (1 << kWeightBits)));
      bank.weights[static_cast<std::size_t>(out) * bank.taps + k] = fixed;
      fixedTotal += fixed;
      if (std::abs(real[static_cast<std::size_t>(k)]) >
          std::abs(real[static_cast<std::size_t>(biggest)])) {
        biggest = k;
      }
    }
    // Rounding must not brighten or darken flat areas: give the remainder to the centre tap.
    bank.weights[static_cast<std::size_t>(out) * bank.taps + biggest] +=
        (1 << kWeightBits) - fixedTotal;
  }
  return bank;
}

/// Every frame of a recording has the same size, so each thread keeps the last bank it built for
/// each direction (0 rows, 1 columns).
const FilterBank& cachedFilterBank(int direction, int source, int target) {
  struct Entry {
    int source = -1;
    int target = -1;
    FilterBank bank;
  };
  thread_local Entry cache[2];
  Entry& entry = cache[direction];
  if (entry.source != source || entry.target != target) {
    entry = {source, target, makeFilterBank(source, target)};
  }
  return entry.bank;
}

inline std::uint8_t toByte(std::int32_t fixed) {
  const std::int32_t value = (fixed + (1 << (kWeightBits - 1))) >> kWeightBits;
  return static_cast<std::uint8_t>(std::clamp(value, 0, 255));
}

// The weighted row sums are 32-bit multiplies, which baseline x86-64 (SSE2) lacks as a vector
// instruction; an AVX2 copy picked at run time is about four times faster.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define BRIMBLE_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define BRIMBLE_VECTOR_CLONES
#endif

/// Output row y = the bank's weighted sum of input rows; rows are `rowBytes` long and
/// `inStride` apart in the input, packed in the output.
BRIMBLE_VECTOR_CLONES void filterRows(const std::uint8_t* in, std::size_t inStride,
                                      std::size_t rowBytes, const FilterBank& bank,
                                      std::uint8_t* out) {
  std::vector<std::int32_t> sums(rowBytes);
  const std::size_t targets = bank.first.size();
  for (std::size_t y = 0; y < targets; ++y) {
    std::fill(sums.begin(), sums.end(), 0);
    const auto first = static_cast<std::size_t>(bank.first[y]);
    const int taps = std::min(bank.taps, bank.sources - bank.first[y]);
    for (int k = 0; k < taps; ++k) {
      const std::int32_t weight =
          bank.weights[y * static_cast<std::size_t>(bank.taps) + static_cast<std::size_t>(k)];
      if (weight == 0) {
        continue;
      }
      const std::uint8_t* row = in + (first + static_cast<std::size_t>(k)) * inStride;
      for (std::size_t i = 0; i < rowBytes; ++i) {
        sums[i] += weight * row[i];
      }
    }
    std::uint8_t* target = out + y * rowBytes;
    for (std::size_t i = 0; i < rowBytes; ++i) {
      target[i] = toByte(sums[i]);
    }
  }
}

/// `in` (width x height 4-byte pixels, packed) mirrored over its diagonal into `out`, in small
/// tiles so both sides stay in cache.
void transpose(const std::uint8_t* in, std::size_t width, std::size_t height, std::uint8_t* out) {
  constexpr std::size_t kTile = 16;
  for (std::size_t y0 = 0; y0 < height; y0 += kTile) {
    for (std::size_t x0 = 0; x0 < width; x0 += kTile) {
      const std::size_t y1 = std::min(y0 + kTile, height);
      const std::size_t x1 = std::min(x0 + kTile, width);
      for (std::size_t y = y0; y < y1; ++y) {
        for (std::size_t x = x0; x < x1; ++x) {
          std::memcpy(out + (x * height + y) * 4, in + (y * width + x) * 4, 4);
        }
      }
    }
  }
}

}  // namespace

ImageSize scaledSize(int width, int height, int maxWidth) {
  if (maxWidth <= 0 || width <= maxWidth) {
    return {width, height};
  }
  const double scaledHeight = static_cast<double>(height) * maxWidth / width;
  const int evenHeight = std::max(2, static_cast<int>(std::lround(scaledHeight / 2)) * 2);
  return {maxWidth, evenHeight};
}

Image resize(const Image& source, ImageSize size) {
  if (size.width == source.width() && size.height == source.height()) {
    return source;
  }
  const Image image = source.toBGRA8();
  const auto sourceWidth = static_cast<std::size_t>(image.width());
  const auto width = static_cast<std::size_t>(size.width);
  const auto height = static_cast<std::size_t>(size.height);
  const FilterBank& rows = cachedFilterBank(0, image.height(), size.height);
  const FilterBank& columns = cachedFilterBank(1, image.width(), size.width);

  // Both passes filter whole rows, which vectorises well; the horizontal pass runs on the
  // transposed image so that it is a row filter too. The intermediates are reused per thread:
  // fresh multi-megabyte buffers would cost a page fault per 4 KB on every frame.
  thread_local std::vector<std::uint8_t> vertical;
  thread_local std::vector<std::uint8_t> turned;
  thread_local std::vector<std::uint8_t> horizontal;
  vertical.resize(height * sourceWidth * 4);
  turned.resize(sourceWidth * height * 4);
  horizontal.resize(width * height * 4);
  filterRows(image.bytes().data(), image.bytesPerRow(), sourceWidth * 4, rows, vertical.data());
  transpose(vertical.data(), sourceWidth, height, turned.data());
  filterRows(turned.data(), height * 4, height * 4, columns, horizontal.data());
  PixelBuffer pixels(width * height * 4);
  transpose(horizontal.data(), height, width, pixels.data());
  return Image::bgra8(size.width, size.height, std::move(pixels));
}

Image scaleToMaxWidth(const Image& image, int maxWidth) {
  return resize(image, scaledSize(image.width(), image.height(), maxWidth));
}

}  // namespace brimble::ImageScaler
