#include "BrimbleCore/Effects/FrameCompositor.h"

#include <cmath>

#include <gtest/gtest.h>

#include "BrimbleCore/Effects/CameraTrack.h"
#include "BrimbleCore/Effects/CursorTrack.h"
#include "BrimbleCore/Effects/EffectsError.h"
#include "BrimbleCore/Effects/KeystrokeBadges.h"
#include "BrimbleCore/Effects/TitleCardPainter.h"
#include "BrimbleCore/Effects/WindowChrome.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Images.h"
#include "tests/Support/RenderSegments.h"

namespace brimble {
namespace {

using testing::inputEvent;
using testing::Pixel;

// The recorded window's place on the screen, which the pointer's positions are counted from.
constexpr ScreenPoint kWindowAt{100, 50};

constexpr Pixel kGrey{128, 128, 128};

double luminance(Pixel p) {
  return 0.2126 * p.r + 0.7152 * p.g + 0.0722 * p.b;
}

// The mean position of the pixels of `image` that `matches` picks; (-1, -1) for none.
std::pair<double, double> centroid(const Image& image, const std::function<bool(Pixel)>& matches,
                                   int* count = nullptr) {
  double x = 0;
  double y = 0;
  int n = 0;
  for (int row = 0; row < image.height(); ++row) {
    for (int column = 0; column < image.width(); ++column) {
      if (matches(testing::pixelAt(image, column, row))) {
        x += column;
        y += row;
        ++n;
      }
    }
  }
  if (count != nullptr) {
    *count = n;
  }
  return n == 0 ? std::make_pair(-1.0, -1.0) : std::make_pair(x / n, y / n);
}

TEST(FrameCompositor, ClickRipplesAreCentredOnTheClickAndRightClicksLookDifferent) {
  std::vector<RenderSegment> segments;
  segments.push_back(testing::stillSegment(testing::solidImage(200, 120, kGrey), 20, kWindowAt));
  // Screen (160, 110) is frame pixel (60, 60).
  segments[0].events = {inputEvent(InputEvent::Kind::mouseDown, 0.2, {}, {160, 110}, 1),
                        inputEvent(InputEvent::Kind::mouseUp, 0.25, {}, {160, 110}, 1),
                        inputEvent(InputEvent::Kind::mouseDown, 1.2, {}, {230, 90}, 3)};
  RenderSettings settings = testing::tenFPSNoFade();
  settings.clickIndicators = true;
  const FrameCompositor compositor(segments, settings);
  const auto blue = [](Pixel p) { return p.b > p.r + 40; };
  const auto orange = [](Pixel p) { return p.r > p.b + 60; };
  for (int frame : {3, 5}) {
    const Image image = *compositor.frame(frame);
    int count = 0;
    const auto [x, y] = centroid(image, blue, &count);
    EXPECT_GT(count, 30) << frame;
    EXPECT_NEAR(x, 60, 2) << frame;
    EXPECT_NEAR(y, 60, 2) << frame;
    EXPECT_EQ(centroid(image, orange).first, -1) << frame;
  }
  // Gone after it faded; then the right click ripples in orange around frame pixel (130, 40).
  EXPECT_EQ(centroid(*compositor.frame(10), blue).first, -1);
  const Image right = *compositor.frame(14);
  const auto [x, y] = centroid(right, orange);
  EXPECT_NEAR(x, 130, 2);
  EXPECT_NEAR(y, 40, 2);
  EXPECT_EQ(centroid(right, blue).first, -1);
}

TEST(FrameCompositor, SpotlightDimsOutsideItsRectangleFadingInAndOut) {
  std::vector<RenderSegment> segments;
  segments.push_back(
      testing::stillSegment(testing::solidImage(200, 120, {200, 200, 200}), 30, kWindowAt));
  EffectAnnotation light;
  light.startTime = 0.2;
  light.duration = 1.2;
  light.rect = {150, 90, 60, 30};  // frame pixels (50, 40) to (110, 70)
  segments[0].effects = {light};
  // Then a shift to the other corner, which glides there.
  EffectAnnotation shift = light;
  shift.kind = EffectAnnotation::Kind::spotlightShift;
  shift.startTime = 1.4;
  shift.duration = 1.5;
  shift.rect = {110, 60, 20, 20};
  segments[0].effects.push_back(shift);
  const FrameCompositor compositor(segments, testing::tenFPSNoFade());
  const auto ratio = [&](int frame, int x, int y) {
    return luminance(testing::pixelAt(*compositor.frame(frame), x, y)) / luminance({200, 200, 200});
  };
  // Before: untouched. Fully on: inside kept, outside at about 38 %.
  EXPECT_NEAR(ratio(1, 10, 10), 1, 0.02);
  EXPECT_NEAR(ratio(8, 80, 55), 1, 0.02);
  EXPECT_NEAR(ratio(8, 10, 10), 0.38, 0.04);
  EXPECT_NEAR(ratio(8, 180, 110), 0.38, 0.04);
  // Half-way through the fade-in the outside is between.
  const double fading = ratio(3, 10, 10);
  EXPECT_GT(fading, 0.45);
  EXPECT_LT(fading, 0.95);
  // The shift glides there without going out: on its way, the far corner stays dark and the
  // light covers neither rectangle alone; then it rests on the new one.
  EXPECT_NEAR(ratio(16, 190, 115), 0.38, 0.04);
  EXPECT_NEAR(ratio(16, 52, 42), 1, 0.02);
  EXPECT_NEAR(ratio(16, 108, 68), 0.38, 0.04);
  EXPECT_NEAR(ratio(25, 20, 20), 1, 0.02);
  EXPECT_NEAR(ratio(25, 80, 55), 0.38, 0.04);
}

TEST(FrameCompositor, CroppingTheTitleBarRemovesExactlyTheFrameExtent) {
  // The window manager's 24-pixel red title bar and 2-pixel borders, at half scale in frames.
  const Image decorated = testing::imageOf(200, 150, [](int x, int y) {
    if (y < 12) {
      return Pixel{220, 30, 30};
    }
    if (y == 12 && x > 0 && x < 199) {
      return Pixel{30, 30, 220};  // the content's first row
    }
    return x < 1 || x >= 199 || y >= 149 ? Pixel{0, 0, 0} : Pixel{30, 200, 30};
  });
  std::vector<RenderSegment> segments;
  segments.push_back(testing::stillSegment(decorated, 10, kWindowAt));
  segments[0].scaleFactor = 0.5;
  segments[0].windowFrame = {100, 50, 400, 300};  // screen pixels, twice the frames'
  segments[0].frameExtents = {2, 2, 24, 2};
  RenderSettings settings = testing::tenFPSNoFade();
  const auto redRows = [](const Image& image) {
    int rows = 0;
    for (int y = 0; y < image.height(); ++y) {
      const Pixel p = testing::pixelAt(image, image.width() / 2, y);
      rows += p.r > 150 && p.g < 80 ? 1 : 0;
    }
    return rows;
  };
  const FrameCompositor kept(segments, settings);
  EXPECT_EQ(kept.canvasSize(), (ImageSize{200, 150}));
  EXPECT_EQ(redRows(*kept.frame(0)), 12);

  settings.includeTitleBar = false;
  const FrameCompositor cropped(segments, settings);
  // 150 - 12 - 1 rows and 200 - 1 - 1 columns; the odd last row is left off.
  EXPECT_EQ(cropped.canvasSize(), (ImageSize{198, 136}));
  const Image frame = *cropped.frame(0);
  EXPECT_EQ(redRows(frame), 0);
  EXPECT_GT(testing::pixelAt(frame, 0, 0).b, 180) << "the first row is the content's first";
  EXPECT_GT(testing::pixelAt(frame, 0, 1).g, 150) << "the border is cut away too";

  // A plain title bar replaces the real one rather than stacking on it.
  settings.includeTitleBar = true;
  settings.fauxTitleBar = "Plain";
  const FrameCompositor replaced(segments, settings);
  const SegmentLayout& placed = replaced.layout().segments[0];
  EXPECT_EQ(replaced.canvasSize().height, 136 + static_cast<int>(placed.titleBarHeight));
  EXPECT_EQ(redRows(*replaced.frame(0)), 0);
}

TEST(FrameCompositor, TitleCardsShowTheirColoursAndTextAndAddTheirTime) {
  std::vector<RenderSegment> segments;
  segments.push_back(testing::stillSegment(testing::solidImage(320, 180, kGrey), 20, kWindowAt));
  RenderSettings settings = testing::tenFPSNoFade();
  settings.intro = TitleCard{"Grüße, Привет, Γειά σου", "Ünïcödé subtitle", 1.5};
  settings.outro = TitleCard{"Thanks", "", std::nullopt};
  settings.introBackground = "#204080";
  settings.introForeground = "#ffcc00";
  const FrameCompositor compositor(segments, settings);
  // 1.5 s intro + 2 s recording + the default 2.5 s outro, less two 0.5 s card fades.
  EXPECT_EQ(compositor.frameCount(), 50);
  // The title is readable on the first frame already, then settles.
  int first = 0;
  centroid(
      *compositor.frame(0), [](Pixel p) { return p.r > 150 && p.g > 120 && p.b < 90; }, &first);
  EXPECT_GT(first, 200);
  const Image card = *compositor.frame(6);
  int text = 0;
  centroid(
      card, [](Pixel p) { return p.r > 220 && p.g > 180 && p.b < 60; }, &text);
  int background = 0;
  centroid(
      card, [](Pixel p) { return p.r < 70 && std::abs(p.b - 0x80) < 30; }, &background);
  EXPECT_GT(text, 200);
  EXPECT_GT(background, 320 * 180 / 2);
  // The recording fades in from the card and out into the outro, which uses the same colours.
  EXPECT_EQ(testing::pixelAt(*compositor.frame(20), 160, 90).r, kGrey.r);
  const Pixel fading = testing::pixelAt(*compositor.frame(12), 5, 5);
  EXPECT_GT(fading.r, 0x20 + 10);
  EXPECT_LT(fading.r, kGrey.r - 10);
  const Pixel outro = testing::pixelAt(*compositor.frame(49), 5, 175);
  EXPECT_NEAR(outro.b, 0x80, 24);

  settings.introForeground = "yellowish";
  EXPECT_EQ(testing::errorText<EffectsError>([&] { FrameCompositor(segments, settings); }),
            "Invalid colour 'yellowish' for 'intro-fg': expected a hex colour such as #1a1a2e");
}

TEST(TitleCardPainter, TitlesInAnyScriptAndEmojiFindAFont) {
  const TitleCard card{"Grüße · Привет · 漢字テスト · مرحبا 🚀", "Γειά σου · 한국어 ✅", 1};
  const TitleCardPainter painter(card, {0.1, 0.1, 0.18, 1}, {0.96, 0.96, 0.97, 1}, {480, 270},
                                 false);
  EXPECT_EQ(painter.missingGlyphs(), 0);
  // The rocket and the check mark keep their own colours: strongly saturated pixels that are
  // neither the text's nor the background's.
  int coloured = 0;
  centroid(
      painter.frameAt(0),
      [](Pixel p) {
        return std::max({p.r, p.g, p.b}) - std::min({p.r, p.g, p.b}) > 120;
      },
      &coloured);
  EXPECT_GT(coloured, 20);
}

TEST(FrameCompositor, CrossfadeMiddleFrameLiesBetweenItsSources) {
  std::vector<RenderSegment> segments;
  segments.push_back(
      testing::stillSegment(testing::solidImage(100, 60, {220, 20, 40}), 10, kWindowAt));
  segments.push_back(
      testing::stillSegment(testing::solidImage(100, 60, {20, 200, 240}), 10, kWindowAt));
  RenderSettings settings = testing::tenFPSNoFade();
  settings.transition = 0.4;
  const FrameCompositor compositor(segments, settings);
  EXPECT_EQ(compositor.frameCount(), 16);
  // The fade runs over output frames 6..9; frame 8 is half-way.
  const Pixel middle = testing::pixelAt(*compositor.frame(8), 50, 30);
  EXPECT_NEAR(middle.r, 120, 6);
  EXPECT_NEAR(middle.g, 110, 6);
  EXPECT_NEAR(middle.b, 140, 6);
}

TEST(FrameCompositor, BackgroundFramesTheWindowWithPaddingRoundedCornersAndAShadow) {
  std::vector<RenderSegment> segments;
  segments.push_back(
      testing::stillSegment(testing::solidImage(300, 200, {20, 20, 200}), 10, kWindowAt));
  RenderSettings settings = testing::tenFPSNoFade();
  settings.background = "#f0e0d0";
  settings.maxWidth = 800;
  const FrameCompositor compositor(segments, settings);
  const ImageSize canvas = compositor.canvasSize();
  EXPECT_GT(canvas.width, 300 + 40);
  const SegmentLayout& placed = compositor.layout().segments[0];
  const Image frame = *compositor.frame(0);
  const Pixel corner = testing::pixelAt(frame, 2, 2);
  EXPECT_EQ(corner.r, 0xf0);
  EXPECT_EQ(corner.b, 0xd0);
  const int left = static_cast<int>(placed.content.x);
  const int top = static_cast<int>(placed.content.y);
  const int bottom = static_cast<int>(placed.content.y + placed.content.height);
  EXPECT_GT(testing::pixelAt(frame, left + 150, top + 100).b, 180);
  // The very corner of the window is rounded away; the shadow darkens the padding beneath it.
  EXPECT_GT(testing::pixelAt(frame, left, top).r, 150);
  EXPECT_LT(testing::pixelAt(frame, left + 150, bottom + 6).r, 0xf0 - 25);
  EXPECT_EQ(testing::errorText<EffectsError>([&] {
              settings.background = "#12";
              FrameCompositor(segments, settings);
            }),
            "Invalid colour '#12' for 'background': expected a hex colour such as #1a1a2e");
}

TEST(FrameCompositor, KeystrokeBadgesShowChordsAndSpecialKeysButNotTyping) {
  std::vector<RenderSegment> segments;
  segments.push_back(
      testing::stillSegment(testing::solidImage(400, 240, {235, 235, 235}), 40, kWindowAt));
  segments[0].events = {
      inputEvent(InputEvent::Kind::keyDown, 0.2, "Control_L"),
      inputEvent(InputEvent::Kind::keyDown, 0.25, "Shift_L"),
      inputEvent(InputEvent::Kind::keyDown, 0.3, "t"),
      inputEvent(InputEvent::Kind::keyUp, 0.35, "t"),
      inputEvent(InputEvent::Kind::keyUp, 0.4, "Shift_L"),
      inputEvent(InputEvent::Kind::keyUp, 0.4, "Control_L"),
      inputEvent(InputEvent::Kind::keyDown, 2.0, "H"),
      inputEvent(InputEvent::Kind::keyDown, 2.1, "i"),
      inputEvent(InputEvent::Kind::keyDown, 3.0, "Return"),
  };
  RenderSettings settings = testing::tenFPSNoFade();
  settings.keystrokeBadges = true;
  const FrameCompositor compositor(segments, settings);
  const auto badgeArea = [&](int frame) {
    int dark = 0;
    const Image image = *compositor.frame(frame);
    const auto [x, y] = centroid(
        image, [](Pixel p) { return p.r < 60 && p.g < 60; }, &dark);
    return std::make_tuple(dark, x, y);
  };
  const auto [chord, chordX, chordY] = badgeArea(8);
  EXPECT_GT(chord, 500);
  EXPECT_NEAR(chordX, 200, 8);
  EXPECT_GT(chordY, 240 * 0.7);
  EXPECT_EQ(std::get<0>(badgeArea(16)), 0) << "gone after about a second";
  EXPECT_EQ(std::get<0>(badgeArea(23)), 0) << "plain typing gets no badge";
  EXPECT_GT(std::get<0>(badgeArea(33)), 200) << "Enter does";
  // The chord's badge is wider than Enter's: three caps against one.
  int chordWidth = 0;
  int enterWidth = 0;
  for (const auto& [frame, width] : {std::pair<int, int*>{8, &chordWidth}, {33, &enterWidth}}) {
    const Image image = *compositor.frame(frame);
    int first = image.width();
    int last = 0;
    for (int x = 0; x < image.width(); ++x) {
      for (int y = 150; y < 240; ++y) {
        if (testing::pixelAt(image, x, y).r < 60) {
          first = std::min(first, x);
          last = std::max(last, x);
        }
      }
    }
    *width = last - first;
  }
  EXPECT_GT(chordWidth, enterWidth + 40);
}

TEST(FrameCompositor, SmoothedPointerGlidesAndMeetsEveryClickAtItsTime) {
  std::vector<RenderSegment> segments;
  segments.push_back(testing::stillSegment(testing::solidImage(300, 200, kGrey), 30, kWindowAt));
  RenderSegment& segment = segments[0];
  segment.framesShowCursor = false;
  // The pointer jumps from (120, 70) to (300, 200) at 1.0 s and is clicked there at 1.05 s,
  // then clicked again at (310, 190) just as it arrives at 2.0 s.
  for (int i = 0; i <= 30; ++i) {
    const double time = i / 10.0;
    ScreenPoint at = time < 1.0 ? ScreenPoint{120, 70} : ScreenPoint{300, 200};
    if (time >= 2.0) {
      at = {310, 190};
    }
    segment.pointerTrack.push_back({time, at, -1});
  }
  segment.events = {inputEvent(InputEvent::Kind::mouseDown, 1.05, {}, {300, 200}, 1),
                    inputEvent(InputEvent::Kind::mouseDown, 2.0, {}, {310, 190}, 1)};
  const CursorTrack smooth(segment, true);
  for (const auto& [time, x, y] : {std::tuple{1.05, 300.0, 200.0}, {2.0, 310.0, 190.0}}) {
    const auto at = smooth.positionAt(time);
    EXPECT_NEAR(at->x, x, 1e-6);
    EXPECT_NEAR(at->y, y, 1e-6);
  }
  // Before the jump the smoothed pointer is already on its way; the raw one jumps.
  const auto gliding = smooth.positionAt(0.95);
  EXPECT_GT(gliding->x, 130);
  EXPECT_LT(gliding->x, 290);
  EXPECT_EQ(CursorTrack(segment, false).positionAt(0.95)->x, 120);
  // No step along the smoothed path is a jump.
  double largest = 0;
  for (double t = 0.5; t < 1.5; t += 1.0 / 30) {
    largest =
        std::max(largest, std::abs(smooth.positionAt(t + 1.0 / 30)->x - smooth.positionAt(t)->x));
  }
  EXPECT_LT(largest, 60);

  // Drawn: the arrow's tip sits at the pointer, frame pixel (20, 20) at first.
  RenderSettings settings = testing::tenFPSNoFade();
  settings.cursorSmoothing = true;
  const FrameCompositor drawn(segments, settings);
  const Image frame = *drawn.frame(0);
  const auto [x, y] = centroid(frame, [](Pixel p) { return p.r > 240; });
  EXPECT_NEAR(x, 20 + 4, 3);
  EXPECT_NEAR(y, 20 + 8, 4);
  settings.showCursor = false;
  EXPECT_EQ(
      centroid(*FrameCompositor(segments, settings).frame(0), [](Pixel p) { return p.r > 240; })
          .first,
      -1);
}

TEST(FrameCompositor, ZoomEasesIntoTheElementHoldsAndEasesBack) {
  DemoEvent zoom;
  zoom.kind = DemoEvent::Kind::zoom;
  zoom.time = 0.5;
  zoom.duration = 0.6;
  zoom.scale = 2;
  zoom.rect = {300, 200, 40, 20};  // the lower right of the frames
  DemoEvent out;
  out.kind = DemoEvent::Kind::zoomOut;
  out.time = 2.0;
  out.duration = 0.5;
  const std::vector<DemoEvent> moves = {zoom, out};
  const CameraTrack camera(moves);
  SegmentLayout layout;
  layout.cropWidth = 400;
  layout.cropHeight = 300;
  layout.content = {0, 0, 400, 300};
  layout.screenX = 0;
  layout.screenY = 0;
  EXPECT_EQ(camera.contentAt(layout, 0.4), layout.content);
  const CanvasRect held = camera.contentAt(layout, 1.5);
  EXPECT_DOUBLE_EQ(held.width, 800);
  // The element's centre (320, 210) shows in the middle of the view as far as the frame allows:
  // vertically it does (210 * 2 - 150), horizontally the view stops at the frame's right edge.
  EXPECT_DOUBLE_EQ(held.x, -400);
  EXPECT_DOUBLE_EQ(held.y, -270);
  EXPECT_EQ(camera.contentAt(layout, 2.6), layout.content);
  // Smooth: starts and ends slowly, no step more than a fifth of the way.
  double previous = camera.contentAt(layout, 0.5).width;
  double largest = 0;
  for (double t = 0.5 + 1.0 / 30; t <= 1.1 + 1e-9; t += 1.0 / 30) {
    const double width = camera.contentAt(layout, t).width;
    EXPECT_GE(width, previous);
    largest = std::max(largest, width - previous);
    previous = width;
  }
  EXPECT_LT(largest, 400 / 5.0);
  EXPECT_LT(camera.contentAt(layout, 0.5 + 1.0 / 30).width - 400, 2);
}

TEST(FrameCompositor, BrowserSegmentsShowTheAddressBarAndTypeANavigation) {
  std::vector<RenderSegment> segments;
  segments.push_back(
      testing::stillSegment(testing::solidImage(400, 240, {250, 250, 250}), 20, kWindowAt));
  segments[0].isBrowserContent = true;
  segments[0].chromeURL = "https://start.example/";
  segments[0].chromeTyping = true;
  DemoEvent navigate;
  navigate.kind = DemoEvent::Kind::navigate;
  navigate.time = 0.5;
  navigate.duration = 0.8;
  navigate.url = "docs.example/ünïcode";
  segments[0].demoEvents = {navigate};
  const WindowChrome chrome(segments[0]);
  EXPECT_EQ(chrome.addressAt(0.2), std::make_pair(std::string("https://start.example/"), false));
  // 12 of 20 characters typed after 60 % of the 0.8 s.
  EXPECT_EQ(chrome.addressAt(0.99), std::make_pair(std::string("docs.example"), true));
  EXPECT_EQ(chrome.addressAt(1.4), std::make_pair(std::string("docs.example/ünïcode"), false));

  const FrameCompositor compositor(segments, testing::tenFPSNoFade());
  const SegmentLayout& placed = compositor.layout().segments[0];
  EXPECT_EQ(compositor.canvasSize().height, 240 + static_cast<int>(placed.addressBarHeight));
  // Dark address text shows in the bar, and more of it once typed.
  const auto textPixels = [&](int frame) {
    int count = 0;
    const Image image = *compositor.frame(frame);
    for (int y = 0; y < static_cast<int>(placed.addressBarHeight); ++y) {
      for (int x = 0; x < image.width(); ++x) {
        count += testing::pixelAt(image, x, y).r < 90 ? 1 : 0;
      }
    }
    return count;
  };
  EXPECT_GT(textPixels(1), 100);
  EXPECT_LT(textPixels(7), textPixels(15));
}

TEST(FrameCompositor, HighlightTintsTheElementAndLeavesTheRestAlone) {
  std::vector<RenderSegment> segments;
  segments.push_back(
      testing::stillSegment(testing::solidImage(200, 120, {40, 40, 40}), 20, kWindowAt));
  DemoEvent highlight;
  highlight.kind = DemoEvent::Kind::highlight;
  highlight.time = 0.2;
  highlight.duration = 1.0;
  highlight.rect = {150, 90, 40, 20};
  highlight.style = "box";
  segments[0].demoEvents = {highlight};
  const FrameCompositor compositor(segments, testing::tenFPSNoFade());
  const Image frame = *compositor.frame(7);
  const Pixel inside = testing::pixelAt(frame, 70, 50);
  EXPECT_GT(inside.r, inside.b + 30);
  const Pixel outside = testing::pixelAt(frame, 10, 10);
  EXPECT_EQ(outside.r, 40);
  EXPECT_EQ(testing::pixelAt(*compositor.frame(1), 70, 50).r, 40);
}

TEST(FrameCompositor, AFrameReportedAsARepeatLooksExactlyLikeTheOneBefore) {
  // A segment where something moves now and then: pointer, ripples, badges, a spotlight and a
  // zoom, over pictures that change every half second.
  auto store = std::make_unique<InMemoryFrameStore>();
  for (int i = 0; i < 60; ++i) {
    const auto shade = static_cast<std::uint8_t>(60 + (i / 5) * 15);
    store->frames.push_back(encodePNG(testing::solidImage(160, 100, {shade, 90, 140})));
  }
  std::vector<RenderSegment> segments(1);
  RenderSegment& segment = segments[0];
  segment.frames = std::move(store);
  segment.fps = 10;
  segment.windowFrame = {0, 0, 160, 100};
  segment.framesShowCursor = false;
  for (int i = 0; i < 60; ++i) {
    const ScreenPoint at = i < 10 || i > 20 ? ScreenPoint{20, 20} : ScreenPoint{20 + 5 * i, 40};
    segment.pointerTrack.push_back({i / 10.0, at, -1});
  }
  segment.events = {inputEvent(InputEvent::Kind::mouseDown, 1.5, {}, {120, 40}, 1),
                    inputEvent(InputEvent::Kind::keyDown, 2.2, "Escape")};
  EffectAnnotation light;
  light.startTime = 2.5;
  light.duration = 1;
  light.rect = {10, 10, 50, 20};
  segment.effects = {light};
  DemoEvent zoom;
  zoom.kind = DemoEvent::Kind::zoom;
  zoom.time = 0.3;
  zoom.duration = 0.4;
  zoom.scale = 1.5;
  zoom.rect = {60, 40, 20, 20};
  segment.demoEvents = {zoom};
  RenderSettings settings = testing::tenFPSNoFade();
  settings.cursorSmoothing = true;
  settings.clickIndicators = true;
  settings.keystrokeBadges = true;
  settings.intro = TitleCard{"Repeat", "", 1.0};
  const FrameCompositor compositor(segments, settings);
  int repeats = 0;
  for (int k = 1; k < compositor.frameCount(); ++k) {
    if (compositor.repeatsPrevious(k)) {
      ++repeats;
      EXPECT_TRUE(compositor.frame(k)->hasSamePixels(*compositor.frame(k - 1))) << k;
    }
  }
  // Still stretches are found: after 3.5 s nothing moves, and each picture holds 0.5 s.
  EXPECT_GE(repeats, 15);
}

TEST(FrameCompositor, BrokenFramesAndOddInputRenderWhatCanBeShown) {
  std::vector<RenderSegment> segments;
  segments.push_back(testing::stillSegment(testing::solidImage(100, 60, kGrey), 6, kWindowAt));
  // Frames 2 and 3 are not images at all.
  auto& blobs = dynamic_cast<InMemoryFrameStore&>(*segments[0].frames).frames;
  blobs[2] = {1, 2, 3};
  blobs[3] = {};
  segments[0].scaleFactor = 0;  // unknown
  segments[0].windowFrame = {};
  segments[0].events = {inputEvent(InputEvent::Kind::keyDown, -1, "Control_L"),
                        inputEvent(InputEvent::Kind::keyDown, 0.1, ""),
                        inputEvent(InputEvent::Kind::mouseDown, 0.2, {}, {-5000, 99999}, 7)};
  EffectAnnotation empty;
  empty.duration = -3;
  segments[0].effects = {empty};
  DemoEvent zoom;
  zoom.kind = DemoEvent::Kind::zoom;
  zoom.scale = 0;
  zoom.rect = {0, 0, 0, 0};
  segments[0].demoEvents = {zoom, DemoEvent{DemoEvent::Kind::navigate, 0, -1, {}, 1, "", ""}};
  segments.push_back(RenderSegment{});  // nothing recorded
  RenderSettings settings = testing::tenFPSNoFade();
  settings.clickIndicators = true;
  settings.keystrokeBadges = true;
  settings.transition = -2;
  settings.intro = TitleCard{"", "", -1.0};
  const FrameCompositor compositor(segments, settings);
  ASSERT_EQ(compositor.frameCount(), 6);
  EXPECT_TRUE(compositor.frame(1));
  EXPECT_FALSE(compositor.frame(2));
  EXPECT_FALSE(compositor.frame(3));
  EXPECT_EQ(testing::pixelAt(*compositor.frame(5), 50, 30).r, kGrey.r);
  EXPECT_FALSE(compositor.frame(6));
  EXPECT_FALSE(compositor.frame(-1));

  // Nothing to show at all: no frames, no canvas, nothing written.
  std::vector<RenderSegment> none(2);
  const FrameCompositor nothing(none, settings);
  EXPECT_EQ(nothing.frameCount(), 0);
  settings.fps = 0;
  EXPECT_EQ(testing::errorText<EffectsError>([&] { FrameCompositor(segments, settings); }),
            "Invalid value '0' for 'fps': expected a positive number");
}

TEST(KeystrokeBadges, SpecialKeysHaveShortLabelsAndTypingHasNone) {
  // Function keys are read from their names; a name that only starts like one is typing.
  for (const auto& [key, label] : std::vector<std::pair<std::string, std::string>>{
           {"F12", "F12"}, {"F", ""}, {"Fx1", ""}, {"Shift_L", ""}}) {
    EXPECT_EQ(KeystrokeBadges::specialKeyLabel(key), label) << key;
  }
  const std::vector<InputEvent> events = {
      inputEvent(InputEvent::Kind::keyDown, 0, "Shift_L"),
      inputEvent(InputEvent::Kind::keyDown, 0.1, "A"),    // typing a capital
      inputEvent(InputEvent::Kind::keyDown, 0.2, "Tab"),  // Shift+Tab
      inputEvent(InputEvent::Kind::keyUp, 0.3, "Shift_L"),
      inputEvent(InputEvent::Kind::keyDown, 0.5, "Alt_L"),
      inputEvent(InputEvent::Kind::keyDown, 0.6, "comma"),   // Alt+,
      inputEvent(InputEvent::Kind::keyDown, 0.65, "space"),  // Alt+Space
  };
  const KeystrokeBadges badges(events);
  ASSERT_EQ(badges.badges().size(), 3u);
  EXPECT_EQ(badges.badges()[0].keys, (std::vector<std::string>{"Shift", "Tab"}));
  EXPECT_EQ(badges.badges()[1].keys, (std::vector<std::string>{"Alt", ","}));
  EXPECT_DOUBLE_EQ(badges.badges()[1].end, 0.65) << "the next badge takes its place";
  EXPECT_EQ(badges.badges()[2].keys, (std::vector<std::string>{"Alt", "Space"}));
}

}  // namespace
}  // namespace brimble
