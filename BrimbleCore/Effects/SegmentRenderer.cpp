#include "BrimbleCore/Effects/SegmentRenderer.h"

#include <system_error>

#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Effects/SegmentSound.h"
#include "BrimbleCore/Support/FileIO.h"

namespace brimble::SegmentRenderer {
namespace {

/// A temporary file deleted when it goes out of scope, whatever happened.
struct ScratchFile {
  ScratchFile() : path(temporaryDirectory() / ("brimble-sound-" + makeUUIDString() + ".f32")) {}
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  ~ScratchFile() {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
  std::filesystem::path path;
};

}  // namespace

EncodeSummary render(std::span<const RenderSegment> segments, const RenderSettings& settings,
                     const std::filesystem::path& output, const EncodeProgress& progress,
                     const std::stop_token& stop, OutputClock* outputClock) {
  const FrameCompositor compositor(segments, settings);
  if (outputClock != nullptr) {
    *outputClock = compositor.outputClock();
  }
  if (compositor.frameCount() == 0) {
    return {};
  }
  const FrameSupplier frameAt = [&](int k) { return compositor.frame(k); };

  SequenceOptions options;
  options.fps = settings.fps;
  options.loopCount = settings.loopCount;
  options.frameDiffing = settings.frameDiffing;
  options.deduplicate = settings.deduplicate;
  options.format = settings.format;
  options.progress = progress;
  options.webpQuality = settings.webpQuality;
  options.video = settings.video;
  options.video.frameRate = settings.fps;
  ScratchFile sound;
  if (isVideo(settings.format)) {
    if (auto track = SegmentSound::compose(compositor, segments, settings.fps, sound.path)) {
      options.video.audio = std::move(track);
    }
  }
  options.stop = stop;
  options.tuning.paletteStrategy = settings.paletteStrategy;
  // Screen recordings change a few pixels at a time (a typed character): only a comparison of
  // every pixel tells such frames apart, and histogram palettes keep antialiased text faithful.
  options.tuning.dedupRule = DedupRule::everyPixel;
  options.tuning.paletteBuilder = PaletteBuilder::histogram;
  // An output frame that shows what the one before it shows needs no decoding or drawing.
  options.repeatsPrevious = [&](int k) { return compositor.repeatsPrevious(k); };
  return ClipEncoder::encodeSequence(compositor.frameCount(), frameAt, output, options);
}

std::optional<Image> lastFrame(std::span<const RenderSegment> segments,
                               const RenderSettings& settings) {
  const FrameCompositor compositor(segments, settings);
  if (compositor.frameCount() == 0) {
    return std::nullopt;
  }
  return compositor.frame(compositor.frameCount() - 1);
}

}  // namespace brimble::SegmentRenderer
