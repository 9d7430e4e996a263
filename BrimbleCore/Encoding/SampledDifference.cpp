#include "BrimbleCore/Encoding/SampledDifference.h"

#include <cstdlib>

namespace brimble {

std::size_t countDifferingSamples(const Image& a, const Image& b, std::size_t stride, int threshold,
                                  std::size_t enough) {
  const auto first = a.bytes();
  const auto second = b.bytes();
  const std::size_t pixelCount = static_cast<std::size_t>(a.width()) * a.height();
  const auto width = static_cast<std::size_t>(a.width());
  const std::size_t bppA = static_cast<std::size_t>(a.bitsPerPixel()) / 8;
  const std::size_t bppB = static_cast<std::size_t>(b.bitsPerPixel()) / 8;
  std::size_t differing = 0;
  for (std::size_t index = 0; index < pixelCount && differing < enough; index += stride) {
    const std::size_t row = index / width;
    const std::size_t column = index % width;
    const std::size_t offsetA = row * a.bytesPerRow() + column * bppA;
    const std::size_t offsetB = row * b.bytesPerRow() + column * bppB;
    if (offsetA + 2 >= first.size() || offsetB + 2 >= second.size()) {
      break;
    }
    if (std::abs(first[offsetA] - second[offsetB]) > threshold ||
        std::abs(first[offsetA + 1] - second[offsetB + 1]) > threshold ||
        std::abs(first[offsetA + 2] - second[offsetB + 2]) > threshold) {
      ++differing;
    }
  }
  return differing;
}

}  // namespace brimble
