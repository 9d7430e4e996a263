#pragma once

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// High-quality resampling with a separable Lanczos-3 filter (widened when shrinking, so every
/// source pixel contributes: text stays legible and edges do not alias). Pure functions; safe
/// from any thread.
namespace ImageScaler {

/// The size of `width` x `height` scaled down to at most `maxWidth` wide, aspect ratio kept and
/// the height rounded to an even number; the size itself when it is narrow enough or
/// `maxWidth` is not positive.
ImageSize scaledSize(int width, int height, int maxWidth);

/// `image` resampled to `size` (bgra8). The image itself when the size is unchanged.
Image resize(const Image& image, ImageSize size);

/// `image` scaled down to `scaledSize(…, maxWidth)`.
Image scaleToMaxWidth(const Image& image, int maxWidth);

}  // namespace ImageScaler
}  // namespace brimble
