#include "BrimbleCore/Encoding/GIFEncoder.h"

#include <memory>
#include <string>
#include <system_error>

#include <sys/stat.h>

#include "BrimbleCore/Encoding/ColorPaletteOptimizer.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/SequenceEncoder.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Cancellation.h"

namespace brimble {
namespace {

constexpr float kDefaultWebPQuality = 75;
// Lossless: on screen recordings it is both smaller and exact (terminal clip: 51,992 bytes
// against 59,718 lossy at 33 dB); see bench/README.md.
constexpr WebPMode kDefaultWebPMode = WebPMode::lossless;

using OutputFactory = SequenceEncoder::OutputFactory;

AtomicFile createOutput(const std::filesystem::path& url) {
  try {
    return AtomicFile(url, 0644);
  } catch (const std::system_error&) {
    throw MuxError::unexpectedLayout("could not create " + url.string());
  }
}

/// Runs `write` with a writer factory over a fresh AtomicFile for `url` and commits the file
/// when frames were written. A colour-only APNG that meets a translucent frame is written again
/// with alpha: its earlier frames cannot be converted once compressed.
template <typename Write>
EncodeSummary writeOutput(const std::filesystem::path& url, OutputFormat format,
                          const VideoOptions& video, Write write) {
  if (format == OutputFormat::mp4) {
    AtomicFile output = createOutput(url);
    const OutputFactory writer = [&](const AnimationWriterOptions&) {
      return std::make_unique<VideoWriter>(output.temporaryPath(), video);
    };
    const EncodeSummary summary = write(writer, false);
    if (summary.frames > 0) {
      output.commit();
    }
    return summary;
  }
  for (bool apngAlpha : {false, true}) {
    AtomicFile output = createOutput(url);
    const OutputFactory writer = [&](const AnimationWriterOptions& options) {
      return std::make_unique<AnimationWriter>(
          options, std::make_unique<FileByteSink>(output.temporaryPath()));
    };
    try {
      const EncodeSummary summary = write(writer, apngAlpha);
      if (summary.frames > 0) {
        output.commit();
      }
      return summary;
    } catch (const MuxError& error) {
      if (format != OutputFormat::apng || apngAlpha ||
          error.code() != MuxError::Code::unsupportedColorType) {
        throw;
      }
    }
  }
  return {};  // not reached: the second round has alpha
}

}  // namespace

EncodeSummary GIFEncoder::encode(std::span<const ProcessedFrame> frames, int loopCount,
                                 PaletteStrategy paletteStrategy, bool frameDiffing,
                                 OutputFormat format, const std::filesystem::path& url,
                                 const EncodeProgress& progress, const std::stop_token& stop,
                                 const VideoOptions& video) {
  if (frames.empty()) {
    return {};
  }
  // With diffing, each frame keeps full colour and gets its own palette; without it, the
  // strategy decides which frames share one.
  std::span<const ProcessedFrame> toWrite = frames;
  ColorPaletteOptimizer::Result optimized;
  if (format == OutputFormat::gif && !frameDiffing) {
    PaletteProgress paletteProgress;
    if (progress) {
      paletteProgress = [&progress](int done, int total) {
        progress(RenderPhase::palette, done, total);
      };
    }
    optimized = ColorPaletteOptimizer::optimize(frames, paletteStrategy, paletteProgress);
    toWrite = optimized.frames;
  }
  return writeOutput(url, format, video, [&](const OutputFactory& output, bool apngAlpha) {
    AnimationWriterOptions options;
    options.format = format;
    options.loopCount = loopCount;
    options.frameDiffing = frameDiffing && format == OutputFormat::gif;
    options.webpQuality = kDefaultWebPQuality;
    options.webpMode = kDefaultWebPMode;
    options.apngAlpha = apngAlpha;
    const std::unique_ptr<FrameOutput> writer = output(options);
    const int total = static_cast<int>(toWrite.size());
    for (int i = 0; i < total; ++i) {
      checkCancellation(stop);
      const ProcessedFrame& frame = toWrite[static_cast<std::size_t>(i)];
      writer->append(frame.image, frame.delay);
      if (progress) {
        progress(RenderPhase::encode, i + 1, total);
      }
    }
    checkCancellation(stop);
    writer->finish();
    return writer->summary();
  });
}

EncodeSummary GIFEncoder::encodeCompressed(const CompressedFrameStore& frameStore, int fps,
                                           int loopCount, bool frameDiffing, bool deduplicate,
                                           OutputFormat format, const std::filesystem::path& url,
                                           const EncodeProgress& progress,
                                           const FrameTransform& transform, float webpQuality,
                                           const std::stop_token& stop,
                                           const EncoderTuning& tuning,
                                           const VideoOptions& video) {
  const FrameSupplier decode = [&frameStore](int index) {
    return decodeImage(frameStore.data(index));
  };
  SequenceOptions options;
  options.fps = fps;
  options.loopCount = loopCount;
  options.frameDiffing = frameDiffing;
  options.deduplicate = deduplicate;
  options.format = format;
  options.progress = progress;
  options.transform = transform;
  options.webpQuality = webpQuality;
  options.stop = stop;
  options.tuning = tuning;
  options.video = video;
  // A recorder compresses an unchanged screen to the same bytes.
  options.repeatsPrevious = [&frameStore](int index) {
    return frameStore.data(index) == frameStore.data(index - 1);
  };
  return encodeSequence(frameStore.count(), decode, url, options);
}

EncodeSummary GIFEncoder::encodeSequence(int count, const FrameSupplier& frameAt,
                                         const std::filesystem::path& url,
                                         const SequenceOptions& options) {
  if (count == 0) {
    return {};
  }
  return writeOutput(url, options.format, options.video,
                     [&](const OutputFactory& output, bool apngAlpha) {
                       return SequenceEncoder(count, frameAt, options, apngAlpha).write(output);
                     });
}

}  // namespace brimble
