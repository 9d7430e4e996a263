#pragma once

#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// What an encode wrote.
struct EncodeSummary {
  int frames = 0;  // frames in the file; 0 when nothing was written
  int width = 0;
  int height = 0;
  double duration = 0;  // seconds the animation plays once, as written (GIF: whole centiseconds)
};

/// Where an encode's frames go: an animation writer or the video writer. Frames go in one at a
/// time with the seconds each is shown, then `finish` completes the file. One thread at a time.
class FrameOutput {
 public:
  virtual ~FrameOutput() = default;

  virtual void append(const Image& image, double delay) = 0;
  virtual void finish() = 0;
  virtual const EncodeSummary& summary() const noexcept = 0;
};

}  // namespace brimble
