#include "BrimbleCore/Encoding/IndexedFrame.h"

#include <algorithm>
#include <array>

#include "BrimbleCore/Encoding/HistogramQuantizer.h"

namespace brimble {
namespace {

/// Colour to palette index for up to 256 colours: open addressing over 0xRRGGBB keys.
class ExactPalette {
 public:
  explicit ExactPalette(std::size_t limit) : limit_(limit) { keys_.fill(kEmpty); }

  /// The index of `color`, adding it when new; no value once more than `limit` colours are seen.
  std::optional<std::uint8_t> indexOf(std::uint32_t color) {
    std::size_t slot = (color * 2654435761u) >> (32 - kSlotBits);
    while (keys_[slot] != kEmpty) {
      if (keys_[slot] == color) {
        return values_[slot];
      }
      slot = (slot + 1) & (kSlots - 1);
    }
    if (colors_.size() == limit_) {
      return std::nullopt;
    }
    keys_[slot] = color;
    values_[slot] = static_cast<std::uint8_t>(colors_.size());
    colors_.push_back({static_cast<std::uint8_t>(color >> 16),
                       static_cast<std::uint8_t>(color >> 8), static_cast<std::uint8_t>(color)});
    return values_[slot];
  }

  std::vector<RGBColor> takeColors() { return std::move(colors_); }

 private:
  static constexpr int kSlotBits = 10;  // 1024 slots: at most a quarter full
  static constexpr std::size_t kSlots = std::size_t{1} << kSlotBits;
  static constexpr std::uint32_t kEmpty = 0xFFFFFFFF;  // not a 24-bit colour

  std::size_t limit_;
  std::array<std::uint32_t, kSlots> keys_;
  std::array<std::uint8_t, kSlots> values_{};
  std::vector<RGBColor> colors_;
};

/// Keeps every colour of the visible pixels in `rect` when there are at most `limit` of them.
std::optional<QuantizedPixels> exactColors(const Image& image, PixelRect rect, std::size_t limit) {
  ExactPalette palette(limit);
  QuantizedPixels result;
  result.indices.resize(static_cast<std::size_t>(rect.width) * rect.height);
  std::uint8_t* out = result.indices.data();
  const auto transparent = static_cast<std::uint8_t>(limit & 0xFF);
  std::uint32_t lastColor = 0xFFFFFFFF;
  std::uint8_t lastIndex = 0;
  for (int y = rect.top; y < rect.top + rect.height; ++y) {
    const std::uint8_t* pixel = image.row(y).data() + static_cast<std::size_t>(rect.left) * 4;
    for (int x = 0; x < rect.width; ++x, pixel += 4) {
      if (pixel[3] == 0) {
        *out++ = transparent;
        continue;
      }
      const std::uint32_t color = (std::uint32_t{pixel[2]} << 16) | (std::uint32_t{pixel[1]} << 8) |
                                  std::uint32_t{pixel[0]};
      if (color != lastColor) {  // screens are mostly runs of one colour
        const auto index = palette.indexOf(color);
        if (!index) {
          return std::nullopt;
        }
        lastColor = color;
        lastIndex = *index;
      }
      *out++ = lastIndex;
    }
  }
  result.palette = palette.takeColors();
  // Transparent pixels were given index `limit` (255) while the palette was still growing; move
  // them to the slot right after the last colour.
  if (limit < 256) {
    const auto actual = static_cast<std::uint8_t>(result.palette.size());
    if (actual != transparent) {
      std::replace(result.indices.begin(), result.indices.end(), transparent, actual);
    }
  }
  return result;
}

/// Indexed images keep their palette and indices; one with a transparent index is cropped to
/// the pixels that show.
IndexedFrame fromIndexedImage(const Image& image) {
  IndexedFrame frame;
  frame.palette.assign(image.palette().begin(), image.palette().end());
  frame.transparentIndex = image.transparentIndex();
  PixelRect rect{0, 0, image.width(), image.height()};
  if (const auto transparent = image.transparentIndex()) {
    int minX = image.width();
    int maxX = -1;
    int minY = image.height();
    int maxY = -1;
    for (int y = 0; y < image.height(); ++y) {
      const auto row = image.row(y);
      const auto first =
          std::find_if(row.begin(), row.end(), [&](std::uint8_t i) { return i != *transparent; });
      if (first == row.end()) {
        continue;
      }
      const auto last =
          std::find_if(row.rbegin(), row.rend(), [&](std::uint8_t i) { return i != *transparent; });
      minX = std::min(minX, static_cast<int>(first - row.begin()));
      maxX = std::max(maxX, static_cast<int>(row.rend() - last) - 1);
      minY = std::min(minY, y);
      maxY = y;
    }
    rect =
        maxX < 0 ? PixelRect{0, 0, 1, 1} : PixelRect{minX, minY, maxX - minX + 1, maxY - minY + 1};
  }
  frame.left = rect.left;
  frame.top = rect.top;
  frame.width = rect.width;
  frame.height = rect.height;
  frame.indices.reserve(static_cast<std::size_t>(rect.width) * rect.height);
  for (int y = rect.top; y < rect.top + rect.height; ++y) {
    const auto row = image.row(y).subspan(static_cast<std::size_t>(rect.left),
                                          static_cast<std::size_t>(rect.width));
    frame.indices.insert(frame.indices.end(), row.begin(), row.end());
  }
  return frame;
}

}  // namespace

IndexedFrame indexFrame(const Image& image) {
  if (image.format() == PixelFormat::indexed8) {
    return fromIndexedImage(image);
  }
  // One pass finds the visible rectangle and whether anything is transparent. Any transparent
  // pixel, even one cropped away, gets the transparent entry and so a graphic control extension
  // that names it: the file then says the image has transparency.
  int minX = image.width();
  int maxX = -1;
  int minY = image.height();
  int maxY = -1;
  bool hasTransparent = false;
  for (int y = 0; y < image.height(); ++y) {
    const std::uint8_t* alpha = image.row(y).data() + 3;
    int first = -1;
    int last = -1;
    for (int x = 0; x < image.width(); ++x, alpha += 4) {
      if (*alpha != 0) {
        first = first < 0 ? x : first;
        last = x;
      } else {
        hasTransparent = true;
      }
    }
    if (first >= 0) {
      minX = std::min(minX, first);
      maxX = std::max(maxX, last);
      minY = std::min(minY, y);
      maxY = y;
    }
  }
  IndexedFrame frame;
  if (maxX < 0) {
    // Nothing visible: one transparent pixel is the smallest valid image.
    frame.width = 1;
    frame.height = 1;
    frame.indices = {0};
    frame.palette = {RGBColor{}};
    frame.transparentIndex = 0;
    return frame;
  }
  const PixelRect rect{minX, minY, maxX - minX + 1, maxY - minY + 1};
  const int colorLimit = hasTransparent ? 255 : 256;
  auto pixels = exactColors(image, rect, static_cast<std::size_t>(colorLimit));
  if (!pixels) {
    pixels = HistogramQuantizer::quantize(image, rect, colorLimit);
  }
  frame.left = rect.left;
  frame.top = rect.top;
  frame.width = rect.width;
  frame.height = rect.height;
  frame.indices = std::move(pixels->indices);
  frame.palette = std::move(pixels->palette);
  if (hasTransparent) {
    frame.transparentIndex = static_cast<std::uint8_t>(frame.palette.size());
    frame.palette.push_back(RGBColor{});
  }
  return frame;
}

}  // namespace brimble
