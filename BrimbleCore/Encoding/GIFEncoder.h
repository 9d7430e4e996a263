#pragma once

#include <optional>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// Turns a recording into an animation file.
class GIFEncoder {
 public:
  /// The pixels of `current` that changed since `previous`: a bgra8 image of the same size in
  /// which every pixel whose blue, green and red each differ by at most `tolerance` is fully
  /// transparent (all four bytes 0) and every other pixel is the current colour, opaque. No
  /// value when the sizes differ.
  static std::optional<Image> createDiffFrame(const Image& current, const Image& previous,
                                              int tolerance);
};

}  // namespace brimble
