#pragma once

#include <span>
#include <vector>

#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/SegmentLayout.h"

namespace brimble {

/// The digital camera of a segment: `zoom` eases into an element's rectangle at its scale over
/// its duration and holds; `zoom-out` eases back to the whole frame. Moves ease in and out
/// (no jumps), and a zoom that starts while another moves starts from where the camera is.
/// Immutable once built; read from any number of threads.
class CameraTrack {
 public:
  explicit CameraTrack(std::span<const DemoEvent> demoEvents);

  /// Where `layout`'s content is drawn at `time` so that the camera shows what it looks at:
  /// `layout.content` itself when not zoomed, else a larger rectangle around it (the drawing is
  /// clipped to `layout.content`).
  CanvasRect contentAt(const SegmentLayout& layout, double time) const;
  bool changesBetween(double from, double to) const;
  bool empty() const noexcept { return moves_.empty(); }

 private:
  /// What the camera looks at: magnification, and the centre of the view in screen pixels
  /// (no value: the centre of the content).
  struct View {
    double scale = 1;
    std::optional<ScreenRect> target;
  };
  struct Move {
    double start = 0;
    double duration = 0;
    View to;
  };

  std::vector<Move> moves_;
};

}  // namespace brimble
