#include "BrimbleCore/Encoding/GIFEncoder.h"

#include <cstdlib>
#include <vector>

namespace brimble {

std::optional<Image> GIFEncoder::createDiffFrame(const Image& current, const Image& previous,
                                                 int tolerance) {
  if (current.width() != previous.width() || current.height() != previous.height()) {
    return std::nullopt;
  }
  const Image now = current.toBGRA8();
  const Image before = previous.toBGRA8();
  const auto width = static_cast<std::size_t>(now.width());
  std::vector<std::uint8_t> pixels(width * 4 * static_cast<std::size_t>(now.height()), 0);
  std::uint8_t* out = pixels.data();
  for (int y = 0; y < now.height(); ++y) {
    const std::uint8_t* a = now.row(y).data();
    const std::uint8_t* b = before.row(y).data();
    for (std::size_t x = 0; x < width; ++x, a += 4, b += 4, out += 4) {
      if (std::abs(a[0] - b[0]) > tolerance || std::abs(a[1] - b[1]) > tolerance ||
          std::abs(a[2] - b[2]) > tolerance) {
        out[0] = a[0];
        out[1] = a[1];
        out[2] = a[2];
        out[3] = 0xFF;
      }
    }
  }
  return Image::bgra8(now.width(), now.height(), std::move(pixels));
}

}  // namespace brimble
