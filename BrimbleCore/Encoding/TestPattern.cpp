#include "BrimbleCore/Encoding/TestPattern.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace brimble {
namespace {

struct Canvas {
  int width;
  int height;
  PixelBuffer pixels;

  void set(int x, int y, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    if (x < 0 || y < 0 || x >= width || y >= height) {
      return;
    }
    std::uint8_t* p = &pixels[(static_cast<std::size_t>(y) * width + x) * 4];
    p[0] = b;
    p[1] = g;
    p[2] = r;
    p[3] = 0xFF;
  }

  void blend(int x, int y, std::uint8_t r, std::uint8_t g, std::uint8_t b, double coverage) {
    if (x < 0 || y < 0 || x >= width || y >= height || coverage <= 0) {
      return;
    }
    std::uint8_t* p = &pixels[(static_cast<std::size_t>(y) * width + x) * 4];
    const auto mix = [coverage](std::uint8_t under, std::uint8_t over) {
      return static_cast<std::uint8_t>(std::lround(under + (over - under) * coverage));
    };
    p[0] = mix(p[0], b);
    p[1] = mix(p[1], g);
    p[2] = mix(p[2], r);
  }

  void fill(int x0, int y0, int x1, int y1, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    for (int y = std::max(y0, 0); y < std::min(y1, height); ++y) {
      for (int x = std::max(x0, 0); x < std::min(x1, width); ++x) {
        set(x, y, r, g, b);
      }
    }
  }
};

/// A small deterministic hash, so "words" have stable, varied lengths.
std::uint32_t mixBits(std::uint32_t value) {
  value ^= value >> 16;
  value *= 0x7FEB352Du;
  value ^= value >> 15;
  value *= 0x846CA68Bu;
  value ^= value >> 16;
  return value;
}

}  // namespace

Image testPatternFrame(int index, int frameCount, int width, int height) {
  Canvas canvas{width, height, PixelBuffer(static_cast<std::size_t>(width) * height * 4)};
  const double progress = frameCount > 1 ? static_cast<double>(index) / (frameCount - 1) : 1.0;

  // Desktop: a diagonal gradient, hundreds of shades.
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double t = (static_cast<double>(x) / std::max(width, 1) +
                        static_cast<double>(y) / std::max(height, 1)) /
                       2;
      canvas.set(x, y, static_cast<std::uint8_t>(30 + 90 * t),
                 static_cast<std::uint8_t>(40 + 40 * t), static_cast<std::uint8_t>(70 + 110 * t));
    }
  }

  // A window with a title bar.
  const int left = width / 16;
  const int right = width - width / 16;
  const int top = height / 8;
  const int bottom = height - height / 8;
  const int titleHeight = std::max(height / 20, 4);
  canvas.fill(left, top, right, top + titleHeight, 52, 56, 66);
  for (int i = 0; i < 3; ++i) {
    const int size = std::max(titleHeight / 2, 2);
    const int x = left + size + i * size * 2;
    const std::uint8_t reds[3] = {237, 245, 98};
    const std::uint8_t greens[3] = {106, 191, 197};
    const std::uint8_t blues[3] = {94, 79, 84};
    canvas.fill(x, top + size / 2, x + size, top + size / 2 + size, reds[i], greens[i], blues[i]);
  }
  canvas.fill(left, top + titleHeight, right, bottom, 248, 248, 246);

  // Text typed in over the recording: word-shaped strips, revealed character by character.
  const int lineHeight = std::max(height / 18, 6);
  const int glyphWidth = std::max(width / 90, 2);
  const int lines = std::max((bottom - top - titleHeight - lineHeight) / lineHeight - 1, 1);
  const int charactersPerLine = std::max((right - left - 4 * glyphWidth) / glyphWidth, 1);
  const auto typed = static_cast<int>(progress * lines * charactersPerLine * 0.8);
  for (int line = 0; line < lines; ++line) {
    const int y = top + titleHeight + lineHeight / 2 + line * lineHeight;
    int column = 0;
    std::uint32_t word = 0;
    while (column < charactersPerLine) {
      const auto wordLength = static_cast<int>(2 + mixBits(line * 131u + word * 7u) % 9);
      for (int c = 0; c < wordLength && column < charactersPerLine; ++c, ++column) {
        if (line * charactersPerLine + column >= typed) {
          break;
        }
        const int x = left + 2 * glyphWidth + column * glyphWidth;
        const bool keyword = mixBits(line * 17u + word) % 5 == 0;
        canvas.fill(x, y, x + glyphWidth - 1, y + lineHeight * 3 / 5, keyword ? 170 : 40,
                    keyword ? 60 : 44, keyword ? 180 : 52);
      }
      ++column;  // the space between words
      ++word;
    }
  }

  // A ball bouncing across the window, with an anti-aliased edge.
  const double radius = std::max(height / 12.0, 3.0);
  const double cx =
      left + radius +
      (right - left - 2 * radius) * (0.5 - 0.5 * std::cos(progress * 2 * std::numbers::pi));
  const double cy = bottom - radius -
                    (bottom - top - titleHeight - 2 * radius) *
                        std::abs(std::sin(progress * 3 * std::numbers::pi));
  for (int y = static_cast<int>(cy - radius - 1); y <= static_cast<int>(cy + radius + 1); ++y) {
    for (int x = static_cast<int>(cx - radius - 1); x <= static_cast<int>(cx + radius + 1); ++x) {
      const double distance = std::hypot(x + 0.5 - cx, y + 0.5 - cy);
      canvas.blend(x, y, 255, 140, 30, std::clamp(radius - distance + 0.5, 0.0, 1.0));
    }
  }

  // A progress bar along the bottom of the window.
  const int barTop = bottom - std::max(height / 60, 2);
  canvas.fill(left, barTop, left + static_cast<int>((right - left) * progress), bottom, 64, 156,
              255);

  return Image::bgra8(width, height, std::move(canvas.pixels));
}

}  // namespace brimble
