#pragma once

#include <span>
#include <vector>

#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/SegmentLayout.h"

struct _cairo;

namespace brimble {

/// `highlight` marks around elements: an `outline`, a soft `glow`, or a tinted `box`, fading in
/// and out over the highlight's duration. Immutable once built; paint from any thread.
class ElementHighlights {
 public:
  static constexpr double kFadeIn = 0.2;
  static constexpr double kFadeOut = 0.3;

  enum class Style { outline, glow, box };

  explicit ElementHighlights(std::span<const DemoEvent> demoEvents);

  /// Draws the highlights shown at `time`, placed by `layout`.
  void paint(_cairo* cairo, const SegmentLayout& layout, double time) const;
  bool changesBetween(double from, double to) const;
  bool empty() const noexcept { return marks_.empty(); }

 private:
  struct Mark {
    double start = 0;
    double end = 0;
    ScreenRect rect;
    Style style = Style::outline;
  };
  std::vector<Mark> marks_;
};

}  // namespace brimble
