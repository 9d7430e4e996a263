#pragma once

#include <optional>
#include <span>
#include <vector>

#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/SegmentLayout.h"

struct _cairo;

namespace brimble {

/// The spotlights of a segment over time: everything outside a rounded rectangle is dimmed,
/// fading in and out; a shift glides the rectangle from where the light stood before; clear-fx
/// puts it out. Immutable once built; read from any number of threads.
class SpotlightTrack {
 public:
  static constexpr double kFade = 0.3;
  static constexpr double kShift = 0.5;
  /// How dark the outside gets: its light is multiplied by 1 - kDimming.
  static constexpr double kDimming = 0.62;

  /// What the light looks like at one moment.
  struct State {
    ScreenRect rect;
    /// 0 (no light) ... 1 (fully dimmed outside).
    double strength = 0;
  };

  /// `rects` gives each annotation's rectangle in screen coordinates (for `stdout` targets the
  /// line found on the frames); annotations whose rectangle is empty are left out.
  SpotlightTrack(std::span<const EffectAnnotation> annotations, std::span<const ScreenRect> rects,
                 std::span<const DemoEvent> demoEvents);

  std::optional<State> stateAt(double time) const;
  /// Dims `canvas` outside the light at `time`; `toCanvas` places the light's rectangle.
  void paint(_cairo* cairo, const SegmentLayout& layout, const CanvasRect& canvas,
             double time) const;
  bool changesBetween(double from, double to) const;
  bool empty() const noexcept { return lights_.empty(); }

 private:
  struct Light {
    double start = 0;
    double end = 0;
    ScreenRect rect;
    std::optional<ScreenRect> from;  // a shift's previous rectangle
    bool fadesIn = true;
    bool fadesOut = true;
  };
  std::vector<Light> lights_;
};

}  // namespace brimble
