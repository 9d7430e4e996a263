#include "BrimbleCore/Capture/CursorImage.h"

#include <algorithm>

namespace brimble {

void blendCursor(std::span<std::uint8_t> frame, std::size_t bytesPerRow, int width, int height,
                 const CursorImage& cursor, int x, int y) {
  const Image& picture = cursor.image;
  const int left = x - cursor.hotX;
  const int top = y - cursor.hotY;
  const int firstColumn = std::max(0, -left);
  const int lastColumn = std::min(picture.width(), width - left);
  const int firstRow = std::max(0, -top);
  const int lastRow = std::min(picture.height(), height - top);
  for (int row = firstRow; row < lastRow; ++row) {
    const std::uint8_t* source = picture.row(row).data();
    std::uint8_t* target = frame.data() + static_cast<std::size_t>(top + row) * bytesPerRow;
    for (int column = firstColumn; column < lastColumn; ++column) {
      const std::uint8_t* s = source + std::size_t{4} * column;
      std::uint8_t* d = target + std::size_t{4} * static_cast<std::size_t>(left + column);
      const unsigned inverse = 255u - s[3];
      for (int channel = 0; channel < 3; ++channel) {
        d[channel] = static_cast<std::uint8_t>(
            std::min(255u, s[channel] + (d[channel] * inverse + 127u) / 255u));
      }
    }
  }
}

}  // namespace brimble
