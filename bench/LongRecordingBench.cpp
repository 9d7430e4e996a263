// A long recording end to end, for peak memory: writes a frame store of MINUTES of 1920x1080
// JPEG frames at FPS (a new screen every second, repeats in between, as a real recording has),
// then encodes it to OUT with the command line's defaults. Run it under /usr/bin/time -v; the
// encode must stay far below the size of the recording, since frames are streamed.
//
//   BrimbleLongRecordingBench MINUTES FPS OUT

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BrimbleCore/Encoding/DiskFrameWriter.h"
#include "BrimbleCore/Encoding/GIFEncoder.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/TestPattern.h"

int main(int argc, char** argv) {
  using namespace brimble;
  using Clock = std::chrono::steady_clock;
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s MINUTES FPS OUT\n", argv[0]);
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
  const auto store = writer.finalize();
  const auto written = Clock::now();
  std::fprintf(stderr, "store: %d frames in %.1f s\n", store->count(),
               std::chrono::duration<double>(written - started).count());

  EncoderTuning tuning;
  tuning.dedupRule = DedupRule::everyPixel;
  tuning.paletteStrategy = PaletteStrategy::automatic;
  tuning.paletteBuilder = PaletteBuilder::histogram;
  const EncodeSummary summary = GIFEncoder::encodeCompressed(
      *store, fps, 0, true, true, OutputFormat::gif, out, {}, {}, 75, {}, tuning);
  std::fprintf(stderr, "encode: %d frames of %dx%d in %.1f s\n", summary.frames, summary.width,
               summary.height, std::chrono::duration<double>(Clock::now() - written).count());
  return 0;
}
