#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "BrimbleCore/Encoding/RGBColor.h"

namespace brimble {

/// An allocator that leaves new elements uninitialised: whoever fills a pixel buffer writes every
/// byte anyway, and zeroing a full frame first costs as much as comparing two frames.
template <typename T>
struct UninitializedAllocator : std::allocator<T> {
  template <typename U>
  struct rebind {
    using other = UninitializedAllocator<U>;
  };
  UninitializedAllocator() = default;
  template <typename U>
  UninitializedAllocator(const UninitializedAllocator<U>&) noexcept {}

  template <typename U>
  void construct(U* place) noexcept {
    ::new (static_cast<void*>(place)) U;
  }
  template <typename U, typename... Args>
  void construct(U* place, Args&&... args) {
    ::new (static_cast<void*>(place)) U(std::forward<Args>(args)...);
  }
};

/// The bytes of an image. `PixelBuffer(n)` is not zeroed; `PixelBuffer(n, 0)` is.
using PixelBuffer = std::vector<std::uint8_t, UninitializedAllocator<std::uint8_t>>;

struct ImageSize {
  int width = 0;
  int height = 0;
  bool operator==(const ImageSize&) const = default;
};

enum class PixelFormat {
  /// 4 bytes per pixel in memory order blue, green, red, alpha; alpha premultiplied.
  bgra8,
  /// 1 byte per pixel, an index into a palette of at most 256 colours.
  indexed8,
};

/// An immutable bitmap. Copies share the pixels, so passing an Image around is cheap; nothing can
/// change the pixels once built. A default-constructed Image is empty (0x0, no bytes).
/// Thread-safe: any number of threads may read one Image.
class Image {
 public:
  Image() = default;

  /// A bgra8 image over `pixels`, rows `bytesPerRow` apart (0 means tightly packed: width * 4).
  /// Throws std::invalid_argument when the sizes do not fit together.
  static Image bgra8(int width, int height, PixelBuffer pixels, std::size_t bytesPerRow = 0);

  /// An indexed8 image with tightly packed rows; pixels of index `transparent`, when given, show
  /// nothing. Throws std::invalid_argument when the sizes do not fit, the palette is empty or
  /// larger than 256, or an index has no palette entry.
  static Image indexed8(int width, int height, PixelBuffer indices, std::vector<RGBColor> palette,
                        std::optional<std::uint8_t> transparent = std::nullopt);

  int width() const noexcept { return storage_ ? storage_->width : 0; }
  int height() const noexcept { return storage_ ? storage_->height : 0; }
  std::size_t bytesPerRow() const noexcept { return storage_ ? storage_->bytesPerRow : 0; }
  PixelFormat format() const noexcept { return storage_ ? storage_->format : PixelFormat::bgra8; }
  int bitsPerPixel() const noexcept { return format() == PixelFormat::bgra8 ? 32 : 8; }
  bool empty() const noexcept { return width() == 0 || height() == 0; }

  /// All pixel bytes, `bytesPerRow() * height()` of them.
  std::span<const std::uint8_t> bytes() const noexcept;
  /// The bytes of row `y` that hold pixels (width * bytes per pixel).
  std::span<const std::uint8_t> row(int y) const noexcept;
  /// The palette of an indexed8 image; empty for bgra8.
  std::span<const RGBColor> palette() const noexcept;
  /// The index of an indexed8 image that stands for transparent pixels, if any.
  std::optional<std::uint8_t> transparentIndex() const noexcept {
    return storage_ ? storage_->transparentIndex : std::nullopt;
  }

  /// The same pixels as bgra8 (opaque, or all bytes 0 where transparent) for indexed8 images;
  /// the image itself when it is bgra8 already.
  Image toBGRA8() const;

  /// True when both images have the same size and the same colour (and, for bgra8, alpha) at
  /// every pixel, whatever their formats and row padding.
  bool hasSamePixels(const Image& other) const;

 private:
  struct Storage {
    int width = 0;
    int height = 0;
    std::size_t bytesPerRow = 0;
    PixelFormat format = PixelFormat::bgra8;
    PixelBuffer bytes;
    std::vector<RGBColor> palette;
    std::optional<std::uint8_t> transparentIndex;
  };

  explicit Image(std::shared_ptr<const Storage> storage) : storage_(std::move(storage)) {}

  std::shared_ptr<const Storage> storage_;
};

}  // namespace brimble
