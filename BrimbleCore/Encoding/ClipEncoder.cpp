#include "BrimbleCore/Encoding/ClipEncoder.h"

#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <sys/stat.h>

#include "BrimbleCore/Encoding/ColorPaletteOptimizer.h"
#include "BrimbleCore/Encoding/FrameDeduplicator.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/SequenceEncoder.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Cancellation.h"

namespace brimble {
namespace {

using OutputFactory = SequenceEncoder::OutputFactory;

AtomicFile createOutput(const std::filesystem::path& output) {
  try {
    return AtomicFile(output, 0644);
  } catch (const std::system_error&) {
    throw MuxError::unexpectedLayout("could not create " + output.string());
  }
}

/// Runs `write` with a writer factory over a fresh AtomicFile for `output` and commits the file
/// when frames were written. A colour-only APNG that meets a translucent frame is written again
/// with alpha: its earlier frames cannot be converted once compressed.
template <typename Write>
EncodeSummary writeOutput(const std::filesystem::path& output, OutputFormat format,
                          const VideoOptions& video, Write write) {
  if (format == OutputFormat::mp4) {
    AtomicFile file = createOutput(output);
    const OutputFactory writer = [&](const AnimationWriterOptions&) {
      return std::make_unique<VideoWriter>(file.temporaryPath(), video);
    };
    const EncodeSummary summary = write(writer, false);
    if (summary.frames > 0) {
      file.commit();
    }
    return summary;
  }
  for (bool apngAlpha : {false, true}) {
    AtomicFile file = createOutput(output);
    const OutputFactory writer = [&](const AnimationWriterOptions& options) {
      return std::make_unique<AnimationWriter>(
          options, std::make_unique<FileByteSink>(file.temporaryPath()));
    };
    try {
      const EncodeSummary summary = write(writer, apngAlpha);
      if (summary.frames > 0) {
        file.commit();
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

EncodeSummary ClipEncoder::encode(std::span<const ProcessedFrame> frames,
                                  const std::filesystem::path& output,
                                  const SequenceOptions& options) {
  if (frames.empty()) {
    return {};
  }
  std::span<const ProcessedFrame> toWrite = frames;
  std::vector<ProcessedFrame> playable;
  if (options.format == OutputFormat::gif) {
    playable = FrameDeduplicator::mergeShortFrames(frames, FrameDeduplicator::kShortestGIFDelay);
    toWrite = playable;
  }
  // With diffing, each frame keeps full colour and gets its own palette; without it, the
  // strategy decides which frames share one.
  ColorPaletteOptimizer::Result optimized;
  const EncodeProgress& progress = options.progress;
  if (options.format == OutputFormat::gif && !options.frameDiffing) {
    PaletteProgress paletteProgress;
    if (progress) {
      paletteProgress = [&progress](int done, int total) {
        progress(RenderPhase::palette, done, total);
      };
    }
    optimized =
        ColorPaletteOptimizer::optimize(toWrite, options.tuning.paletteStrategy, paletteProgress);
    toWrite = optimized.frames;
  }
  const auto write = [&](const OutputFactory& makeWriter, bool apngAlpha) {
    AnimationWriterOptions writerOptions;
    writerOptions.format = options.format;
    writerOptions.loopCount = options.loopCount;
    writerOptions.frameDiffing = options.frameDiffing && options.format == OutputFormat::gif;
    writerOptions.webpQuality = options.webpQuality;
    writerOptions.webpMode = options.tuning.webpMode;
    writerOptions.apngAlpha = apngAlpha;
    const std::unique_ptr<FrameOutput> writer = makeWriter(writerOptions);
    const int total = static_cast<int>(toWrite.size());
    for (int i = 0; i < total; ++i) {
      checkCancellation(options.stop);
      const ProcessedFrame& frame = toWrite[static_cast<std::size_t>(i)];
      writer->append(frame.image, frame.delay);
      if (progress) {
        progress(RenderPhase::encode, i + 1, total);
      }
    }
    checkCancellation(options.stop);
    writer->finish();
    return writer->summary();
  };
  return writeOutput(output, options.format, options.video, write);
}

EncodeSummary ClipEncoder::encodeCompressed(const CompressedFrameStore& frameStore,
                                            const std::filesystem::path& output,
                                            const SequenceOptions& options) {
  const FrameSupplier decode = [&frameStore](int index) {
    return decodeImage(frameStore.data(index));
  };
  SequenceOptions storeOptions = options;
  // A recorder compresses an unchanged screen to the same bytes.
  storeOptions.repeatsPrevious = [&frameStore](int index) {
    return frameStore.data(index) == frameStore.data(index - 1);
  };
  return encodeSequence(frameStore.count(), decode, output, storeOptions);
}

EncodeSummary ClipEncoder::encodeSequence(int count, const FrameSupplier& frameAt,
                                          const std::filesystem::path& output,
                                          const SequenceOptions& options) {
  if (count == 0) {
    return {};
  }
  return writeOutput(output, options.format, options.video,
                     [&](const OutputFactory& makeWriter, bool apngAlpha) {
                       return SequenceEncoder(count, frameAt, options, apngAlpha).write(makeWriter);
                     });
}

}  // namespace brimble
