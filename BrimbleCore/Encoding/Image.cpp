#include "BrimbleCore/Encoding/Image.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace brimble {
namespace {

void requireDimensions(int width, int height) {
  if (width < 0 || height < 0) {
    throw std::invalid_argument("image dimensions must not be negative");
  }
}

}  // namespace

Image Image::bgra8(int width, int height, PixelBuffer pixels, std::size_t bytesPerRow) {
  requireDimensions(width, height);
  const std::size_t packedRow = static_cast<std::size_t>(width) * 4;
  if (bytesPerRow == 0) {
    bytesPerRow = packedRow;
  }
  if (bytesPerRow < packedRow || pixels.size() != bytesPerRow * static_cast<std::size_t>(height)) {
    throw std::invalid_argument("bgra8 image of " + std::to_string(width) + "x" +
                                std::to_string(height) + " cannot hold " +
                                std::to_string(pixels.size()) + " bytes");
  }
  auto storage = std::make_shared<Storage>();
  storage->width = width;
  storage->height = height;
  storage->bytesPerRow = bytesPerRow;
  storage->format = PixelFormat::bgra8;
  storage->bytes = std::move(pixels);
  return Image(std::move(storage));
}

Image Image::indexed8(int width, int height, PixelBuffer indices, std::vector<RGBColor> palette,
                      std::optional<std::uint8_t> transparent) {
  requireDimensions(width, height);
  if (indices.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {
    throw std::invalid_argument("indexed8 image of " + std::to_string(width) + "x" +
                                std::to_string(height) + " cannot hold " +
                                std::to_string(indices.size()) + " indices");
  }
  if (palette.empty() || palette.size() > 256) {
    throw std::invalid_argument("an indexed8 palette holds 1 to 256 colours");
  }
  if (!indices.empty() && *std::max_element(indices.begin(), indices.end()) >= palette.size()) {
    throw std::invalid_argument("an index has no palette entry");
  }
  auto storage = std::make_shared<Storage>();
  storage->width = width;
  storage->height = height;
  storage->bytesPerRow = static_cast<std::size_t>(width);
  storage->format = PixelFormat::indexed8;
  storage->bytes = std::move(indices);
  storage->palette = std::move(palette);
  storage->transparentIndex = transparent;
  return Image(std::move(storage));
}

std::span<const std::uint8_t> Image::bytes() const noexcept {
  if (!storage_) {
    return {};
  }
  return storage_->bytes;
}

std::span<const std::uint8_t> Image::row(int y) const noexcept {
  if (!storage_ || y < 0 || y >= storage_->height) {
    return {};
  }
  const std::size_t bytesPerPixel = storage_->format == PixelFormat::bgra8 ? 4 : 1;
  return std::span<const std::uint8_t>(storage_->bytes)
      .subspan(static_cast<std::size_t>(y) * storage_->bytesPerRow,
               static_cast<std::size_t>(storage_->width) * bytesPerPixel);
}

std::span<const RGBColor> Image::palette() const noexcept {
  if (!storage_) {
    return {};
  }
  return storage_->palette;
}

Image Image::toBGRA8() const {
  if (format() == PixelFormat::bgra8) {
    return *this;
  }
  const auto colors = palette();
  const int transparent = transparentIndex() ? *transparentIndex() : -1;
  PixelBuffer pixels(static_cast<std::size_t>(width()) * height() * 4);
  std::uint8_t* out = pixels.data();
  for (const std::uint8_t index : bytes()) {
    const RGBColor color = colors[index];
    const bool shown = index != transparent;
    out[0] = shown ? color.b : 0;
    out[1] = shown ? color.g : 0;
    out[2] = shown ? color.r : 0;
    out[3] = shown ? 0xFF : 0;
    out += 4;
  }
  return bgra8(width(), height(), std::move(pixels));
}

bool Image::hasSamePixels(const Image& other) const {
  if (width() != other.width() || height() != other.height()) {
    return false;
  }
  const Image left = toBGRA8();
  const Image right = other.toBGRA8();
  for (int y = 0; y < height(); ++y) {
    const auto a = left.row(y);
    const auto b = right.row(y);
    if (!std::equal(a.begin(), a.end(), b.begin())) {
      return false;
    }
  }
  return true;
}

}  // namespace brimble
