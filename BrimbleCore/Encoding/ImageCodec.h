#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

class ImageCodecError : public std::runtime_error {
 public:
  enum class Code { encodeFailed, unreadableFile };

  static ImageCodecError encodeFailed(const std::string& format, const std::string& reason);
  static ImageCodecError unreadableFile(const std::filesystem::path& file,
                                        const std::string& reason);

  Code code() const noexcept { return code_; }

 private:
  ImageCodecError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

/// The platform image decoder: JPEG (libjpeg-turbo) and PNG (libpng), told apart by their
/// signatures, decoded to bgra8. No value for anything else or for damaged data.
/// Thread-safe.
std::optional<Image> decodeImage(std::span<const std::uint8_t> data);

/// The pixel size a JPEG or PNG declares, read from its header without decoding; no value for
/// anything else.
std::optional<ImageSize> imageSize(std::span<const std::uint8_t> data);

/// `image` as a baseline JPEG of `quality` (1...100), 4:2:0 chroma. Throws
/// ImageCodecError::encodeFailed. Thread-safe.
std::vector<std::uint8_t> encodeJPEG(const Image& image, int quality);

/// `image` as an 8-bit RGBA PNG (RGB when opaque). Throws ImageCodecError::encodeFailed.
std::vector<std::uint8_t> encodePNG(const Image& image);

/// The whole file. Throws ImageCodecError::unreadableFile.
std::vector<std::uint8_t> readFileBytes(const std::filesystem::path& file);

}  // namespace brimble
