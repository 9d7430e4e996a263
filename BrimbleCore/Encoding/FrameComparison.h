#pragma once

#include <optional>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// How deduplication decides that a frame repeats the last kept one.
enum class DedupRule {
  /// About 100 sampled pixels, up to 5 of them changed (`compressedFramesAreSimilar`): cheap and
  /// tolerant, but blind to small changes such as a typed character.
  sampled,
  /// Every pixel, each within 10 per channel (`framesMatchEveryPixel`): JPEG noise repeats, any
  /// visible change does not.
  everyPixel,
};

/// Comparisons of two frames, shared by deduplication, the encoder and the GIF writer's frame
/// diffing. Pure; safe from any thread.
namespace FrameComparison {

/// The pixels of `current` that changed since `previous`: a bgra8 image of the same size in
/// which every pixel whose blue, green and red each differ by at most `tolerance` is fully
/// transparent (all four bytes 0) and every other pixel is the current colour, opaque. No
/// value when the sizes differ.
std::optional<Image> createDiffFrame(const Image& current, const Image& previous, int tolerance);

/// Whether two frames look the same despite JPEG noise: about 100 sampled pixels, each allowed
/// to differ by 10 per channel, and at most 5 of them beyond that.
bool compressedFramesAreSimilar(const Image& a, const Image& b);

/// Whether every pixel of `a` is within `tolerance` per channel of the same pixel of `b`
/// (alpha ignored). Images of different sizes never match.
bool framesMatchEveryPixel(const Image& a, const Image& b, int tolerance);

/// Whether `next` repeats `kept` by `rule`.
bool framesRepeat(const Image& kept, const Image& next, DedupRule rule);

}  // namespace FrameComparison
}  // namespace brimble
