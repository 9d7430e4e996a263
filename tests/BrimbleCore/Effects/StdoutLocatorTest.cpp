#include "BrimbleCore/Effects/StdoutLocator.h"

#include <gtest/gtest.h>

#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "BrimbleCore/Platform/X11/X11WindowSystem.h"
#include "BrimbleCore/Support/Subprocess.h"
#include "tests/Support/Images.h"
#include "tests/Support/X11Helpers.h"

namespace brimble {
namespace {

TEST(StdoutLocator, SimilarityForgivesCaseSpacingAndAStrayLetter) {
  EXPECT_DOUBLE_EQ(StdoutLocator::similarity("Build finished in 3.2s", "build  finished in 3.2 s"),
                   1);
  EXPECT_GT(StdoutLocator::similarity("Build finished in 3.2s", "Bui1d finished in 3.2s"), 0.9);
  EXPECT_LT(StdoutLocator::similarity("Build finished in 3.2s", "delta four"), 0.5);
  EXPECT_EQ(StdoutLocator::similarity("", "anything"), 0);
}

// A real terminal on the embedded display: the spotlight lands on the row that prints the line.
TEST(StdoutLocator, FindsTheOutputLineInARealTerminalAndTheSpotlightLightsIt) {
  const auto display = x11::HeadlessDisplay::start();
  Subprocess terminal = Subprocess::spawn(
      {"xterm", "-T", "brimble-ocr", "-geometry", "60x12", "-fa", "DejaVu Sans Mono", "-fs", "11",
       "-e", "sh", "-c",
       "printf 'alpha one\\nbravo two\\ncharlie three\\nBuild finished in 3.2s\\ndelta four\\n'; "
       "sleep 60"});
  x11::X11WindowSystem windows(display->displayName());
  std::optional<WindowInfo> xterm;
  ASSERT_TRUE(testing::eventually([&] {
    for (const WindowInfo& window : windows.windows()) {
      if (window.title == "brimble-ocr") {
        xterm = window;
      }
    }
    return xterm.has_value();
  }));
  const ScreenRect content = xterm->contentFrame;
  x11::X11ScreenSource source(display->displayName());
  Image frame;
  // Until the text is drawn: dark pixels on the fifth row.
  ASSERT_TRUE(testing::eventually([&] {
    const auto grabbed = source.openStream(CaptureTarget::screenAreaOf(content), false)->grab();
    frame = grabbed ? *grabbed : Image();
    int dark = 0;
    for (int y = content.height * 4 / 12; y < content.height * 5 / 12 && grabbed; ++y) {
      for (int x = 0; x < frame.width(); ++x) {
        dark += testing::pixelAt(frame, x, y).r < 100 ? 1 : 0;
      }
    }
    return dark > 50;
  }));
  // xterm's rows are equal, inside a 2-pixel border.
  const double row = (content.height - 4) / 12.0;
  const auto rowOf = [&](const ScreenRect& line) {
    return static_cast<int>((line.y + line.height / 2.0 - 2) / row);
  };
  const auto build = StdoutLocator::locate(frame, "Build finished in 3.2s");
  ASSERT_TRUE(build);
  EXPECT_EQ(rowOf(*build), 3);
  EXPECT_LT(build->height, row * 1.5);
  EXPECT_LT(build->x, 10);
  const auto delta = StdoutLocator::locate(frame, "delta four");
  ASSERT_TRUE(delta);
  EXPECT_EQ(rowOf(*delta), 4);
  EXPECT_FALSE(StdoutLocator::locate(frame, "no such output anywhere"));

  // Through the render: the annotation names only the text; the light falls on its row.
  std::vector<RecordedSegment> segments(1);
  segments[0].frames = std::make_unique<InMemoryFrameStore>(
      std::vector<std::vector<std::uint8_t>>{encodePNG(frame)});
  segments[0].windowFrame = content;
  segments[0].duration = 1;
  EffectAnnotation light;
  light.duration = 1;
  light.text = "Build finished in 3.2s";
  segments[0].effects = {light};
  RenderSettings settings;
  settings.fps = 10;
  const FrameCompositor compositor(segments, settings);
  const Image lit = *compositor.frame(5);
  // Mean red over the columns of the line's box, on one row of the terminal.
  const auto mean = [&](const Image& image, double rowIndex) {
    const int y = static_cast<int>(2 + rowIndex * row);
    double sum = 0;
    for (int x = build->x; x < build->x + build->width; ++x) {
      sum += testing::pixelAt(image, x, y).r;
    }
    return sum / build->width;
  };
  EXPECT_NEAR(mean(lit, 3.5), mean(frame, 3.5), 3);
  EXPECT_LT(mean(lit, 0.5), mean(frame, 0.5) * 0.5);
  EXPECT_LT(mean(lit, 8.5), mean(frame, 8.5) * 0.5);
}

}  // namespace
}  // namespace brimble
