#include "BrimbleCore/Effects/WindowBackdrop.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <cairo.h>

#include "BrimbleCore/Effects/CairoHandles.h"
#include "BrimbleCore/Effects/WindowChrome.h"

namespace brimble::WindowBackdrop {
namespace {

// One running-sum box pass over `count` values `stride` apart.
void boxPass(std::uint8_t* values, int count, std::ptrdiff_t stride, int radius,
             std::vector<std::uint8_t>& scratch) {
  scratch.resize(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    scratch[static_cast<std::size_t>(i)] = values[i * stride];
  }
  const int window = 2 * radius + 1;
  int sum = 0;
  for (int i = -radius; i <= radius; ++i) {
    sum += scratch[static_cast<std::size_t>(std::clamp(i, 0, count - 1))];
  }
  for (int i = 0; i < count; ++i) {
    values[i * stride] = static_cast<std::uint8_t>((sum + window / 2) / window);
    sum += scratch[static_cast<std::size_t>(std::min(i + radius + 1, count - 1))];
    sum -= scratch[static_cast<std::size_t>(std::max(i - radius, 0))];
  }
}

}  // namespace

void blurAlpha(std::uint8_t* pixels, int width, int height, int radius) {
  if (radius <= 0) {
    return;
  }
  std::vector<std::uint8_t> scratch;
  // Only alpha carries the shadow: its colour is black, which premultiplied is all zeros.
  for (int pass = 0; pass < 3; ++pass) {
    for (int y = 0; y < height; ++y) {
      boxPass(pixels + static_cast<std::ptrdiff_t>(y) * width * 4 + 3, width, 4, radius, scratch);
    }
    for (int x = 0; x < width; ++x) {
      boxPass(pixels + static_cast<std::ptrdiff_t>(x) * 4 + 3, height,
              static_cast<std::ptrdiff_t>(width) * 4, radius, scratch);
    }
  }
}

Image make(const SegmentLayout& layout, ImageSize canvas, const Style& style) {
  DrawingSurface surface(canvas.width, canvas.height);
  CairoPtr cairo = surface.context();
  const EffectColor& fill = style.fill;
  cairo_set_source_rgb(cairo.get(), fill.red, fill.green, fill.blue);
  cairo_paint(cairo.get());
  if (style.picture != nullptr && style.picture->width() > 0 && style.picture->height() > 0) {
    const Image picture = style.picture->toBGRA8();
    const CairoSurfacePtr source = surfaceOver(picture);
    const double cover = std::max(static_cast<double>(canvas.width) / picture.width(),
                                  static_cast<double>(canvas.height) / picture.height());
    cairo_save(cairo.get());
    cairo_translate(cairo.get(), (canvas.width - picture.width() * cover) / 2,
                    (canvas.height - picture.height() * cover) / 2);
    cairo_scale(cairo.get(), cover, cover);
    cairo_set_source_surface(cairo.get(), source.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cairo.get()), CAIRO_FILTER_GOOD);
    cairo_paint(cairo.get());
    cairo_restore(cairo.get());
  }
  const CanvasRect& window = layout.window;
  if (style.shadow) {
    const double ui = layout.uiScale;
    DrawingSurface shadow(canvas.width, canvas.height);
    {
      CairoPtr mask = shadow.context();
      roundedRectangle(mask.get(), window.x, window.y + 10 * ui, window.width, window.height,
                       layout.cornerRadius);
      cairo_set_source_rgba(mask.get(), 0, 0, 0, 1);
      cairo_fill(mask.get());
    }
    blurAlpha(shadow.data(), canvas.width, canvas.height,
              std::max(1, static_cast<int>(std::lround(9 * ui))));
    shadow.markDirty();
    // Darker shadows on light backgrounds, fainter on dark ones where they barely show.
    const double strength = 0.28 + 0.2 * fill.luminance();
    cairo_set_source_surface(cairo.get(), shadow.surface(), 0, 0);
    cairo_paint_with_alpha(cairo.get(), strength);
    roundedRectangle(cairo.get(), window.x, window.y, window.width, window.height,
                     layout.cornerRadius);
    cairo_set_source_rgb(cairo.get(), 0.12, 0.12, 0.13);
    cairo_fill(cairo.get());
  }
  if (style.bar) {
    WindowChrome::paintTitleBar(cairo.get(), layout, *style.bar, layout.cornerRadius > 0);
  }
  cairo.reset();
  return std::move(surface).release();
}

}  // namespace brimble::WindowBackdrop
