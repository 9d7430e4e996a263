// Window bars, rounded corners and margins around recorded windows, as the compositor draws
// them; the frames are written to test-artifacts/window-look for a look.

#include <cmath>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>

#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/ImageFiles.h"
#include "tests/Support/Images.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/RenderSegments.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::Pixel;

// A dark terminal's background.
constexpr Pixel kWindow{40, 42, 54};

// `count` frames of a `width` x `height` window of kWindow with a light square in its middle,
// recorded from the screen's top left corner.
RenderSegment windowSegment(int width, int height, int count = 3) {
  const Image image = testing::imageOf(width, height, [&](int x, int y) {
    const bool mark = std::abs(x - width / 2) < 10 && std::abs(y - height / 2) < 10;
    return mark ? Pixel{230, 230, 230} : kWindow;
  });
  return testing::stillSegment(image, count);
}

// The first frame the compositor makes of a 400 x 200 window with `settings`, also written as
// PNG under `name` for a person to look at.
Image windowLook(const RenderSettings& settings, const std::string& name) {
  std::vector<RenderSegment> segments;
  segments.push_back(windowSegment(400, 200));
  const FrameCompositor compositor(segments, settings);
  Image frame = *compositor.frame(0);
  testing::keepArtifact(frame, "window-look", name + ".png");
  return frame;
}

bool near(Pixel p, Pixel q, int tolerance = 3) {
  return std::abs(p.r - q.r) <= tolerance && std::abs(p.g - q.g) <= tolerance &&
         std::abs(p.b - q.b) <= tolerance;
}

// Where the pixels `matches` picks lie within rows [top, bottom): their mean position and count.
struct Spot {
  double x = -1;
  double y = -1;
  int count = 0;
};
Spot spotOf(const Image& image, int top, int bottom, const std::function<bool(Pixel)>& matches) {
  Spot spot;
  double x = 0;
  double y = 0;
  for (int row = top; row < bottom; ++row) {
    for (int column = 0; column < image.width(); ++column) {
      if (matches(testing::pixelAt(image, column, row))) {
        x += column;
        y += row;
        ++spot.count;
      }
    }
  }
  if (spot.count > 0) {
    spot.x = x / spot.count;
    spot.y = y / spot.count;
  }
  return spot;
}

bool isRed(Pixel p) {
  return p.r > 200 && p.g < 130 && p.b < 130;
}
bool isYellow(Pixel p) {
  return p.r > 200 && p.g > 150 && p.b < 100;
}
bool isGreen(Pixel p) {
  return p.g > 150 && p.r < 100 && p.b < 120;
}

TEST(WindowLook, AColorfulBarTakesTheWindowsColourWithItsButtonsLeftOrRight) {
  RenderSettings settings = testing::tenFPSNoFade();
  settings.windowBar = WindowBarStyle::colorful;
  settings.windowBarSize = 40;
  const Image left = windowLook(settings, "colorful");
  // The bar sits on top of the window, as tall as asked, in the window's own colour.
  ASSERT_EQ(left.width(), 400);
  ASSERT_EQ(left.height(), 240);
  EXPECT_TRUE(near(testing::pixelAt(left, 200, 4), kWindow));
  EXPECT_TRUE(near(testing::pixelAt(left, 200, 139), {230, 230, 230}));
  EXPECT_TRUE(near(testing::pixelAt(left, 100, 100), kWindow));
  const Spot red = spotOf(left, 0, 40, isRed);
  const Spot yellow = spotOf(left, 0, 40, isYellow);
  const Spot green = spotOf(left, 0, 40, isGreen);
  for (const Spot& button : {red, yellow, green}) {
    EXPECT_GT(button.count, 60);  // a filled disc some 17 pixels across
    EXPECT_NEAR(button.y, 19.5, 1);
  }
  EXPECT_LT(red.x, 40);
  EXPECT_LT(red.x, yellow.x);
  EXPECT_LT(yellow.x, green.x);
  EXPECT_LT(green.x, 100);
  // Nothing of the buttons below the bar.
  EXPECT_EQ(spotOf(left, 40, 240, isRed).count, 0);

  settings.windowBar = WindowBarStyle::colorfulRight;
  const Image right = windowLook(settings, "colorful-right");
  const Spot redRight = spotOf(right, 0, 40, isRed);
  const Spot greenRight = spotOf(right, 0, 40, isGreen);
  EXPECT_GT(redRight.x, 300);
  EXPECT_GT(greenRight.x, redRight.x);
  EXPECT_GT(400 - greenRight.x, 20);
}

