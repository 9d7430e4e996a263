#include "BrimbleCore/Effects/SpotlightTrack.h"

#include <algorithm>
#include <cmath>

#include <cairo.h>

#include "BrimbleCore/Effects/CairoHandles.h"

namespace brimble {
namespace {

double smoothstep(double p) {
  const double t = std::clamp(p, 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

ScreenRect between(const ScreenRect& a, const ScreenRect& b, double p) {
  const auto mix = [p](int x, int y) { return static_cast<int>(std::lround(x + (y - x) * p)); };
  return {mix(a.x, b.x), mix(a.y, b.y), mix(a.width, b.width), mix(a.height, b.height)};
}

}  // namespace

SpotlightTrack::SpotlightTrack(std::span<const EffectAnnotation> annotations,
                               std::span<const ScreenRect> rects,
                               std::span<const DemoEvent> demoEvents) {
  std::vector<double> clears;
  for (const DemoEvent& event : demoEvents) {
    if (event.kind == DemoEvent::Kind::clearEffects) {
      clears.push_back(event.time);
    }
  }
  for (std::size_t i = 0; i < annotations.size() && i < rects.size(); ++i) {
    const EffectAnnotation& annotation = annotations[i];
    if (rects[i].empty()) {
      continue;
    }
    Light light{annotation.startTime,
                annotation.startTime + std::max(annotation.duration, 0.0),
                rects[i],
                std::nullopt,
                true,
                true};
    if (annotation.kind == EffectAnnotation::Kind::spotlightShift && !lights_.empty()) {
      Light& previous = lights_.back();
      light.from = previous.rect;
      // The light glides on without going out when the previous one still shines.
      if (previous.end >= light.start - 1e-9) {
        previous.end = light.start;
        previous.fadesOut = false;
        light.fadesIn = false;
      }
    } else if (!lights_.empty() && lights_.back().end > light.start) {
      lights_.back().end = light.start;
    }
    lights_.push_back(light);
  }
  for (double clear : clears) {
    for (Light& light : lights_) {
      if (light.start <= clear && light.end > clear) {
        light.end = clear;
        light.fadesOut = true;
      }
    }
  }
}

std::optional<SpotlightTrack::State> SpotlightTrack::stateAt(double time) const {
  for (const Light& light : lights_) {
    if (time < light.start || time > light.end) {
      continue;
    }
    State state{light.rect, 1};
    const double length = light.end - light.start;
    const double fade = std::min(kFade, length / 2);
    if (light.fadesIn && fade > 0) {
      state.strength = std::min(state.strength, smoothstep((time - light.start) / fade));
    }
    if (light.fadesOut && fade > 0) {
      state.strength = std::min(state.strength, smoothstep((light.end - time) / fade));
    }
    if (light.from) {
      const double glide = std::min(kShift, length);
      state.rect = between(*light.from, light.rect,
                           glide > 0 ? smoothstep((time - light.start) / glide) : 1);
    }
    if (state.strength <= 0) {
      return std::nullopt;
    }
    return state;
  }
  return std::nullopt;
}

void SpotlightTrack::paint(cairo_t* cairo, const SegmentLayout& layout, const CanvasRect& canvas,
                           double time) const {
  const auto state = stateAt(time);
  if (!state) {
    return;
  }
  const CanvasRect light = layout.toCanvas(state->rect);
  const double margin = 6 * layout.uiScale;
  cairo_save(cairo);
  cairo_set_fill_rule(cairo, CAIRO_FILL_RULE_EVEN_ODD);
  cairo_rectangle(cairo, canvas.x, canvas.y, canvas.width, canvas.height);
  roundedRectangle(cairo, light.x - margin, light.y - margin, light.width + 2 * margin,
                   light.height + 2 * margin, 8 * layout.uiScale);
  cairo_set_source_rgba(cairo, 0, 0, 0, kDimming * state->strength);
  cairo_fill(cairo);
  // A soft inner edge: thin rings inside the light, each a little lighter, so the light fades
  // out over a few pixels instead of ending on a hard line.
  constexpr int kRings = 4;
  const double ring = 1.25 * layout.uiScale;
  cairo_set_line_width(cairo, ring);
  for (int i = 0; i < kRings; ++i) {
    const double inset = (i + 0.5) * ring;
    roundedRectangle(cairo, light.x - margin + inset, light.y - margin + inset,
                     light.width + 2 * (margin - inset), light.height + 2 * (margin - inset),
                     std::max(0.0, 8 * layout.uiScale - inset));
    const double fade = 1 - (i + 1.0) / (kRings + 1);
    cairo_set_source_rgba(cairo, 0, 0, 0, kDimming * state->strength * fade * 0.6);
    cairo_stroke(cairo);
  }
  cairo_restore(cairo);
}

bool SpotlightTrack::changesBetween(double from, double to) const {
  for (const Light& light : lights_) {
    const double glideEnd = light.start + (light.from ? kShift : kFade);
    const bool fading =
        (light.start <= to && glideEnd >= from) || (light.end - kFade <= to && light.end >= from);
    if (fading) {
      return true;
    }
  }
  return false;
}

}  // namespace brimble
