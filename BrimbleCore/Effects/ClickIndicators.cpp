#include "BrimbleCore/Effects/ClickIndicators.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <cairo.h>

namespace brimble {
namespace {

double easeOut(double p) {
  return 1 - (1 - p) * (1 - p) * (1 - p);
}

void ripple(cairo_t* cairo, CanvasPoint centre, double radius, double alpha, double red,
            double green, double blue, double ui) {
  // A soft disc under the ring, then the ring with a light rim so it shows on dark and light.
  cairo_arc(cairo, centre.x, centre.y, radius, 0, 2 * std::numbers::pi);
  cairo_set_source_rgba(cairo, red, green, blue, 0.22 * alpha);
  cairo_fill_preserve(cairo);
  cairo_set_line_width(cairo, 3.5 * ui);
  cairo_set_source_rgba(cairo, 1, 1, 1, 0.7 * alpha);
  cairo_stroke_preserve(cairo);
  cairo_set_line_width(cairo, 2.2 * ui);
  cairo_set_source_rgba(cairo, red, green, blue, alpha);
  cairo_stroke(cairo);
}

}  // namespace

ClickIndicators::ClickIndicators(std::span<const InputEvent> events) {
  for (const InputEvent& event : events) {
    if (event.kind == InputEvent::Kind::mouseDown && event.button >= 1 && event.button <= 3) {
      clicks_.push_back({event.timestamp, event.position, event.button == 3});
    }
  }
}

void ClickIndicators::paint(cairo_t* cairo, const SegmentLayout& layout, double time) const {
  const double ui = layout.uiScale;
  for (const Click& click : clicks_) {
    const double age = time - click.time;
    if (age < 0 || age > kDuration) {
      continue;
    }
    const CanvasPoint centre = layout.toCanvas(click.position.x, click.position.y);
    const double p = age / kDuration;
    const double alpha = std::pow(1 - p, 1.5);
    if (click.right) {
      // Two rings, the second a beat behind: a double tap of colour.
      ripple(cairo, centre, (6 + kRadius * 0.8 * easeOut(p)) * ui, alpha, 1.0, 0.55, 0.15, ui);
      const double q = std::clamp((age - 0.12) / (kDuration - 0.12), 0.0, 1.0);
      if (age >= 0.12) {
        ripple(cairo, centre, (6 + kRadius * 0.8 * easeOut(q)) * ui, std::pow(1 - q, 1.5), 1.0,
               0.55, 0.15, ui);
      }
    } else {
      ripple(cairo, centre, (6 + kRadius * easeOut(p)) * ui, alpha, 0.25, 0.5, 1.0, ui);
    }
  }
}

bool ClickIndicators::changesBetween(double from, double to) const {
  for (const Click& click : clicks_) {
    if (click.time <= to && click.time + kDuration >= from) {
      return true;
    }
  }
  return false;
}

}  // namespace brimble
