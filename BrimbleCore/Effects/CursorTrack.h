#pragma once

#include <span>
#include <vector>

#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/SegmentLayout.h"

struct _cairo;

namespace brimble {

/// The pointer drawn from a segment's pointer track (or, without one, from the positions of its
/// input events). Smoothing turns jumps and jitter into a glide, yet the smoothed path passes
/// through every click at the moment of the click, so a ripple never appears beside the
/// pointer. Immutable once built; read from any number of threads.
class CursorTrack {
 public:
  /// The smoothing kernel's standard deviation, seconds.
  static constexpr double kSmoothing = 0.09;
  /// How far either side of a click the path is bent back onto it, seconds at most.
  static constexpr double kClickPull = 0.25;

  CursorTrack(const RecordedSegment& segment, bool smoothing);

  /// Where the pointer is drawn at `time`, in screen coordinates; no value before anything is
  /// known of it.
  std::optional<CanvasPoint> positionAt(double time) const;
  /// Draws the pointer at `time`: the recorded cursor picture when there is one, else a plain
  /// arrow.
  void paint(_cairo* cairo, const SegmentLayout& layout, double time) const;
  /// Whether the drawn pointer moves within [`from`, `to`].
  bool changesBetween(double from, double to) const;
  bool empty() const noexcept { return samples_.empty(); }

 private:
  struct Pin {
    double time = 0;
    CanvasPoint position;
    double reach = 0;  // seconds either side over which the path bends to the pin
  };

  CanvasPoint rawAt(double time) const;
  CanvasPoint smoothedAt(double time) const;
  int cursorAt(double time) const;

  std::vector<PointerSample> samples_;
  std::vector<Pin> pins_;
  std::vector<CursorImage> images_;
  bool smoothing_ = false;
};

}  // namespace brimble
