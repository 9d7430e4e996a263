#include "BrimbleCore/Effects/CaptionTrack.h"

#include <algorithm>
#include <cmath>

#include <cairo.h>
#include <pango/pangocairo.h>

#include "BrimbleCore/Effects/CairoHandles.h"

namespace brimble {
namespace {

constexpr const char* kFont = "Sans Bold";

}  // namespace

CaptionTrack::CaptionTrack(std::span<const Caption> captions, double length) {
  for (std::size_t i = 0; i < captions.size(); ++i) {
    const Caption& caption = captions[i];
    if (caption.text.empty() || !(caption.time < length)) {
      continue;
    }
    // The next caption in the same place takes over, an empty one only ending this one.
    double end = length;
    for (std::size_t j = i + 1; j < captions.size(); ++j) {
      if (captions[j].position == caption.position && captions[j].time >= caption.time) {
        end = captions[j].time;
        break;
      }
    }
    if (caption.duration) {
      end = std::min(end, caption.time + std::max(*caption.duration, 0.0));
    }
    end = std::min(end, length);
    const double start = std::max(caption.time, 0.0);
    if (end > start) {
      shown_.push_back({start, end, caption.text, caption.position});
    }
  }
  std::stable_sort(shown_.begin(), shown_.end(),
                   [](const Shown& a, const Shown& b) { return a.start < b.start; });
  if (!shown_.empty()) {
    DrawingSurface scratch(1, 1);
    const CairoPtr cairo = scratch.context();
    for (const Shown& caption : shown_) {
      const PangoLayoutPtr layout = textLayout(cairo.get(), caption.text, kFont, 19);
      missingGlyphs_ += pango_layout_get_unknown_glyphs_count(layout.get());
    }
  }
}

double CaptionTrack::paint(cairo_t* cairo, const CanvasRect& area, double uiScale,
                           double time) const {
  double bottomInset = 0;
  for (const Shown& caption : shown_) {
    if (time < caption.start || time >= caption.end) {
      continue;
    }
    const double alpha = std::clamp(
        std::min((time - caption.start) / kFade, (caption.end - time) / kFade), 0.0, 1.0);
    const double ui = std::clamp(uiScale, 0.5, 2.0);
    const double fontSize = 19 * ui;
    const double margin = 14 * ui;
    const double padX = 14 * ui;
    const double padY = 8 * ui;
    const double maxTextWidth = area.width - 2 * (margin + padX);
    if (maxTextWidth < fontSize) {
      continue;
    }
    PangoLayoutPtr layout = textLayout(cairo, caption.text, kFont, fontSize);
    pango_layout_set_width(layout.get(), static_cast<int>(maxTextWidth * PANGO_SCALE));
    pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
    pango_layout_set_alignment(layout.get(), PANGO_ALIGN_CENTER);
    pango_layout_set_height(layout.get(), -kMaxLines);
    pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
    PangoRectangle ink{};
    PangoRectangle logical{};
    pango_layout_get_pixel_extents(layout.get(), &ink, &logical);
    const double plateWidth = logical.width + 2 * padX;
    const double plateHeight = logical.height + 2 * padY;
    const double left = area.x + (area.width - plateWidth) / 2;
    const double top = caption.position == Caption::Position::top
                           ? area.y + margin
                           : area.y + area.height - margin - plateHeight;
    if (caption.position == Caption::Position::bottom) {
      bottomInset = std::max(bottomInset, plateHeight + margin);
    }

    cairo_save(cairo);
    cairo_rectangle(cairo, std::floor(left) - 1, std::floor(top) - 1, std::ceil(plateWidth) + 2,
                    std::ceil(plateHeight) + 2);
    cairo_clip(cairo);
    cairo_push_group(cairo);
    roundedRectangle(cairo, left, top, plateWidth, plateHeight, 8 * ui);
    cairo_set_source_rgba(cairo, 0.05, 0.05, 0.07, 0.8);
    cairo_fill(cairo);
    // The layout's width is the wrap width; its lines are centred within it.
    cairo_move_to(cairo, left + padX - logical.x, top + padY - logical.y);
    cairo_set_source_rgba(cairo, 1, 1, 1, 1);
    pango_cairo_show_layout(cairo, layout.get());
    cairo_pop_group_to_source(cairo);
    cairo_paint_with_alpha(cairo, alpha);
    cairo_restore(cairo);
  }
  return bottomInset;
}

bool CaptionTrack::changesBetween(double from, double to) const {
  for (const Shown& caption : shown_) {
    const bool steady = from >= caption.start + kFade && to <= caption.end - kFade;
    if (caption.start <= to && caption.end >= from && !steady) {
      return true;
    }
  }
  return false;
}

}  // namespace brimble
