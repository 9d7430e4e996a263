// A long recording end to end, for peak memory: writes a frame store of MINUTES of 1920x1080
// JPEG frames at FPS (a new screen every second, repeats in between, as a real recording has),
// then encodes it to OUT with the command line's defaults. Run it under /usr/bin/time -v; the
// encode must stay far below the size of the recording, since frames are streamed. With
// `effects`, the recording is rendered through the effects pass instead, every effect on: a
// pointer that moves for two seconds of every ten, a click and a shortcut every ten seconds, a
// spotlight, a background, a title bar, title cards, idle ramps.
//
//   BrimbleLongRecordingBench MINUTES FPS OUT [effects]

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BrimbleCore/Effects/SegmentRenderer.h"
#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/DiskFrameWriter.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/TestPattern.h"

int main(int argc, char** argv) {
  using namespace brimble;
  using Clock = std::chrono::steady_clock;
  if (argc != 4 && !(argc == 5 && std::string(argv[4]) == "effects")) {
    std::fprintf(stderr, "usage: %s MINUTES FPS OUT [effects]\n", argv[0]);
    return 2;
  }
  const int minutes = std::atoi(argv[1]);
  const int fps = std::atoi(argv[2]);
  const std::string out = argv[3];
  const int seconds = minutes * 60;

  const auto started = Clock::now();
  DiskFrameWriter writer;
  for (int second = 0; second < seconds; ++second) {
    const std::vector<std::uint8_t> blob =
        encodeJPEG(testPatternFrame(second, seconds, 1920, 1080), 85);
    for (int i = 0; i < fps; ++i) {
      writer.append(blob);
    }
  }
  std::unique_ptr<CompressedFrameStore> store = writer.finalize();
  const auto written = Clock::now();
  std::fprintf(stderr, "store: %d frames in %.1f s\n", store->count(),
               std::chrono::duration<double>(written - started).count());

  if (argc == 5) {
    std::vector<RenderSegment> segments(1);
    RenderSegment& segment = segments[0];
    segment.frames = std::move(store);
    segment.fps = fps;
    segment.windowFrame = {0, 0, 1920, 1080};
    segment.framesShowCursor = false;
    for (int second = 0; second < seconds; second += 10) {
      for (int i = 0; i <= 2 * fps; ++i) {
        const double t = second + i / static_cast<double>(fps);
        segment.pointerTrack.push_back({t, {200 + 30 * i, 300 + 10 * i}, -1});
      }
      InputEvent click;
      click.kind = InputEvent::Kind::mouseDown;
      click.timestamp = second + 2;
      click.position = {200 + 60 * fps, 300 + 20 * fps};
      click.button = 1;
      segment.events.push_back(click);
      for (const char* key : {"Control_L", "s"}) {
        InputEvent press;
        press.kind = InputEvent::Kind::keyDown;
        press.timestamp = second + 3;
        press.key = key;
        segment.events.push_back(press);
      }
      EffectAnnotation light;
      light.startTime = second + 4;
      light.duration = 3;
      light.rect = {100, 100, 800, 120};
      segment.effects.push_back(light);
    }
    RenderSettings settings;
    settings.fps = fps;
    settings.cursorSmoothing = true;
    settings.clickIndicators = true;
    settings.keystrokeBadges = true;
    settings.idleStrategy = IdleStrategy::ramp;
    settings.idleThreshold = 2;
    settings.background = "#2d3142";
    settings.fauxTitleBar = "A long recording";
    settings.intro = TitleCard{"Ten minutes", "with every effect", std::nullopt};
    settings.outro = TitleCard{"The end", "", std::nullopt};
    const EncodeSummary summary = SegmentRenderer::render(segments, settings, out);
    std::fprintf(stderr, "render: %d frames of %dx%d, %.1f s of animation, in %.1f s\n",
                 summary.frames, summary.width, summary.height, summary.duration,
                 std::chrono::duration<double>(Clock::now() - written).count());
    return 0;
  }

  SequenceOptions options;
  options.fps = fps;
  options.tuning.dedupRule = DedupRule::everyPixel;
  options.tuning.paletteStrategy = PaletteStrategy::automatic;
  options.tuning.paletteBuilder = PaletteBuilder::histogram;
  // Counted, to weigh decoding the store again (kept frames, palette samples) against keeping
  // decoded frames.
  std::atomic<int> decodes = 0;
  std::atomic<std::int64_t> decodeMicroseconds = 0;
  const FrameSupplier decode = [&](int index) {
    const auto begin = Clock::now();
    auto image = decodeImage(store->data(index));
    decodes += 1;
    decodeMicroseconds +=
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin).count();
    return image;
  };
  // As encodeCompressed does: a repeated screen is the same JPEG bytes, merged undecoded.
  options.repeatsPrevious = [&](int index) { return store->data(index) == store->data(index - 1); };
  const EncodeSummary summary = ClipEncoder::encodeSequence(store->count(), decode, out, options);
  std::fprintf(stderr, "encode: %d frames of %dx%d in %.1f s\n", summary.frames, summary.width,
               summary.height, std::chrono::duration<double>(Clock::now() - written).count());
  std::fprintf(stderr, "decode: %d decodes of %d stored frames, %.1f s on all threads\n",
               decodes.load(), store->count(), decodeMicroseconds.load() / 1e6);
  return 0;
}
