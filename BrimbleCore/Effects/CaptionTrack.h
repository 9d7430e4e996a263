#pragma once

#include <span>
#include <string>
#include <vector>

#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/SegmentLayout.h"

struct _cairo;

namespace brimble {

/// The captions of one segment as they show: each from its time to its end, white text wrapped
/// to the recording's width on a dark plate, so that it reads over any picture. Fonts come from
/// the system's fallback chain, so any script an installed font covers is drawn. Immutable once
/// built; paint from any number of threads.
class CaptionTrack {
 public:
  static constexpr double kFade = 0.15;
  /// At most this many lines show; a longer caption ends in an ellipsis.
  static constexpr int kMaxLines = 4;

  struct Shown {
    double start = 0;
    double end = 0;
    std::string text;
    Caption::Position position = Caption::Position::bottom;
  };

  /// `captions` in the order the script placed them, on a segment that plays `length` seconds.
  CaptionTrack(std::span<const Caption> captions, double length);

  /// The captions with their ends settled, in time order; empty texts are left out.
  const std::vector<Shown>& shown() const noexcept { return shown_; }
  bool empty() const noexcept { return shown_.empty(); }
  /// Characters of the captions that no installed font has (drawn as boxes).
  int missingGlyphs() const noexcept { return missingGlyphs_; }

  /// Draws the captions shown at `time` in `area` (canvas pixels) and returns how much of the
  /// area's bottom a caption takes there, so that other overlays can stand above it.
  double paint(_cairo* cairo, const CanvasRect& area, double uiScale, double time) const;
  /// Whether a caption appears, fades or goes within [`from`, `to`].
  bool changesBetween(double from, double to) const;

 private:
  std::vector<Shown> shown_;
  int missingGlyphs_ = 0;
};

}  // namespace brimble
