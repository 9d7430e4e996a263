#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <vector>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble::testing {

/// A GIF as a viewer shows it, decoded by giflib independently of our writer.
struct DecodedGIF {
  int width = 0;
  int height = 0;
  /// Plays from the NETSCAPE2.0 block (repetitions + 1, 0 = forever); no value without one.
  std::optional<int> plays;
  /// Each frame composited over the previous ones (disposal and transparency applied), as
  /// opaque bgra8.
  std::vector<Image> frames;
  std::vector<int> delaysCentiseconds;
  /// Whether each frame carries a local colour table (else it uses the global one).
  std::vector<bool> localTables;
};

/// Decodes with giflib's DGifSlurp. Fails the current test (and returns no value) when giflib
/// rejects the data.
std::optional<DecodedGIF> decodeGIF(std::span<const std::uint8_t> bytes);
std::optional<DecodedGIF> decodeGIFFile(const std::filesystem::path& file);

}  // namespace brimble::testing
