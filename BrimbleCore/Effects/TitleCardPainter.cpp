#include "BrimbleCore/Effects/TitleCardPainter.h"

#include <algorithm>
#include <cmath>
#include <string>

#include <cairo.h>
#include <pango/pangocairo.h>

#include "BrimbleCore/Effects/CairoHandles.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {
namespace {

// How opaque the text is as the card opens.
constexpr double kFirstOpacity = 0.6;

double easeOut(double p) {
  const double t = std::clamp(p, 0.0, 1.0);
  return 1 - (1 - t) * (1 - t) * (1 - t);
}

}  // namespace

TitleCardPainter::TitleCardPainter(const TitleCard& card, EffectColor background,
                                   EffectColor foreground, ImageSize canvas, bool intro)
    : duration_(card.duration.value_or(kDefaultDuration)), intro_(intro) {
  const double width = canvas.width;
  const double height = canvas.height;
  DrawingSurface backdrop(canvas.width, canvas.height);
  DrawingSurface text(canvas.width, canvas.height);
  {
    // A soft vertical light over the colour, lighter at the top, so a flat fill has depth.
    CairoPtr cairo = backdrop.context();
    cairo_set_source_rgb(cairo.get(), background.red, background.green, background.blue);
    cairo_paint(cairo.get());
    cairo_pattern_t* light = cairo_pattern_create_radial(
        width / 2, -height * 0.2, 0, width / 2, -height * 0.2, std::max(width, height) * 1.1);
    const double lift = background.luminance() < 0.5 ? 1 : 0;
    cairo_pattern_add_color_stop_rgba(light, 0, lift, lift, lift, 0.10);
    cairo_pattern_add_color_stop_rgba(light, 1, lift, lift, lift, 0);
    cairo_set_source(cairo.get(), light);
    cairo_paint(cairo.get());
    cairo_pattern_destroy(light);
  }
  CairoPtr cairo = text.context();
  // Sizes follow the canvas, within what stays legible on a small GIF and calm on a large one.
  const double titleSize = std::clamp(std::min(width * 0.065, height * 0.13), 14.0, 72.0);
  const double subtitleSize = std::max(11.0, titleSize * 0.5);
  const double wrapWidth = width * 0.84;
  PangoLayoutPtr title = textLayout(cairo.get(), card.title, "Sans Bold", titleSize);
  pango_layout_set_width(title.get(), static_cast<int>(wrapWidth * PANGO_SCALE));
  pango_layout_set_wrap(title.get(), PANGO_WRAP_WORD_CHAR);
  pango_layout_set_alignment(title.get(), PANGO_ALIGN_CENTER);
  int titleWidth = 0;
  int titleHeight = 0;
  pango_layout_get_pixel_size(title.get(), &titleWidth, &titleHeight);
  PangoLayoutPtr subtitle;
  int subtitleHeight = 0;
  const double gap = titleSize * 0.55;
  const double rule = card.subtitle.empty() ? 0 : std::max(2.0, titleSize * 0.06);
  if (!card.subtitle.empty()) {
    subtitle = textLayout(cairo.get(), card.subtitle, "Sans", subtitleSize);
    pango_layout_set_width(subtitle.get(), static_cast<int>(wrapWidth * PANGO_SCALE));
    pango_layout_set_wrap(subtitle.get(), PANGO_WRAP_WORD_CHAR);
    pango_layout_set_alignment(subtitle.get(), PANGO_ALIGN_CENTER);
    int subtitleWidth = 0;
    pango_layout_get_pixel_size(subtitle.get(), &subtitleWidth, &subtitleHeight);
  }
  missingGlyphs_ = pango_layout_get_unknown_glyphs_count(title.get()) +
                  (subtitle ? pango_layout_get_unknown_glyphs_count(subtitle.get()) : 0);
  if (missingGlyphs_ > 0) {
    logLine("BrimbleCore: no installed font has " + std::to_string(missingGlyphs_) +
            " of the title card's characters; they show as boxes");
  }
  const double block = titleHeight + (subtitle ? gap + rule + gap + subtitleHeight : 0);
  double y = (height - block) / 2;
  const double x = (width - wrapWidth) / 2;
  cairo_set_source_rgba(cairo.get(), foreground.red, foreground.green, foreground.blue, 1);
  cairo_move_to(cairo.get(), x, y);
  pango_cairo_show_layout(cairo.get(), title.get());
  y += titleHeight;
  if (subtitle) {
    // A short rule between title and subtitle, in the text colour, quieter.
    y += gap;
    const double ruleWidth = std::min(titleSize * 1.6, wrapWidth);
    roundedRectangle(cairo.get(), (width - ruleWidth) / 2, y, ruleWidth, rule, rule / 2);
    cairo_set_source_rgba(cairo.get(), foreground.red, foreground.green, foreground.blue, 0.45);
    cairo_fill(cairo.get());
    y += rule + gap;
    cairo_set_source_rgba(cairo.get(), foreground.red, foreground.green, foreground.blue, 0.72);
    cairo_move_to(cairo.get(), x, y);
    pango_cairo_show_layout(cairo.get(), subtitle.get());
  }
  rise_ = std::max(4.0, titleSize * 0.25);
  cairo.reset();
  backdrop_ = backdrop.image();
  text_ = text.image();
  DrawingSurface settled(backdrop_);
  CairoPtr compose = settled.context();
  cairo_set_source_surface(compose.get(), text.surface(), 0, 0);
  cairo_paint(compose.get());
  compose.reset();
  settled_ = std::move(settled).release();
}

Image TitleCardPainter::frameAt(double time) const {
  if (!intro_ || time >= kTextRise) {
    return settled_;
  }
  const double p = easeOut(time / kTextRise);
  DrawingSurface frame(backdrop_);
  CairoPtr cairo = frame.context();
  const CairoSurfacePtr text = surfaceOver(text_);
  cairo_set_source_surface(cairo.get(), text.get(), 0, (1 - p) * rise_);
  // Readable from the very first frame, which players and chat previews show as the still.
  cairo_paint_with_alpha(cairo.get(), kFirstOpacity + (1 - kFirstOpacity) * p);
  cairo.reset();
  return std::move(frame).release();
}

bool TitleCardPainter::changesBetween(double from, double to) const {
  return intro_ && from < kTextRise && to > 0 && from != to;
}

}  // namespace brimble
