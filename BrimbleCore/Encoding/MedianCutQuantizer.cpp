#include "BrimbleCore/Encoding/MedianCutQuantizer.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <unordered_set>

namespace brimble::MedianCutQuantizer {
namespace {

std::uint8_t channel(const RGBColor& color, int c) {
  return c == 0 ? color.r : (c == 1 ? color.g : color.b);
}

std::array<int, 3> channelRanges(const ColorBox& box) {
  std::array<int, 3> low = {255, 255, 255};
  std::array<int, 3> high = {0, 0, 0};
  for (const RGBColor& color : box.colors) {
    for (int c = 0; c < 3; ++c) {
      low[c] = std::min<int>(low[c], channel(color, c));
      high[c] = std::max<int>(high[c], channel(color, c));
    }
  }
  return {high[0] - low[0], high[1] - low[1], high[2] - low[2]};
}

RGBColor meanColor(const ColorBox& box) {
  if (box.colors.empty()) {
    return {};
  }
  std::array<std::uint64_t, 3> sum{};
  for (const RGBColor& color : box.colors) {
    sum[0] += color.r;
    sum[1] += color.g;
    sum[2] += color.b;
  }
  const std::uint64_t count = box.colors.size();
  return {static_cast<std::uint8_t>(sum[0] / count), static_cast<std::uint8_t>(sum[1] / count),
          static_cast<std::uint8_t>(sum[2] / count)};
}

/// Colour to palette index for one image: open addressing over 0xRRGGBB keys, growing as needed.
class ColorIndexCache {
 public:
  explicit ColorIndexCache(std::size_t expected) {
    std::size_t slots = 16;
    while (slots < expected * 2) {
      slots *= 2;
    }
    keys_.assign(slots, kEmpty);
    values_.assign(slots, 0);
  }

  /// The cached index, or -1.
  int find(std::uint32_t color) const {
    for (std::size_t slot = hash(color);; slot = (slot + 1) & (keys_.size() - 1)) {
      if (keys_[slot] == color) {
        return values_[slot];
      }
      if (keys_[slot] == kEmpty) {
        return -1;
      }
    }
  }

  void insert(std::uint32_t color, std::uint8_t index) {
    if (2 * (size_ + 1) > keys_.size()) {
      grow();
    }
    std::size_t slot = hash(color);
    while (keys_[slot] != kEmpty) {
      slot = (slot + 1) & (keys_.size() - 1);
    }
    keys_[slot] = color;
    values_[slot] = index;
    ++size_;
  }

 private:
  static constexpr std::uint32_t kEmpty = 0xFFFFFFFF;

  std::size_t hash(std::uint32_t color) const { return (color * 2654435761u) & (keys_.size() - 1); }

  void grow() {
    std::vector<std::uint32_t> keys = std::move(keys_);
    std::vector<std::uint8_t> values = std::move(values_);
    keys_.assign(keys.size() * 2, kEmpty);
    values_.assign(keys.size() * 2, 0);
    size_ = 0;
    for (std::size_t i = 0; i < keys.size(); ++i) {
      if (keys[i] != kEmpty) {
        insert(keys[i], values[i]);
      }
    }
  }

