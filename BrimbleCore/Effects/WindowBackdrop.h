#pragma once

#include <optional>
#include <string>

#include "BrimbleCore/Effects/EffectColor.h"
#include "BrimbleCore/Effects/SegmentLayout.h"
#include "BrimbleCore/Effects/WindowBar.h"
#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// What lies under a segment's frames on the canvas and never changes: the background (a colour
/// or a picture; black without one), the window's soft shadow and rounded shape on it, and its
/// title bar. Pure; any thread.
namespace WindowBackdrop {

/// What a backdrop is made of.
struct Style {
  /// The canvas's colour, under `picture` when there is one.
  EffectColor fill{0, 0, 0, 1};
  /// Scaled to cover the canvas, centred; not owned, may be null.
  const Image* picture = nullptr;
  /// The window sits on a background: a soft shadow under its rounded shape.
  bool shadow = false;
  std::optional<WindowBar> bar;
};

/// The backdrop of `layout` on a canvas of `canvas`. Throws EffectsError::drawingFailed.
Image make(const SegmentLayout& layout, ImageSize canvas, const Style& style);

/// Blurs the alpha of `pixels` (a `width` x `height` bgra8 mask whose colour is black) with
/// three box passes of `radius`, approximating a Gaussian.
void blurAlpha(std::uint8_t* pixels, int width, int height, int radius);

}  // namespace WindowBackdrop
}  // namespace brimble
