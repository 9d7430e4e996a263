#pragma once

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// The common interface of the animation writers (GIF, APNG, WebP): frames go in one at a time,
/// then `finish` completes the file. One thread at a time.
class AnimationMuxer {
 public:
  virtual ~AnimationMuxer() = default;

  /// Adds one frame shown for `delay` seconds.
  virtual void append(const Image& image, double delay) = 0;
  /// Completes the file. Throws MuxError::noFramesAppended when nothing was appended.
  virtual void finish() = 0;
};

}  // namespace brimble
