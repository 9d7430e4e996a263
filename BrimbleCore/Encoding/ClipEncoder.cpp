#include "BrimbleCore/Encoding/ClipEncoder.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include "BrimbleCore/Encoding/ColorPaletteOptimizer.h"
#include "BrimbleCore/Encoding/FrameDeduplicator.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/MedianCutQuantizer.h"
#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/SequenceEncoder.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/ParallelFor.h"

namespace brimble {
namespace {

using OutputFactory = SequenceEncoder::OutputFactory;

AtomicFile createOutput(const std::filesystem::path& output) {
  try {
    return AtomicFile(output, 0644);
  } catch (const std::system_error& error) {
    throw MuxError::unexpectedLayout("could not create " + output.string() + ": " +
                                     error.code().message());
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

using FrameSink = std::function<void(ProcessedFrame frame)>;

/// FrameDeduplicator::mergeShortFrames for frames arriving one at a time: holds the frame being
/// lengthened and the one before it, which takes in a short remainder at the end.
class ShortFrameMerger {
 public:
  ShortFrameMerger(double minimumDelay, FrameSink write)
      : shortOf_(minimumDelay - 1e-9), write_(std::move(write)) {}

  void push(ProcessedFrame frame) {
    if (growing_ && growing_->delay < shortOf_) {
      growing_->delay += frame.delay;
      return;
    }
    if (growing_) {
      if (complete_) {
        write_(std::move(*complete_));
      }
      complete_ = std::move(growing_);
    }
    growing_ = std::move(frame);
  }

  void finish() {
    if (!growing_) {
      return;
    }
    if (complete_ && growing_->delay < shortOf_) {
      complete_->image = std::move(growing_->image);
      complete_->delay += growing_->delay;
      complete_->sourceTimestamp = growing_->sourceTimestamp;
      write_(std::move(*complete_));
    } else {
      if (complete_) {
        write_(std::move(*complete_));
      }
      write_(std::move(*growing_));
    }
    complete_.reset();
    growing_.reset();
  }

 private:
  const double shortOf_;
  const FrameSink write_;
  std::optional<ProcessedFrame> complete_;
  std::optional<ProcessedFrame> growing_;
};

/// ColorPaletteOptimizer::optimize for frames arriving one at a time: a scene (for `global`, the
/// whole clip) is held until it ends, then shares a palette. A scene longer than
/// FrameStream::kHeldFrameBytes shares the palette of the part held; the rest of it is quantized
/// to that palette as it comes.
class ScenePalettes {
 public:
  ScenePalettes(PaletteStrategy strategy, const EncodeProgress& progress, FrameSink write)
      : strategy_(strategy), progress_(progress), write_(std::move(write)) {}

  void push(ProcessedFrame frame) {
    if (strategy_ == PaletteStrategy::perFrame) {
      write_(std::move(frame));
      return;
    }
    ++seen_;
    if (strategy_ == PaletteStrategy::automatic && previous_ &&
        ColorPaletteOptimizer::isSceneChange(*previous_, frame.image)) {
      shareHeld();
      palette_.reset();
    }
    previous_ = frame.image;
    if (palette_) {
      write_(quantized(std::move(frame), *palette_));
      return;
    }
    heldBytes_ += frame.image.bytes().size();
    held_.push_back(std::move(frame));
    if (heldBytes_ > FrameStream::kHeldFrameBytes) {
      shareHeld();
    }
  }

  void finish() {
    // A clip of one frame keeps its own palette.
    if (strategy_ == PaletteStrategy::automatic && seen_ < 2) {
      for (ProcessedFrame& frame : held_) {
        write_(std::move(frame));
      }
      held_.clear();
    }
    shareHeld();
  }

 private:
  /// The palette the held frames share (none keeps their own) is applied to them, they are
  /// written, and it stays in use for the rest of their scene.
  void shareHeld() {
    if (held_.empty()) {
      return;
    }
    palette_ = ColorPaletteOptimizer::sharedPalette(
        held_.size(), [this](std::size_t i) { return held_[i].image; },
        strategy_ == PaletteStrategy::automatic);
    if (*palette_) {
      const std::vector<RGBColor>& palette = **palette_;
      std::atomic<int> done = 0;
      const int total = static_cast<int>(held_.size());
      parallelFor(held_.size(), [&](std::size_t i) {
        held_[i] = quantized(std::move(held_[i]), palette);
        if (progress_) {
          progress_(RenderPhase::palette, ++done, total);
        }
      });
    }
    for (ProcessedFrame& frame : held_) {
      write_(std::move(frame));
    }
    held_.clear();
    heldBytes_ = 0;
  }

  static ProcessedFrame quantized(ProcessedFrame frame,
                                  const std::optional<std::vector<RGBColor>>& palette) {
    if (palette) {
      if (auto image = MedianCutQuantizer::quantize(frame.image, *palette)) {
        frame.image = std::move(*image);
      }
    }
    return frame;
  }

  const PaletteStrategy strategy_;
  const EncodeProgress& progress_;
  const FrameSink write_;
  std::vector<ProcessedFrame> held_;
  std::size_t heldBytes_ = 0;
  int seen_ = 0;
  std::optional<Image> previous_;
  /// Once set, the palette of the current scene (none: its frames keep their own).
  std::optional<std::optional<std::vector<RGBColor>>> palette_;
};

}  // namespace

EncodeSummary ClipEncoder::encode(std::span<const ProcessedFrame> frames,
                                  const std::filesystem::path& output,
                                  const SequenceOptions& options) {
  if (frames.empty()) {
    return {};
  }
  return encodeStream([frames] { return std::make_unique<SpanFrameStream>(frames); }, output,
                      options);
}

EncodeSummary ClipEncoder::encodeStream(const FrameStreamSource& open,
                                        const std::filesystem::path& output,
                                        const SequenceOptions& options) {
  const EncodeProgress& progress = options.progress;
  // With diffing, each frame keeps full colour and gets its own palette; without it, the
  // strategy decides which frames share one.
  const PaletteStrategy palettes = options.format == OutputFormat::gif && !options.frameDiffing
                                       ? options.tuning.paletteStrategy
                                       : PaletteStrategy::perFrame;
  const auto write = [&](const OutputFactory& makeWriter, bool apngAlpha) {
    AnimationWriterOptions writerOptions;
    writerOptions.format = options.format;
    writerOptions.loopCount = options.loopCount;
    writerOptions.frameDiffing = options.frameDiffing && options.format == OutputFormat::gif;
    writerOptions.webpQuality = options.webpQuality;
    writerOptions.webpMode = options.tuning.webpMode;
    writerOptions.apngAlpha = apngAlpha;
    const std::unique_ptr<FrameStream> stream = open();
    // Made at the first frame, so that a clip with none leaves no file.
    std::unique_ptr<FrameOutput> writer;
    int written = 0;
    ScenePalettes shared(palettes, progress, [&](ProcessedFrame frame) {
      checkCancellation(options.stop);
      if (!writer) {
        writer = makeWriter(writerOptions);
      }
      writer->append(frame.image, frame.delay);
      ++written;
      if (progress) {
        progress(RenderPhase::encode, written, std::max(written, stream->position().total));
      }
    });
    // Browsers slow GIF frames shorter than 2 cs down.
    ShortFrameMerger playable(
        options.format == OutputFormat::gif ? FrameDeduplicator::kShortestGIFDelay : 0,
        [&](ProcessedFrame frame) { shared.push(std::move(frame)); });
    while (std::optional<ProcessedFrame> frame = stream->next()) {
      checkCancellation(options.stop);
      playable.push(std::move(*frame));
    }
    playable.finish();
    shared.finish();
    if (!writer) {
      return EncodeSummary{};
    }
    checkCancellation(options.stop);
    writer->finish();
    // Merged repeats leave fewer frames written than the source held.
    const int total = stream->position().total;
    if (progress && written < total) {
      progress(RenderPhase::encode, total, total);
    }
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
