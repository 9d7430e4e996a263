#pragma once

#include <memory>
#include <string>

#include "BrimbleCore/Encoding/Image.h"

// cairo's and pango's handle types, declared here so that headers need neither library.
struct _cairo;
struct _cairo_surface;
struct _PangoLayout;
struct _PangoFontDescription;

namespace brimble {

struct CairoCloser {
  void operator()(_cairo* cairo) const noexcept;  // cairo_destroy
};
struct CairoSurfaceCloser {
  void operator()(_cairo_surface* surface) const noexcept;  // cairo_surface_destroy
};
struct PangoLayoutCloser {
  void operator()(_PangoLayout* layout) const noexcept;  // g_object_unref
};
struct PangoFontDescriptionCloser {
  void operator()(_PangoFontDescription* font) const noexcept;  // pango_font_description_free
};

using CairoPtr = std::unique_ptr<_cairo, CairoCloser>;
using CairoSurfacePtr = std::unique_ptr<_cairo_surface, CairoSurfaceCloser>;
using PangoLayoutPtr = std::unique_ptr<_PangoLayout, PangoLayoutCloser>;
using PangoFontDescriptionPtr = std::unique_ptr<_PangoFontDescription, PangoFontDescriptionCloser>;

/// A bgra8 picture being drawn on: pixels it owns, with a cairo image surface over them.
/// cairo's ARGB32 on a little-endian machine is our bgra8 byte for byte (blue first, alpha
/// premultiplied), so frames go in and out without conversion. One thread at a time; move-only.
class DrawingSurface {
 public:
  /// A transparent surface. Throws EffectsError::drawingFailed when cairo cannot make one.
  DrawingSurface(int width, int height);
  /// A surface holding a copy of `image` (converted to bgra8 when indexed).
  explicit DrawingSurface(const Image& image);

  int width() const noexcept { return width_; }
  int height() const noexcept { return height_; }
  _cairo_surface* surface() const noexcept { return surface_.get(); }
  /// A new drawing context on the surface; the caller owns it.
  CairoPtr context() const;
  /// The pixels drawn so far, as an Image (the surface keeps its own copy).
  Image image() const;
  /// The pixels drawn, handed over without a copy; the surface is empty afterwards. Contexts
  /// on it must be gone.
  Image release() &&;
  /// The pixels, for loops that cairo has no operator for. Call `markDirty` after writing.
  std::uint8_t* data() noexcept;
  void markDirty() noexcept;
  void flush() const noexcept;

 private:
  /// Pixels left uninitialised, for constructors that fill every byte.
  DrawingSurface(int width, int height, bool cleared);

  int width_ = 0;
  int height_ = 0;
  PixelBuffer pixels_;
  CairoSurfacePtr surface_;
};

/// A surface that reads `image`'s pixels (bgra8) in place, to draw from; `image` must outlive
/// it and nothing may draw onto it. One per thread: cairo objects are not shared between threads.
CairoSurfacePtr surfaceOver(const Image& image);

/// A pango layout of `text` in `font` (a pango font description such as "Sans Bold 20"),
/// drawn by `cairo`'s settings; with `pixelSize` above 0 the size is that many pixels.
PangoLayoutPtr textLayout(_cairo* cairo, const std::string& text, const std::string& font,
                          double pixelSize = 0);

/// Appends a rectangle with corners rounded by `radius` to `cairo`'s path.
void roundedRectangle(_cairo* cairo, double x, double y, double width, double height,
                      double radius);

}  // namespace brimble