  std::vector<std::uint32_t> keys_;
  std::vector<std::uint8_t> values_;
  std::size_t size_ = 0;
};

}  // namespace

std::vector<RGBColor> sampleColors(const Image& image, int maxSamples) {
  const auto bytes = image.bytes();
  if (image.empty() || bytes.empty() || image.bitsPerPixel() < 24 || maxSamples < 1) {
    return {};
  }
  const std::size_t pixelCount = static_cast<std::size_t>(image.width()) * image.height();
  const std::size_t samples = std::min(pixelCount, static_cast<std::size_t>(maxSamples));
  const std::size_t stride = std::max<std::size_t>(pixelCount / samples, 1);
  const std::size_t bytesPerPixel = static_cast<std::size_t>(image.bitsPerPixel()) / 8;
  const auto width = static_cast<std::size_t>(image.width());
  std::vector<RGBColor> colors;
  colors.reserve(pixelCount / stride + 1);
  for (std::size_t index = 0; index < pixelCount; index += stride) {
    const std::size_t offset =
        (index / width) * image.bytesPerRow() + (index % width) * bytesPerPixel;
    if (offset + 2 >= bytes.size()) {
      break;
    }
    colors.push_back({bytes[offset + 2], bytes[offset + 1], bytes[offset]});
  }
  return colors;
}

std::vector<RGBColor> buildPalette(std::span<const RGBColor> colors, int maxColors) {
  if (colors.empty()) {
    return {};
  }
  if (maxColors >= 0 && static_cast<std::size_t>(maxColors) >= colors.size()) {
    // Everything fits: the distinct colours themselves, in order of first appearance.
    std::vector<RGBColor> distinct;
    std::unordered_set<RGBColor> seen;
    for (const RGBColor& color : colors) {
      if (seen.insert(color).second) {
        distinct.push_back(color);
      }
    }
    return distinct;
  }
  std::vector<ColorBox> boxes{ColorBox{{colors.begin(), colors.end()}}};
  std::vector<std::array<int, 3>> ranges{channelRanges(boxes[0])};
  while (static_cast<int>(boxes.size()) < maxColors) {
    // The box with the widest channel range; a later box wins only with a strictly wider one.
    // A box of identical colours (range 0) is still split.
    std::size_t pick = boxes.size();
    int pickScore = -1;
    for (std::size_t i = 0; i < boxes.size(); ++i) {
      if (boxes[i].colors.size() < 2) {
        continue;
      }
      const int score = std::max({ranges[i][0], ranges[i][1], ranges[i][2]});
      if (score > pickScore) {
        pick = i;
        pickScore = score;
      }
    }
    if (pick == boxes.size()) {
      break;
    }
    // Red wins ties over green and blue, green over blue.
    int widest = 0;
    for (int c = 1; c < 3; ++c) {
      if (ranges[pick][c] > ranges[pick][widest]) {
        widest = c;
      }
    }
    std::vector<RGBColor>& bag = boxes[pick].colors;
    std::stable_sort(bag.begin(), bag.end(), [widest](const RGBColor& a, const RGBColor& b) {
      return channel(a, widest) < channel(b, widest);
    });
    const auto half = static_cast<std::ptrdiff_t>(bag.size() / 2);
    ColorBox upper{{bag.begin() + half, bag.end()}};
    bag.erase(bag.begin() + half, bag.end());
    ranges[pick] = channelRanges(boxes[pick]);
    ranges.push_back(channelRanges(upper));
    boxes.push_back(std::move(upper));
  }
  std::vector<RGBColor> palette;
  palette.reserve(boxes.size());
  for (const ColorBox& box : boxes) {
    palette.push_back(meanColor(box));
  }
  return palette;
}

std::optional<Image> quantize(const Image& image, std::span<const RGBColor> palette) {
  const auto bytes = image.bytes();
  if (palette.empty() || bytes.empty() || image.empty() || image.bitsPerPixel() < 24) {
    return std::nullopt;
  }
  const std::size_t entries = std::min<std::size_t>(palette.size(), 256);
  std::vector<RGBColor> table(palette.begin(),
                              palette.begin() + static_cast<std::ptrdiff_t>(entries));

  const std::size_t pixelCount = static_cast<std::size_t>(image.width()) * image.height();
  const std::size_t bytesPerPixel = static_cast<std::size_t>(image.bitsPerPixel()) / 8;
  PixelBuffer indices(pixelCount, 0);
  ColorIndexCache cache(std::min<std::size_t>(pixelCount, 4096));
  std::size_t index = 0;
  for (int y = 0; y < image.height(); ++y) {
    const std::size_t rowStart = static_cast<std::size_t>(y) * image.bytesPerRow();
    for (int x = 0; x < image.width(); ++x, ++index) {
      const std::size_t offset = rowStart + static_cast<std::size_t>(x) * bytesPerPixel;
      if (offset + 2 >= bytes.size()) {
        return Image::indexed8(image.width(), image.height(), std::move(indices), std::move(table));
      }
      const std::uint8_t b = bytes[offset];
      const std::uint8_t g = bytes[offset + 1];
      const std::uint8_t r = bytes[offset + 2];
      const std::uint32_t key = (std::uint32_t{r} << 16) | (std::uint32_t{g} << 8) | b;
      int nearest = cache.find(key);
      if (nearest < 0) {
        int bestDistance = std::numeric_limits<int>::max();
        nearest = 0;
        for (std::size_t i = 0; i < palette.size(); ++i) {
          const int dr = palette[i].r - r;
          const int dg = palette[i].g - g;
          const int db = palette[i].b - b;
          const int distance = dr * dr + dg * dg + db * db;
          if (distance < bestDistance) {
            bestDistance = distance;
            nearest = static_cast<int>(i);
            if (distance == 0) {
              break;
            }
          }
        }
        if (nearest > 255) {
          std::abort();  // callers build palettes of at most 256 colours
        }
        cache.insert(key, static_cast<std::uint8_t>(nearest));
      }
      indices[index] = static_cast<std::uint8_t>(nearest);
    }
  }
  return Image::indexed8(image.width(), image.height(), std::move(indices), std::move(table));
}

}  // namespace brimble::MedianCutQuantizer
