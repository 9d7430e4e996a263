#include "BrimbleCore/Effects/CairoHandles.h"

#include <gtest/gtest.h>

#include <cairo.h>
#include <pango/pangocairo.h>

#include "BrimbleCore/Effects/EffectsError.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Images.h"

namespace brimble {
namespace {

TEST(DrawingSurface, DrawsInPlaceOverItsPixelsAndHandsThemOverOnce) {
  DrawingSurface surface(testing::solidImage(8, 4, {10, 20, 30}));
  {
    CairoPtr cairo = surface.context();
    cairo_rectangle(cairo.get(), 0, 0, 4, 4);
    cairo_set_source_rgb(cairo.get(), 1, 0, 0);
    cairo_fill(cairo.get());
  }
  const Image copy = surface.image();
  EXPECT_EQ(testing::pixelAt(copy, 1, 1).r, 255);
  EXPECT_EQ(testing::pixelAt(copy, 6, 1).r, 10);
  // Drawing a copy onto another surface through a read-only surface over its pixels.
  DrawingSurface target(8, 4);
  {
    const CairoSurfacePtr source = surfaceOver(copy);
    CairoPtr cairo = target.context();
    cairo_set_source_surface(cairo.get(), source.get(), 0, 0);
    cairo_paint(cairo.get());
  }
  const Image released = std::move(target).release();
  EXPECT_EQ(testing::pixelAt(released, 1, 1).r, 255);
  EXPECT_EQ(testing::pixelAt(released, 6, 1).b, 30);
  EXPECT_EQ(target.width(), 0);  // NOLINT(bugprone-use-after-move): emptied, as documented
  EXPECT_EQ(target.surface(), nullptr);

  EXPECT_EQ(testing::errorText<EffectsError>([] { DrawingSurface(0, 5); }),
            "Drawing failed: a surface of 0x5 pixels has no area");
}

TEST(DrawingSurface, TextLayoutsTakeAnyBytesAndMeasureThem) {
  DrawingSurface surface(40, 20);
  CairoPtr cairo = surface.context();
  // Invalid UTF-8 is shown with replacement marks instead of failing inside pango.
  for (const std::string text : {"abc", "\xff\xfe broken", ""}) {
    const PangoLayoutPtr layout = textLayout(cairo.get(), text, "Sans", 12);
    int width = 0;
    int height = 0;
    pango_layout_get_pixel_size(layout.get(), &width, &height);
    EXPECT_GT(height, 8) << text;
    EXPECT_EQ(width > 0, !text.empty()) << text;
  }
}

}  // namespace
}  // namespace brimble
