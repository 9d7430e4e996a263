#pragma once

#include <span>
#include <vector>

#include "BrimbleCore/Automation/EventCapture.h"
#include "BrimbleCore/Effects/SegmentLayout.h"

struct _cairo;

namespace brimble {

/// A ripple at every click: a ring that grows from the pointer and fades, with a soft disc
/// under it. Right clicks ripple twice in another colour, so the two read apart at a glance.
/// Immutable once built; paint from any number of threads.
class ClickIndicators {
 public:
  /// How long one ripple lasts, seconds.
  static constexpr double kDuration = 0.6;
  /// The ring's largest radius at a uiScale of 1, output pixels.
  static constexpr double kRadius = 26;

  struct Click {
    double time = 0;
    ScreenPoint position;
    bool right = false;
  };

  /// The button presses of `events`.
  explicit ClickIndicators(std::span<const InputEvent> events);

  const std::vector<Click>& clicks() const noexcept { return clicks_; }
  /// Draws the ripples alive at `time` (seconds of the segment) in `layout`'s canvas pixels.
  void paint(_cairo* cairo, const SegmentLayout& layout, double time) const;
  /// Whether a ripple is alive anywhere within [`from`, `to`].
  bool changesBetween(double from, double to) const;

 private:
  std::vector<Click> clicks_;
};

}  // namespace brimble
