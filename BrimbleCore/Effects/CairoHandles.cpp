#include "BrimbleCore/Effects/CairoHandles.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <utility>

#include <cairo.h>
#include <pango/pangocairo.h>

#include "BrimbleCore/Effects/EffectsError.h"

namespace brimble {

void CairoCloser::operator()(cairo_t* cairo) const noexcept {
  cairo_destroy(cairo);
}
void CairoSurfaceCloser::operator()(cairo_surface_t* surface) const noexcept {
  cairo_surface_destroy(surface);
}
void PangoLayoutCloser::operator()(PangoLayout* layout) const noexcept {
  g_object_unref(layout);
}
void PangoFontDescriptionCloser::operator()(PangoFontDescription* font) const noexcept {
  pango_font_description_free(font);
}

DrawingSurface::DrawingSurface(int width, int height) : DrawingSurface(width, height, true) {}

DrawingSurface::DrawingSurface(int width, int height, bool cleared)
    : width_(width),
      height_(height),
      pixels_(static_cast<std::size_t>(std::max(width, 0)) * 4 *
              static_cast<std::size_t>(std::max(height, 0))) {
  if (cleared) {
    std::fill(pixels_.begin(), pixels_.end(), std::uint8_t{0});
  }
  if (width <= 0 || height <= 0) {
    throw EffectsError::drawingFailed("a surface of " + std::to_string(width) + "x" +
                                      std::to_string(height) + " pixels has no area");
  }
  // ARGB32 rows are always width * 4 bytes, the stride of our tightly packed images.
  surface_.reset(cairo_image_surface_create_for_data(pixels_.data(), CAIRO_FORMAT_ARGB32, width,
                                                     height, width * 4));
  if (cairo_surface_status(surface_.get()) != CAIRO_STATUS_SUCCESS) {
    throw EffectsError::drawingFailed(cairo_status_to_string(cairo_surface_status(surface_.get())));
  }
}

DrawingSurface::DrawingSurface(const Image& image)
    : DrawingSurface(image.width(), image.height(), false) {
  const Image bgra = image.toBGRA8();
  const std::size_t rowBytes = static_cast<std::size_t>(width_) * 4;
  if (bgra.bytesPerRow() == rowBytes) {
    std::memcpy(pixels_.data(), bgra.bytes().data(), rowBytes * static_cast<std::size_t>(height_));
  } else {
    for (int y = 0; y < height_; ++y) {
      std::memcpy(pixels_.data() + rowBytes * static_cast<std::size_t>(y), bgra.row(y).data(),
                  rowBytes);
    }
  }
  markDirty();
}

CairoPtr DrawingSurface::context() const {
  CairoPtr cairo(cairo_create(surface_.get()));
  if (cairo_status(cairo.get()) != CAIRO_STATUS_SUCCESS) {
    throw EffectsError::drawingFailed(cairo_status_to_string(cairo_status(cairo.get())));
  }
  return cairo;
}

Image DrawingSurface::image() const {
  flush();
  PixelBuffer copy(pixels_.size());
  std::memcpy(copy.data(), pixels_.data(), pixels_.size());
  return Image::bgra8(width_, height_, std::move(copy));
}

Image DrawingSurface::release() && {
  flush();
  surface_.reset();
  return Image::bgra8(std::exchange(width_, 0), std::exchange(height_, 0), std::move(pixels_));
}

std::uint8_t* DrawingSurface::data() noexcept {
  flush();
  return pixels_.data();
}

void DrawingSurface::markDirty() noexcept {
  cairo_surface_mark_dirty(surface_.get());
}

void DrawingSurface::flush() const noexcept {
  cairo_surface_flush(surface_.get());
}

CairoSurfacePtr surfaceOver(const Image& image) {
  // cairo wants a mutable pointer, but a surface only ever used as a source never writes.
  CairoSurfacePtr surface(cairo_image_surface_create_for_data(
      const_cast<unsigned char*>(image.bytes().data()), CAIRO_FORMAT_ARGB32, image.width(),
      image.height(), static_cast<int>(image.bytesPerRow())));
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
    throw EffectsError::drawingFailed(cairo_status_to_string(cairo_surface_status(surface.get())));
  }
  return surface;
}

PangoLayoutPtr textLayout(cairo_t* cairo, const std::string& text, const std::string& font,
                          double pixelSize) {
  PangoLayoutPtr layout(pango_cairo_create_layout(cairo));
  PangoFontDescriptionPtr description(pango_font_description_from_string(font.c_str()));
  if (pixelSize > 0) {
    pango_font_description_set_absolute_size(description.get(), pixelSize * PANGO_SCALE);
  }
  pango_layout_set_font_description(layout.get(), description.get());
  // Invalid UTF-8 would make pango warn and draw nothing; it is shown with replacement marks.
  const char* end = nullptr;
  if (g_utf8_validate(text.c_str(), static_cast<gssize>(text.size()), &end)) {
    pango_layout_set_text(layout.get(), text.c_str(), static_cast<int>(text.size()));
  } else {
    std::unique_ptr<char, decltype(&g_free)> valid(
        g_utf8_make_valid(text.c_str(), static_cast<gssize>(text.size())), &g_free);
    pango_layout_set_text(layout.get(), valid.get(), -1);
  }
  return layout;
}

void roundedRectangle(cairo_t* cairo, double x, double y, double width, double height,
                      double radius) {
  const double r = std::clamp(radius, 0.0, std::min(width, height) / 2);
  constexpr double kQuarter = std::numbers::pi / 2;
  cairo_new_sub_path(cairo);
  cairo_arc(cairo, x + width - r, y + r, r, -kQuarter, 0);
  cairo_arc(cairo, x + width - r, y + height - r, r, 0, kQuarter);
  cairo_arc(cairo, x + r, y + height - r, r, kQuarter, 2 * kQuarter);
  cairo_arc(cairo, x + r, y + r, r, 2 * kQuarter, 3 * kQuarter);
  cairo_close_path(cairo);
}

}  // namespace brimble
