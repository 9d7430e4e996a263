#include "BrimbleCore/Encoding/OutputFormat.h"

#include <string>

#include "BrimbleCore/Support/Text.h"

namespace brimble {

std::string_view rawValue(OutputFormat format) noexcept {
  switch (format) {
    case OutputFormat::gif:
      return "gif";
    case OutputFormat::webp:
      return "webp";
    case OutputFormat::apng:
      return "apng";
    case OutputFormat::mp4:
      return "mp4";
  }
  return "gif";
}

std::string_view label(OutputFormat format) noexcept {
  switch (format) {
    case OutputFormat::gif:
      return "GIF";
    case OutputFormat::webp:
      return "WebP";
    case OutputFormat::apng:
      return "APNG";
    case OutputFormat::mp4:
      return "MP4";
  }
  return "GIF";
}

std::string_view fileExtension(OutputFormat format) noexcept {
  return format == OutputFormat::apng ? "png" : rawValue(format);
}

std::string_view mimeType(OutputFormat format) noexcept {
  switch (format) {
    case OutputFormat::gif:
      return "image/gif";
    case OutputFormat::webp:
      return "image/webp";
    case OutputFormat::apng:
      return "image/apng";
    case OutputFormat::mp4:
      return "video/mp4";
  }
  return "image/gif";
}

bool isVideo(OutputFormat format) noexcept {
  return format == OutputFormat::mp4;
}

std::optional<OutputFormat> outputFormatFromRawValue(std::string_view text) noexcept {
  for (const OutputFormat format : kAllOutputFormats) {
    if (rawValue(format) == text) {
      return format;
    }
  }
  return std::nullopt;
}

std::optional<OutputFormat> outputFormatFromExtension(std::string_view extension) noexcept {
  std::string lower = lowercased(extension);
  if (!lower.empty() && lower.front() == '.') {
    lower.erase(0, 1);
  }
  if (lower == "png") {
    return OutputFormat::apng;
  }
  return outputFormatFromRawValue(lower);
}

}  // namespace brimble
