#pragma once

#include <cstddef>
#include <vector>

#include "Brimble/Recording/AnnotationStore.h"
#include "BrimbleCore/Capture/ScreenRect.h"
#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// Draws a recording's marks into its frames, for recordings that do not capture the layer the
/// marks are shown on (a window's own pixels). A frame shows every mark finished at or before
/// its capture time, looking as it did on screen. Thread-safe: frames may be painted at once.
class AnnotationPainter {
 public:
  /// `screenArea` is what frames show, in screen coordinates; frames may be scaled from it.
  AnnotationPainter(std::vector<Annotation> annotations, const ScreenRect& screenArea);

  /// How many marks a frame captured at `time` (recording time, seconds) shows.
  std::size_t visibleAt(double time) const;
  /// `frame` with the marks visible at `time` drawn on it.
  Image paint(const Image& frame, double time) const;

 private:
  std::vector<Annotation> annotations_;
  ScreenRect screenArea_;
};

}  // namespace brimble
