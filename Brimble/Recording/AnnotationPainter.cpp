#include "Brimble/Recording/AnnotationPainter.h"

#include <algorithm>
#include <cmath>

#include <cairo.h>

#include "BrimbleCore/Effects/CairoHandles.h"

namespace brimble {

namespace {

void tracePath(cairo_t* cairo, const Annotation& mark) {
  const Annotation::Point& first = mark.points.front();
  const Annotation::Point& last = mark.points.back();
  switch (mark.kind) {
    case Annotation::Kind::stroke:
      cairo_move_to(cairo, first.x, first.y);
      for (const Annotation::Point& point : mark.points) {
        cairo_line_to(cairo, point.x, point.y);
      }
      break;
    case Annotation::Kind::rectangle:
      cairo_rectangle(cairo, std::min(first.x, last.x), std::min(first.y, last.y),
                      std::abs(last.x - first.x), std::abs(last.y - first.y));
      break;
    case Annotation::Kind::arrow: {
      cairo_move_to(cairo, first.x, first.y);
      cairo_line_to(cairo, last.x, last.y);
      const double angle = std::atan2(last.y - first.y, last.x - first.x);
      for (const double side : {-Annotation::kArrowHeadSpread, Annotation::kArrowHeadSpread}) {
        cairo_move_to(cairo, last.x, last.y);
        cairo_line_to(cairo, last.x - Annotation::kArrowHeadLength * std::cos(angle + side),
                      last.y - Annotation::kArrowHeadLength * std::sin(angle + side));
      }
      break;
    }
  }
}

}  // namespace

AnnotationPainter::AnnotationPainter(std::vector<Annotation> annotations,
                                     const ScreenRect& screenArea)
    : annotations_(std::move(annotations)), screenArea_(screenArea) {
  std::stable_sort(annotations_.begin(), annotations_.end(),
                   [](const Annotation& a, const Annotation& b) { return a.time < b.time; });
}

std::size_t AnnotationPainter::visibleAt(double time) const {
  return static_cast<std::size_t>(
      std::upper_bound(annotations_.begin(), annotations_.end(), time,
                       [](double at, const Annotation& mark) { return at < mark.time; }) -
      annotations_.begin());
}

Image AnnotationPainter::paint(const Image& frame, double time) const {
  const std::size_t visible = visibleAt(time);
  if (visible == 0 || screenArea_.empty()) {
    return frame;
  }
  DrawingSurface surface(frame);
  {
    const CairoPtr context = surface.context();
    cairo_t* cairo = context.get();
    // Marks are in screen pixels; the frame shows `screenArea_`, possibly scaled.
    cairo_scale(cairo, static_cast<double>(frame.width()) / screenArea_.width,
                static_cast<double>(frame.height()) / screenArea_.height);
    cairo_translate(cairo, -screenArea_.x, -screenArea_.y);
    cairo_set_source_rgb(cairo, Annotation::kRed / 255.0, Annotation::kGreen / 255.0,
                         Annotation::kBlue / 255.0);
    cairo_set_line_width(cairo, Annotation::kPenWidth);
    cairo_set_line_cap(cairo, CAIRO_LINE_CAP_ROUND);
    cairo_set_line_join(cairo, CAIRO_LINE_JOIN_ROUND);
    for (std::size_t i = 0; i < visible; ++i) {
      if (!annotations_[i].points.empty()) {
        tracePath(cairo, annotations_[i]);
        cairo_stroke(cairo);
      }
    }
  }
  return std::move(surface).release();
}

}  // namespace brimble
