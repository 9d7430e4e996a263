#include "BrimbleCore/Encoding/ImageCodec.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include <png.h>
#include <turbojpeg.h>

namespace brimble {
namespace {

struct TurboJPEGCloser {
  void operator()(void* handle) const noexcept { tjDestroy(handle); }
};
using TurboJPEGPtr = std::unique_ptr<void, TurboJPEGCloser>;

struct TurboJPEGBufferFree {
  void operator()(unsigned char* buffer) const noexcept { tjFree(buffer); }
};

struct PNGImageCloser {
  void operator()(png_image* image) const noexcept { png_image_free(image); }
};

bool isJPEG(std::span<const std::uint8_t> data) {
  return data.size() >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF;
}

bool isPNG(std::span<const std::uint8_t> data) {
  static constexpr std::uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  return data.size() >= 8 && std::memcmp(data.data(), kSignature, 8) == 0;
}

std::optional<Image> decodeJPEG(std::span<const std::uint8_t> data) {
  // Handles are cheap to keep and costly to create; one per thread.
  thread_local TurboJPEGPtr handle(tjInitDecompress());
  if (!handle) {
    return std::nullopt;
  }
  int width = 0;
  int height = 0;
  int subsampling = 0;
  int colorspace = 0;
  if (tjDecompressHeader3(handle.get(), data.data(), static_cast<unsigned long>(data.size()),
                          &width, &height, &subsampling, &colorspace) != 0 ||
      width <= 0 || height <= 0) {
    return std::nullopt;
  }
  PixelBuffer pixels(static_cast<std::size_t>(width) * height * 4);
  if (tjDecompress2(handle.get(), data.data(), static_cast<unsigned long>(data.size()),
                    pixels.data(), width, width * 4, height, TJPF_BGRA, TJFLAG_FASTDCT) != 0) {
    return std::nullopt;
  }
  return Image::bgra8(width, height, std::move(pixels));
}

std::optional<Image> decodePNG(std::span<const std::uint8_t> data) {
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  std::unique_ptr<png_image, PNGImageCloser> guard(&png);
  if (png_image_begin_read_from_memory(&png, data.data(), data.size()) == 0) {
    return std::nullopt;
  }
  png.format = PNG_FORMAT_BGRA;
  const std::size_t stride = PNG_IMAGE_ROW_STRIDE(png);
  PixelBuffer pixels(PNG_IMAGE_BUFFER_SIZE(png, stride));
  if (png_image_finish_read(&png, nullptr, pixels.data(), static_cast<png_int_32>(stride),
                            nullptr) == 0) {
    return std::nullopt;
  }
  // Our pixels carry premultiplied alpha; PNG's are straight.
  for (std::size_t i = 0; i < pixels.size(); i += 4) {
    const unsigned alpha = pixels[i + 3];
    if (alpha != 255) {
      for (std::size_t c = 0; c < 3; ++c) {
        pixels[i + c] = static_cast<std::uint8_t>((pixels[i + c] * alpha + 127) / 255);
      }
    }
  }
  return Image::bgra8(static_cast<int>(png.width), static_cast<int>(png.height), std::move(pixels),
                      stride);
}

}  // namespace

ImageCodecError ImageCodecError::encodeFailed(const std::string& format,
                                              const std::string& reason) {
  return {Code::encodeFailed, format + " encoding failed: " + reason};
}

ImageCodecError ImageCodecError::unreadableFile(const std::filesystem::path& file,
                                                const std::string& reason) {
  return {Code::unreadableFile, "cannot read " + file.string() + ": " + reason};
}

std::optional<Image> decodeImage(std::span<const std::uint8_t> data) {
  if (isJPEG(data)) {
    return decodeJPEG(data);
  }
  if (isPNG(data)) {
    return decodePNG(data);
  }
  return std::nullopt;
}

std::optional<ImageSize> imageSize(std::span<const std::uint8_t> data) {
  if (isPNG(data)) {
    // The IHDR chunk always comes first: width and height, big-endian, at bytes 16 and 20.
    if (data.size() < 24 || std::memcmp(data.data() + 12, "IHDR", 4) != 0) {
      return std::nullopt;
    }
    const auto word = [&](std::size_t at) {
      return static_cast<int>((std::uint32_t{data[at]} << 24) |
                              (std::uint32_t{data[at + 1]} << 16) |
                              (std::uint32_t{data[at + 2]} << 8) | data[at + 3]);
    };
    return ImageSize{word(16), word(20)};
  }
  if (isJPEG(data)) {
    thread_local TurboJPEGPtr handle(tjInitDecompress());
    int width = 0;
    int height = 0;
    int subsampling = 0;
    int colorspace = 0;
    if (!handle ||
        tjDecompressHeader3(handle.get(), data.data(), static_cast<unsigned long>(data.size()),
                            &width, &height, &subsampling, &colorspace) != 0) {
      return std::nullopt;
    }
    return ImageSize{width, height};
  }
  return std::nullopt;
}

std::vector<std::uint8_t> encodeJPEG(const Image& source, int quality) {
  thread_local TurboJPEGPtr handle(tjInitCompress());
  if (!handle) {
    throw ImageCodecError::encodeFailed("JPEG", "no compressor");
  }
  const Image image = source.toBGRA8();
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  const int result = tjCompress2(handle.get(), image.bytes().data(), image.width(),
                                 static_cast<int>(image.bytesPerRow()), image.height(), TJPF_BGRA,
                                 &buffer, &size, TJSAMP_420, quality, TJFLAG_FASTDCT);
  std::unique_ptr<unsigned char, TurboJPEGBufferFree> owned(buffer);
  if (result != 0) {
    throw ImageCodecError::encodeFailed("JPEG", tjGetErrorStr2(handle.get()));
  }
  return {buffer, buffer + size};
}

std::vector<std::uint8_t> encodePNG(const Image& source) {
  const Image image = source.toBGRA8();
  bool opaque = true;
  for (int y = 0; y < image.height() && opaque; ++y) {
    const auto row = image.row(y);
    for (std::size_t i = 3; i < row.size() && opaque; i += 4) {
      opaque = row[i] == 255;
    }
  }
  const std::size_t channels = opaque ? 3 : 4;
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(image.width()) * image.height() *
                                   channels);
  std::uint8_t* out = pixels.data();
  for (int y = 0; y < image.height(); ++y) {
    const auto row = image.row(y);
    for (std::size_t i = 0; i < row.size(); i += 4, out += channels) {
      // PNG stores straight alpha; ours is premultiplied.
      const unsigned alpha = row[i + 3];
      for (std::size_t c = 0; c < 3; ++c) {
        out[c] = alpha == 255 || alpha == 0 ? (alpha == 0 ? 0 : row[i + c])
                                            : static_cast<std::uint8_t>(std::min(
                                                  255u, (row[i + c] * 255u + alpha / 2) / alpha));
      }
      if (!opaque) {
        out[3] = static_cast<std::uint8_t>(alpha);
      }
    }
  }
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  png.width = static_cast<png_uint_32>(image.width());
  png.height = static_cast<png_uint_32>(image.height());
  png.format = opaque ? PNG_FORMAT_BGR : PNG_FORMAT_BGRA;
  png_alloc_size_t size = 0;
  if (png_image_write_to_memory(&png, nullptr, &size, 0, pixels.data(), 0, nullptr) == 0) {
    throw ImageCodecError::encodeFailed("PNG", png.message);
  }
  std::vector<std::uint8_t> bytes(size);
  if (png_image_write_to_memory(&png, bytes.data(), &size, 0, pixels.data(), 0, nullptr) == 0) {
    throw ImageCodecError::encodeFailed("PNG", png.message);
  }
  bytes.resize(size);
  return bytes;
}

std::vector<std::uint8_t> readFileBytes(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    throw ImageCodecError::unreadableFile(file, std::strerror(errno));
  }
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  in.seekg(0, std::ios::beg);
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(std::max<std::streamoff>(size, 0)));
  if (!in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))) {
    throw ImageCodecError::unreadableFile(file, "read failed");
  }
  return bytes;
}

}  // namespace brimble
