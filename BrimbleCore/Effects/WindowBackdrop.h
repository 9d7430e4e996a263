#pragma once

#include <optional>
#include <string>

#include "BrimbleCore/Effects/EffectColor.h"
#include "BrimbleCore/Effects/SegmentLayout.h"
#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// What lies under a segment's frames on the canvas and never changes: the background colour
/// (black without one), the window's soft shadow and rounded shape on it, and a plain title bar.
/// Pure; any thread.
namespace WindowBackdrop {

/// The backdrop of `layout` on a canvas of `canvas`. With `background`, the window gets rounded
/// corners and a soft shadow; with `titleBar`, a title bar with that title. Throws
/// EffectsError::drawingFailed.
Image make(const SegmentLayout& layout, ImageSize canvas,
           const std::optional<EffectColor>& background,
           const std::optional<std::string>& titleBar);

/// Blurs the alpha of `pixels` (a `width` x `height` bgra8 mask whose colour is black) with
/// three box passes of `radius`, approximating a Gaussian.
void blurAlpha(std::uint8_t* pixels, int width, int height, int radius);

}  // namespace WindowBackdrop
}  // namespace brimble