TEST(WindowLook, RingsAreHollowAndATitleBarShowsItsTitle) {
  RenderSettings settings = testing::tenFPSNoFade();
  settings.windowBar = WindowBarStyle::rings;
  settings.windowBarSize = 40;
  const Image rings = windowLook(settings, "rings");
  const Spot red = spotOf(rings, 0, 40, isRed);
  ASSERT_GT(red.count, 15);
  // The middle of the ring is the bar's colour.
  EXPECT_TRUE(near(testing::pixelAt(rings, static_cast<int>(std::lround(red.x)),
                                    static_cast<int>(std::lround(red.y))),
                   kWindow, 12));
  EXPECT_LT(red.count, spotOf(windowLook(
                                  [&] {
                                    RenderSettings filled = settings;
                                    filled.windowBar = WindowBarStyle::colorful;
                                    return filled;
                                  }(),
                                  "colorful-for-rings"),
                              0, 40, isRed)
                           .count);

  settings.windowBar = WindowBarStyle::title;
  settings.windowBarTitle = "demo@brimble";
  const Image titled = windowLook(settings, "title");
  // Light text on the dark bar, in its middle, and no buttons.
  const Spot text = spotOf(titled, 0, 40, [](Pixel p) { return p.r > 120 && p.g > 120; });
  EXPECT_GT(text.count, 30);
  EXPECT_NEAR(text.x, 200, 12);
  EXPECT_EQ(spotOf(titled, 0, 40, isRed).count, 0);
}

TEST(WindowLook, AMarginIsFilledWithItsColourOrPictureAroundRoundedCorners) {
  RenderSettings settings = testing::tenFPSNoFade();
  settings.margin = 30;
  settings.marginFill = "#674eff";
  settings.borderRadius = 16;
  const Image coloured = windowLook(settings, "margin-colour");
  ASSERT_EQ(coloured.width(), 460);
  ASSERT_EQ(coloured.height(), 260);
  const Pixel fill{0x67, 0x4e, 0xff};
  EXPECT_TRUE(near(testing::pixelAt(coloured, 2, 2), fill));
  EXPECT_TRUE(near(testing::pixelAt(coloured, 457, 130), fill, 6));
  // The window's corner is cut round: its very corner shows the margin, a radius in the window.
  EXPECT_FALSE(near(testing::pixelAt(coloured, 30, 30), kWindow, 10));
  EXPECT_TRUE(near(testing::pixelAt(coloured, 46, 46), kWindow));
  EXPECT_TRUE(near(testing::pixelAt(coloured, 230, 130), {230, 230, 230}));

  // A picture covers the canvas: here its left half red, its right half blue.
  testing::TempDirectory directory;
  const auto picture = directory / "fill.png";
  const Image halves = testing::imageOf(92, 52, [](int x, int) {
    return x < 46 ? Pixel{220, 30, 30} : Pixel{30, 30, 220};
  });
  const std::vector<std::uint8_t> png = encodePNG(halves);
  std::ofstream(picture, std::ios::binary)
      .write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
  settings.marginFill = picture.string();
  const Image pictured = windowLook(settings, "margin-picture");
  EXPECT_TRUE(near(testing::pixelAt(pictured, 3, 130), {220, 30, 30}, 8));
  EXPECT_TRUE(near(testing::pixelAt(pictured, 456, 130), {30, 30, 220}, 8));
  EXPECT_TRUE(near(testing::pixelAt(pictured, 230, 130), {230, 230, 230}));

  // A file that is no picture costs a warning, not the recording.
  testing::LogCapture log;
  settings.marginFill = (directory / "missing.png").string();
  const Image grey = windowLook(settings, "margin-missing");
  EXPECT_TRUE(near(testing::pixelAt(grey, 2, 2), {0xdf, 0xe2, 0xe8}));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_NE(log.lines()[0].find("Warning: margin-fill"), std::string::npos) << log.lines()[0];
  EXPECT_NE(log.lines()[0].find("missing.png"), std::string::npos) << log.lines()[0];
}

TEST(WindowLook, ABorderRadiusRoundsAWindowWithoutAMarginAndItsBar) {
  RenderSettings settings = testing::tenFPSNoFade();
  settings.borderRadius = 20;
  const Image rounded = windowLook(settings, "radius");
  ASSERT_EQ(rounded.width(), 400);
  ASSERT_EQ(rounded.height(), 200);
  for (const auto& [x, y] : {std::pair{0, 0}, {399, 0}, {0, 199}, {399, 199}}) {
    EXPECT_FALSE(near(testing::pixelAt(rounded, x, y), kWindow, 10)) << x << "," << y;
  }
  EXPECT_TRUE(near(testing::pixelAt(rounded, 20, 20), kWindow));
  EXPECT_TRUE(near(testing::pixelAt(rounded, 200, 1), kWindow));

  settings.windowBar = WindowBarStyle::colorful;
  settings.windowBarSize = 30;
  const Image barred = windowLook(settings, "radius-bar");
  EXPECT_FALSE(near(testing::pixelAt(barred, 0, 0), kWindow, 10));
  EXPECT_TRUE(near(testing::pixelAt(barred, 200, 1), kWindow));
  EXPECT_FALSE(near(testing::pixelAt(barred, 399, 229), kWindow, 10));
}

}  // namespace
}  // namespace brimble
