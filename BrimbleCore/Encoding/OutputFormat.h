#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace brimble {

/// The files an encode can produce.
enum class OutputFormat { gif, webp, apng, mp4 };

inline constexpr std::array<OutputFormat, 4> kAllOutputFormats = {
    OutputFormat::gif, OutputFormat::webp, OutputFormat::apng, OutputFormat::mp4};

/// "gif", "webp", "apng", "mp4".
std::string_view rawValue(OutputFormat format) noexcept;
/// "GIF", "WebP", "APNG", "MP4".
std::string_view label(OutputFormat format) noexcept;
/// "gif", "webp", "png" (viewers recognise an animated PNG by that extension), "mp4".
std::string_view fileExtension(OutputFormat format) noexcept;
/// The MIME type, for the clipboard and file managers.
std::string_view mimeType(OutputFormat format) noexcept;
bool isVideo(OutputFormat format) noexcept;

std::optional<OutputFormat> outputFormatFromRawValue(std::string_view text) noexcept;

/// The format a file name asks for by its extension, case-insensitively: ".gif", ".webp",
/// ".apng" or ".png" (animated PNG), ".mp4".
std::optional<OutputFormat> outputFormatFromExtension(std::string_view extension) noexcept;

}  // namespace brimble
