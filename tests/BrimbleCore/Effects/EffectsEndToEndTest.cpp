// The render path end to end: a window of the embedded display recorded with its pointer track
// and real input, every effect switched on, written as GIF and WebP and read back by ffprobe and
// ImageMagick, which know nothing of our writers.

#include <chrono>
#include <numeric>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "BrimbleCore/Automation/InputSimulator.h"
#include "BrimbleCore/Capture/ScreenSegmentRecorder.h"
#include "BrimbleCore/Effects/SegmentRenderer.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11EventCapture.h"
#include "BrimbleCore/Platform/X11/X11InputBackend.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "BrimbleCore/Support/Clock.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/X11Helpers.h"

namespace brimble {
namespace {

void pause(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

TEST(EffectsEndToEnd, EveryEffectOnARealRecordingDecodesInFFprobeAndImageMagick) {
  const auto display = x11::HeadlessDisplay::start();
  const std::string name = display->displayName();
  testing::TestWindow window({"--color", "3060c0", "--size", "400x260", "--position", "60,60"});
  x11::X11ScreenSource source(name);
  x11::X11InputBackend backend(name);
  InputSimulator input(backend, steadyClock());
  const ScreenRect content = source.window(window.id())->frame;
  input.setCursorPosition(content.x + 20, content.y + 20);

  std::vector<RenderSegment> segments;
  {
    ScreenSegmentRecorder recorder(source, steadyClock(), [&] {
      return std::make_unique<x11::X11EventCapture>(name, steadyClock());
    });
    recorder.start({CaptureTarget::windowOf(window.id()), 20, true, std::nullopt});
    pause(0.3);
    input.smoothMove(content.x + 200, content.y + 120, 0.4);
    input.click(content.x + 200, content.y + 120, MouseButton::left);
    pause(0.2);
    input.pressKey("t", {Modifier::control, Modifier::shift});
    input.typeText("hello", 0.06, true);
    input.click(content.x + 300, content.y + 200, MouseButton::right);
    pause(2.5);  // idle: ramped through
    segments.emplace_back(recorder.stop());
  }
  {
    // A second segment of another size, crossfaded on the same canvas.
    ScreenSegmentRecorder recorder(source, steadyClock());
    recorder.start({CaptureTarget::screenAreaOf({0, 0, 300, 300}), 20, true, std::nullopt});
    pause(1.0);
    segments.emplace_back(recorder.stop());
  }
  RenderSegment& first = segments[0];
  ASSERT_TRUE(first.frames);
  ASSERT_FALSE(first.pointerTrack.empty());
  ASSERT_GE(
      std::count_if(first.events.begin(), first.events.end(),
                    [](const InputEvent& e) { return e.kind == InputEvent::Kind::mouseDown; }),
      2);
  const ScreenRect inside{content.x + 150, content.y + 100, 120, 40};
  first.effects = {{EffectAnnotation::Kind::spotlight, 0.2, 1.0, inside, ""},
                   {EffectAnnotation::Kind::spotlightShift,
                    1.2,
                    0.8,
                    {content.x + 20, content.y + 20, 100, 40},
                    ""}};
  first.demoEvents = {{DemoEvent::Kind::highlight, 0.3, 1.5, inside, 1, "glow", ""},
                      {DemoEvent::Kind::zoom, 0.5, 0.5, inside, 1.6, "", ""},
                      {DemoEvent::Kind::zoomOut, 1.5, 0.4, {}, 1, "", ""},
                      {DemoEvent::Kind::clearEffects, 2.5, 0, {}, 1, "", ""},
                      {DemoEvent::Kind::navigate, 0.1, 0.6, {}, 1, "", "https://example.org/"}};
  first.isBrowserContent = true;
  first.chromeTyping = true;

  RenderSettings settings;
  settings.fps = 20;
  settings.maxWidth = 480;
  settings.transition = 0.3;
  settings.cursorSmoothing = true;
  settings.clickIndicators = true;
  settings.keystrokeBadges = true;
  settings.typeSmoothing = true;
  settings.includeTitleBar = false;
  settings.idleStrategy = IdleStrategy::ramp;
  settings.idleThreshold = 1.5;
  settings.intro = TitleCard{"Every effect", "at once", 1.5};
  settings.outro = TitleCard{"Fin", "", 1.0};
  settings.introBackground = "#102030";
  settings.background = "#f0f0f0";
  settings.fauxTitleBar = "Demo window";
  testing::TempDirectory directory;
  for (const char* file : {"all.gif", "all.webp"}) {
    SCOPED_TRACE(file);
    settings.format = std::string(file).ends_with("gif") ? OutputFormat::gif : OutputFormat::webp;
    const auto out = directory / file;
    const EncodeSummary summary = SegmentRenderer::render(segments, settings, out);
    ASSERT_GT(summary.frames, 10);
    EXPECT_LE(summary.width, 480);
    // Nothing but the ramp shortens: the idle tail of at least 2.5 s plays in well under 1 s.
    const double recorded = segments[0].duration + segments[1].duration;
    EXPECT_LT(summary.duration, 1.5 + recorded + 1.0 - 1.5);
    EXPECT_GT(summary.duration, 1.5 + 1.0);

    const auto probe = testing::runCommand(
        "ffprobe -v error -count_frames -show_entries stream=width,height,nb_read_frames -of "
        "csv=p=0 " +
        testing::shellQuote(out.string()));
    std::ostringstream expected;
    expected << summary.width << "," << summary.height << "," << summary.frames << "\n";
    if (settings.format == OutputFormat::gif) {
      EXPECT_EQ(probe.output, expected.str());
    }
    // ImageMagick: every frame's size and delay.
    const auto identify = testing::runCommand("identify -format '%W %H %T\\n' " +
                                              testing::shellQuote(out.string()) + " 2>/dev/null");
    std::istringstream lines(identify.output);
    int frames = 0;
    int centiseconds = 0;
    int width = 0;
    int height = 0;
    int delay = 0;
    while (lines >> width >> height >> delay) {
      ++frames;
      centiseconds += delay;
      EXPECT_EQ(width, summary.width);
      EXPECT_EQ(height, summary.height);
    }
    EXPECT_EQ(frames, summary.frames);
    EXPECT_NEAR(centiseconds / 100.0, summary.duration, 0.02 * summary.frames + 0.01);
  }
  // The intro's colour opens the GIF, as ImageMagick reads its first frame.
  const auto corner = testing::runCommand(
      "convert " + testing::shellQuote((directory / "all.gif").string() + "[0]") +
      " -format '%[fx:int(255*p{3,3}.r)] %[fx:int(255*p{3,3}.g)] %[fx:int(255*p{3,3}.b)]' info:");
  std::istringstream channels(corner.output);
  int red = 0;
  int green = 0;
  int blue = 0;
  ASSERT_TRUE(channels >> red >> green >> blue) << corner.output;
  EXPECT_NEAR(red, 0x10, 12);
  EXPECT_NEAR(green, 0x20, 12);
  EXPECT_NEAR(blue, 0x30, 12);
}

}  // namespace
}  // namespace brimble
