#include "BrimbleCore/Effects/ElementHighlights.h"

#include <algorithm>

#include <cairo.h>

#include "BrimbleCore/Effects/CairoHandles.h"

namespace brimble {
namespace {

// One warm accent for every style, apart from the ripples' blue.
constexpr double kRed = 1.0;
constexpr double kGreen = 0.74;
constexpr double kBlue = 0.16;

}  // namespace

ElementHighlights::ElementHighlights(std::span<const DemoEvent> demoEvents) {
  std::vector<double> clears;
  for (const DemoEvent& event : demoEvents) {
    if (event.kind == DemoEvent::Kind::clearEffects) {
      clears.push_back(event.time);
    }
    if (event.kind != DemoEvent::Kind::highlight || event.rect.empty()) {
      continue;
    }
    Style style = Style::outline;
    if (event.style == "glow") {
      style = Style::glow;
    } else if (event.style == "box") {
      style = Style::box;
    }
    marks_.push_back({event.time, event.time + std::max(event.duration, 0.0), event.rect, style});
  }
  for (double clear : clears) {
    for (Mark& mark : marks_) {
      if (mark.start <= clear && mark.end > clear) {
        mark.end = clear;
      }
    }
  }
}

void ElementHighlights::paint(cairo_t* cairo, const SegmentLayout& layout, double time) const {
  const double ui = layout.uiScale;
  for (const Mark& mark : marks_) {
    if (time < mark.start || time > mark.end) {
      continue;
    }
    const double alpha =
        std::clamp(std::min((time - mark.start) / kFadeIn, (mark.end - time) / kFadeOut), 0.0, 1.0);
    const CanvasRect r = layout.toCanvas(mark.rect);
    const double margin = 4 * ui;
    const double radius = 6 * ui;
    const auto path = [&](double grow) {
      roundedRectangle(cairo, r.x - margin - grow, r.y - margin - grow,
                       r.width + 2 * (margin + grow), r.height + 2 * (margin + grow),
                       radius + grow);
    };
    cairo_save(cairo);
    switch (mark.style) {
      case Style::outline:
        path(0);
        cairo_set_line_width(cairo, 3 * ui);
        cairo_set_source_rgba(cairo, kRed, kGreen, kBlue, alpha);
        cairo_stroke(cairo);
        break;
      case Style::glow:
        // Wide faint strokes under narrow bright ones read as light spilling outwards.
        for (int ring = 5; ring >= 1; --ring) {
          path(ring * 1.6 * ui);
          cairo_set_line_width(cairo, 3.2 * ui);
          cairo_set_source_rgba(cairo, kRed, kGreen, kBlue, alpha * 0.13 * (6 - ring) / 2);
          cairo_stroke(cairo);
        }
        path(0);
        cairo_set_line_width(cairo, 2 * ui);
        cairo_set_source_rgba(cairo, 1, 0.9, 0.6, alpha);
        cairo_stroke(cairo);
        break;
      case Style::box:
        path(0);
        cairo_set_source_rgba(cairo, kRed, kGreen, kBlue, alpha * 0.22);
        cairo_fill_preserve(cairo);
        cairo_set_line_width(cairo, 2 * ui);
        cairo_set_source_rgba(cairo, kRed, kGreen, kBlue, alpha * 0.9);
        cairo_stroke(cairo);
        break;
    }
    cairo_restore(cairo);
  }
}

bool ElementHighlights::changesBetween(double from, double to) const {
  for (const Mark& mark : marks_) {
    const bool fadingIn = mark.start <= to && mark.start + kFadeIn >= from;
    const bool fadingOut = mark.end - kFadeOut <= to && mark.end >= from;
    if (fadingIn || fadingOut) {
      return true;
    }
  }
  return false;
}

}  // namespace brimble
