#pragma once

#include <cstddef>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// How many of the pixels at indices 0, stride, 2 stride, … (row by row) differ between two
/// images of one size: a sample differs when its blue, green or red differs by more than
/// `threshold`. Stops counting at `enough`, and at the end of either image's bytes. The two
/// images must have the same size and at least 24 bits per pixel; quick comparisons of whole
/// frames (similar frames, scene changes) are built on it.
std::size_t countDifferingSamples(const Image& a, const Image& b, std::size_t stride, int threshold,
                                  std::size_t enough);

}  // namespace brimble
