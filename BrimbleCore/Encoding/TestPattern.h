#pragma once

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// Frame `index` of a synthetic screen recording `frameCount` frames long: a gradient desktop, a
/// window whose text is typed in line by line, an anti-aliased ball moving across it and a
/// progress bar. Deterministic, full colour (the gradient and the ball's edge exceed 256
/// colours), and mostly unchanged between frames, like a real screen.
Image testPatternFrame(int index, int frameCount, int width, int height);

}  // namespace brimble
