// The effects pass with every effect on, per output frame on one thread, at 800x500 and 30 fps:
// background, plain title bar, browser address bar typing, eased zoom, highlight, spotlight, click
// ripples, the smoothed pointer and key badges. The source frame is decoded once and kept (a
// segment of one frame), so the numbers leave out JPEG decoding and the encoder; the variant with
// decoding decodes each output frame's source again. `realtime` is output frames per second over
// the 30 a viewer sees: 10 means ten times real time.

#include <cmath>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>

#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/TestPattern.h"

namespace brimble {
namespace {

constexpr int kFPS = 30;
constexpr double kSeconds = 10;

InputEvent inputAt(InputEvent::Kind kind, double time, ScreenPoint at, int button,
                   const char* key) {
  InputEvent event;
  event.kind = kind;
  event.timestamp = time;
  event.position = at;
  event.button = button;
  event.key = key;
  return event;
}

// Ten seconds on a 800x500 browser window, busy with every effect.
RenderSegment busySegment(int storedFrames) {
  auto store = std::make_unique<InMemoryFrameStore>();
  for (int i = 0; i < storedFrames; ++i) {
    store->frames.push_back(encodeJPEG(testPatternFrame(i, storedFrames, 800, 500), 90));
  }
  RenderSegment segment;
  segment.frames = std::move(store);
  segment.fps = kFPS;
  segment.duration = kSeconds;
  for (int i = 0; i < storedFrames; ++i) {
    segment.frameTimes.push_back(i * kSeconds / storedFrames);
  }
  segment.windowFrame = {0, 0, 800, 500};
  segment.framesShowCursor = false;
  segment.isBrowserContent = true;
  segment.chromeURL = "https://example.org/";
  segment.chromeTyping = true;
  // The pointer never rests: a new position every frame.
  for (int i = 0; i <= kSeconds * kFPS; ++i) {
    const double t = i / static_cast<double>(kFPS);
    segment.pointerTrack.push_back(
        {t,
         {400 + static_cast<int>(300 * std::sin(t)), 250 + static_cast<int>(180 * std::cos(t))},
         -1});
  }
  for (double t = 0.25; t < kSeconds; t += 0.5) {
    segment.events.push_back(inputAt(InputEvent::Kind::mouseDown, t, {400, 250}, 1, ""));
    segment.events.push_back(inputAt(InputEvent::Kind::keyDown, t + 0.1, {}, 0, "Control_L"));
    segment.events.push_back(inputAt(InputEvent::Kind::keyDown, t + 0.12, {}, 0, "s"));
    segment.events.push_back(inputAt(InputEvent::Kind::keyUp, t + 0.2, {}, 0, "Control_L"));
  }
  EffectAnnotation light;
  light.duration = kSeconds;
  light.rect = {100, 100, 300, 60};
  segment.effects = {light};
  DemoEvent navigate;
  navigate.kind = DemoEvent::Kind::navigate;
  navigate.duration = 2;
  navigate.url = "https://example.org/a/longer/path";
  DemoEvent highlight;
  highlight.kind = DemoEvent::Kind::highlight;
  highlight.duration = kSeconds;
  highlight.rect = {120, 300, 200, 40};
  highlight.style = "glow";
  DemoEvent zoom;
  zoom.kind = DemoEvent::Kind::zoom;
  zoom.time = 3;
  zoom.duration = 2;
  zoom.scale = 1.6;
  zoom.rect = {300, 200, 100, 50};
  DemoEvent zoomOut;
  zoomOut.kind = DemoEvent::Kind::zoomOut;
  zoomOut.time = 7;
  zoomOut.duration = 1;
  segment.demoEvents = {navigate, highlight, zoom, zoomOut};
  return segment;
}

RenderSettings allEffects() {
  RenderSettings settings;
  settings.fps = kFPS;
  settings.maxWidth = 800;
  settings.cursorSmoothing = true;
  settings.clickIndicators = true;
  settings.keystrokeBadges = true;
  settings.typeSmoothing = true;
  settings.background = "#2d3142";
  settings.fauxTitleBar = "Demo";
  return settings;
}

void run(benchmark::State& state, int storedFrames) {
  std::vector<RenderSegment> segments;
  segments.push_back(busySegment(storedFrames));
  const FrameCompositor compositor(segments, allEffects());
  int k = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(compositor.frame(k));
    k = (k + 1) % compositor.frameCount();
  }
  state.counters["realtime"] = benchmark::Counter(static_cast<double>(state.iterations()) / kFPS,
                                                  benchmark::Counter::kIsRate);
  state.counters["width"] = compositor.canvasSize().width;
}

void BM_EffectsPassAllOn800x500(benchmark::State& state) {
  run(state, 1);
}
BENCHMARK(BM_EffectsPassAllOn800x500)->Unit(benchmark::kMillisecond);

void BM_EffectsPassAllOn800x500WithDecoding(benchmark::State& state) {
  run(state, static_cast<int>(kSeconds * kFPS));
}
BENCHMARK(BM_EffectsPassAllOn800x500WithDecoding)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace brimble
