#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble::testing {

struct Pixel {
  std::uint8_t r = 0;
  std::uint8_t g = 0;
  std::uint8_t b = 0;
  std::uint8_t a = 255;
};

/// A bgra8 image whose pixel (x, y) is `pixelAt(x, y)`.
inline Image imageOf(int width, int height, const std::function<Pixel(int x, int y)>& pixelAt) {
  PixelBuffer bytes;
  bytes.reserve(static_cast<std::size_t>(width) * height * 4);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Pixel p = pixelAt(x, y);
      bytes.insert(bytes.end(), {p.b, p.g, p.r, p.a});
    }
  }
  return Image::bgra8(width, height, std::move(bytes));
}

inline Image solidImage(int width, int height, Pixel color) {
  return imageOf(width, height, [color](int, int) { return color; });
}

/// The pixel at (x, y) of any image.
inline Pixel pixelAt(const Image& image, int x, int y) {
  const Image bgra = image.toBGRA8();
  const std::uint8_t* p = bgra.row(y).data() + static_cast<std::size_t>(x) * 4;
  return {p[2], p[1], p[0], p[3]};
}

/// Peak signal-to-noise ratio over blue, green and red of two images of one size; 99 when equal.
inline double psnr(const Image& a, const Image& b) {
  const Image left = a.toBGRA8();
  const Image right = b.toBGRA8();
  double squared = 0;
  for (int y = 0; y < left.height(); ++y) {
    const auto p = left.row(y);
    const auto q = right.row(y);
    for (std::size_t i = 0; i < p.size(); ++i) {
      if (i % 4 != 3) {
        squared += (p[i] - q[i]) * (p[i] - q[i]);
      }
    }
  }
  const double mean = squared / (3.0 * left.width() * left.height());
  return mean == 0 ? 99 : 10 * std::log10(255.0 * 255.0 / mean);
}

/// The mean of blue, green and red over the whole image, 0 to 255.
inline double meanBrightness(const Image& image) {
  const Image bgra = image.toBGRA8();
  double sum = 0;
  for (int y = 0; y < bgra.height(); ++y) {
    const auto row = bgra.row(y);
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (i % 4 != 3) {
        sum += row[i];
      }
    }
  }
  return sum / (3.0 * bgra.width() * bgra.height());
}

/// The share of `image`'s pixels within `tolerance` of `colour` (the sum of the red, green and
/// blue differences): a GIF's palette may move a colour by a step or two. 0 for an empty image.
inline double shareNear(const Image& image, Pixel colour, int tolerance) {
  if (image.empty()) {
    return 0;
  }
  long count = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      const Pixel p = pixelAt(image, x, y);
      count += std::abs(p.r - colour.r) + std::abs(p.g - colour.g) + std::abs(p.b - colour.b) <=
               tolerance;
    }
  }
  return static_cast<double>(count) / (static_cast<double>(image.width()) * image.height());
}

}  // namespace brimble::testing
