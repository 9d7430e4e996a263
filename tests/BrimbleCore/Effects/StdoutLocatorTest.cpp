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

// A terminal on the embedded display showing some output, in the given colours, and its frame.
struct Terminal {
  Subprocess process;
  ScreenRect content;
  Image frame;
  double row = 0;  // height of a text row
};

Terminal terminalShowingOutput(const x11::HeadlessDisplay& display, const std::string& background,
                               const std::string& foreground) {
  Terminal terminal{
      // Font, colours and border given here, whatever the display's resources say.
      Subprocess::spawn(
          {"xterm", "-T", "brimble-ocr", "-geometry", "60x12", "-fa", "DejaVu Sans Mono", "-fs",
           "11", "-b", "2", "-bg", background, "-fg", foreground, "-e", "sh", "-c",
           "printf 'alpha one\\nbravo two\\ncharlie three\\nBuild finished in 3.2s\\ndelta "
           "four\\n'; sleep 60"}),
      {},
      {},
      0};
  x11::X11WindowSystem windows(display.displayName());
  std::optional<WindowInfo> xterm;
  EXPECT_TRUE(testing::eventually([&] {
    for (const WindowInfo& window : windows.windows()) {
      if (window.title == "brimble-ocr" && window.pid == terminal.process.pid()) {
        xterm = window;
      }
    }
    return xterm.has_value();
  }));
  if (!xterm) {
    return terminal;
  }
  terminal.content = xterm->contentFrame;
  // xterm's rows are equal, inside a 2-pixel border.
  terminal.row = (terminal.content.height - 4) / 12.0;
  x11::X11ScreenSource source(display.displayName());
  // Until the text is drawn: the fifth row holds more than its background.
  EXPECT_TRUE(testing::eventually([&] {
    const auto grabbed =
        source.openStream(CaptureTarget::screenAreaOf(terminal.content), false)->grab();
    if (!grabbed) {
      return false;
    }
    terminal.frame = *grabbed;
    const int y = static_cast<int>(2 + 4.5 * terminal.row);
    const int ground = testing::pixelAt(terminal.frame, terminal.frame.width() - 3, y).r;
    int ink = 0;
    for (int x = 0; x < terminal.frame.width(); ++x) {
      ink += std::abs(testing::pixelAt(terminal.frame, x, y).r - ground) > 60 ? 1 : 0;
    }
    return ink > 5;
  }));
  return terminal;
}

// Real terminals on the embedded display, dark and light: the line lands on the row that prints
// it, and the spotlight lights it.
TEST(StdoutLocator, FindsTheOutputLineInARealTerminalAndTheSpotlightLightsIt) {
  const auto display = x11::HeadlessDisplay::start();
  const auto rowOf = [](const Terminal& terminal, const ScreenRect& line) {
    return static_cast<int>((line.y + line.height / 2.0 - 2) / terminal.row);
  };
  {
    const Terminal dark = terminalShowingOutput(*display, "#1e1e2e", "#e0e0e8");
    ASSERT_FALSE(dark.frame.empty());
    const auto line = StdoutLocator::locate(dark.frame, "Build finished in 3.2s");
    ASSERT_TRUE(line);
    EXPECT_EQ(rowOf(dark, *line), 3);
  }
  const Terminal bright = terminalShowingOutput(*display, "white", "black");
  ASSERT_FALSE(bright.frame.empty());
  const Image& frame = bright.frame;
  const ScreenRect content = bright.content;
  const double row = bright.row;
  const auto build = StdoutLocator::locate(frame, "Build finished in 3.2s");
  ASSERT_TRUE(build);
  EXPECT_EQ(rowOf(bright, *build), 3);
  EXPECT_LT(build->height, row * 1.5);
  EXPECT_LT(build->x, 10);
  const auto delta = StdoutLocator::locate(frame, "delta four");
  ASSERT_TRUE(delta);
  EXPECT_EQ(rowOf(bright, *delta), 4);
  EXPECT_FALSE(StdoutLocator::locate(frame, "no such output anywhere"));

  // Through the render: the annotation names only the text; the light falls on its row.
  std::vector<RenderSegment> segments(1);
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
