#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// The pointer's picture as the display server draws it.
struct CursorImage {
  /// bgra8, alpha premultiplied.
  Image image;
  /// The pixel of `image` that sits at the pointer position.
  int hotX = 0;
  int hotY = 0;
};

/// Draws `cursor` over an opaque frame of bgra8 pixels (`width` x `height`, rows `bytesPerRow`
/// apart) with its hot spot at (`x`, `y`) of the frame: premultiplied source-over, so the frame
/// stays opaque. What falls outside the frame is left out. Pure; any thread.
void blendCursor(std::span<std::uint8_t> frame, std::size_t bytesPerRow, int width, int height,
                 const CursorImage& cursor, int x, int y);

}  // namespace brimble
