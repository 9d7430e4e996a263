#include "BrimbleCore/Effects/SegmentRenderer.h"

#include <set>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Effects/SegmentSound.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/OutputPath.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Cancellation.h"
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

std::filesystem::path frameFile(const std::filesystem::path& folder, int index) {
  return folder / fmt::format("frame-{:05}.png", index + 1);
}

EncodeSummary writeFrameFolder(const FrameCompositor& compositor, int fps,
                               const std::filesystem::path& folder, const std::stop_token& stop) {
  checkFrameFolderOutput(folder);
  std::error_code error;
  std::filesystem::create_directory(folder, error);
  if (error) {
    throw std::system_error(error, "cannot make the frame folder " + folder.string());
  }
  std::vector<std::filesystem::path> earlier;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    earlier.push_back(entry.path());
  }
  EncodeSummary summary;
  std::set<std::filesystem::path> written;
  std::vector<std::uint8_t> png;
  const int count = compositor.frameCount();
  for (int k = 0; k < count; ++k) {
    if (stop.stop_requested()) {
      throw CancellationError();
    }
    // A repeated picture is written again without drawing or compressing it anew.
    if (png.empty() || !compositor.repeatsPrevious(k)) {
      const std::optional<Image> frame = compositor.frame(k);
      if (!frame) {
        continue;
      }
      png = encodePNG(*frame);
      summary.width = frame->width();
      summary.height = frame->height();
    }
    const std::filesystem::path file = frameFile(folder, summary.frames);
    writeFileAtomically(
        file, std::string_view(reinterpret_cast<const char*>(png.data()), png.size()), 0644);
    written.insert(file);
    ++summary.frames;
  }
  summary.duration = static_cast<double>(summary.frames) / fps;
  // Frames of a longer earlier render would play on after this one's.
  for (const std::filesystem::path& file : earlier) {
    if (!written.contains(file)) {
      std::filesystem::remove(file, error);
    }
  }
  return summary;
}

EncodeSummary encodeFrom(const FrameCompositor& compositor, std::span<const RenderSegment> segments,
                         const RenderSettings& settings, const std::filesystem::path& output,
                         OutputFormat format, const EncodeProgress& progress,
                         const std::stop_token& stop) {
  const FrameSupplier frameAt = [&](int k) { return compositor.frame(k); };

  SequenceOptions options;
  options.fps = settings.fps;
  options.loopCount = settings.loopCount;
  options.frameDiffing = settings.frameDiffing;
  options.deduplicate = settings.deduplicate;
  options.format = format;
  options.progress = progress;
  options.webpQuality = settings.webpQuality;
  options.video = settings.video;
  options.video.frameRate = settings.fps;
  ScratchFile sound;
  if (isVideo(format)) {
    if (auto track = SegmentSound::compose(compositor, segments, settings.fps, sound.path,
                                           settings.playbackSpeed)) {
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
  return encodeFrom(compositor, segments, settings, output, settings.format, progress, stop);
}

std::vector<EncodeSummary> renderEach(std::span<const RenderSegment> segments,
                                      const RenderSettings& settings,
                                      std::span<const RenderOutput> outputs,
                                      const EncodeProgress& progress, const std::stop_token& stop,
                                      OutputClock* outputClock) {
  std::vector<EncodeSummary> summaries;
  const FrameCompositor compositor(segments, settings);
  if (outputClock != nullptr) {
    *outputClock = compositor.outputClock();
  }
  if (compositor.frameCount() == 0) {
    summaries.resize(outputs.size());
    return summaries;
  }
  for (const RenderOutput& output : outputs) {
    if (output.format) {
      summaries.push_back(
          encodeFrom(compositor, segments, settings, output.path, *output.format, progress, stop));
    } else {
      summaries.push_back(writeFrameFolder(compositor, settings.fps, output.path, stop));
    }
  }
  return summaries;
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
