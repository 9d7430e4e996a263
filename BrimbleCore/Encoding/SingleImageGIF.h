#pragma once

#include <cstdint>
#include <vector>

#include "BrimbleCore/Encoding/IndexedFrame.h"

namespace brimble {

/// Writes `frame` with giflib as a single-image GIF89a file in memory: a `canvasWidth` x
/// `canvasHeight` logical screen with the frame's palette as global colour table (padded to a
/// power of two), a graphic control extension naming the transparent index when there is one,
/// and the image at its offset without a local table. Throws MuxError::encoderFailed when giflib
/// fails.
std::vector<std::uint8_t> encodeSingleImageGIF(const IndexedFrame& frame, int canvasWidth,
                                               int canvasHeight);

}  // namespace brimble
