#include "BrimbleCore/Encoding/SequenceEncoder.h"

#include <algorithm>
#include <utility>

#include "BrimbleCore/Encoding/ColorPaletteOptimizer.h"
#include "BrimbleCore/Encoding/FrameDeduplicator.h"
#include "BrimbleCore/Encoding/HistogramQuantizer.h"
#include "BrimbleCore/Encoding/MedianCutQuantizer.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/ParallelFor.h"

namespace brimble {
namespace {

// A shared palette is used where it keeps frames within about 40 dB PSNR of full colour; beyond
// that, palettes of their own look visibly better.
constexpr double kSharedPaletteMaximumError = 6.5;
// Palette entries beyond what keeps frames within about 52 dB PSNR cannot be seen, but they split
// antialiased edges into more distinct indices, which LZW compresses worse.
constexpr double kVisuallyLosslessError = 0.2;

std::vector<int> allIndices(int count) {
  std::vector<int> indices(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    indices[static_cast<std::size_t>(i)] = i;
  }
  return indices;
}

/// `current` reduced to what changed since `previous`: by palette index when both use the same
/// palette with a transparent entry, else by colour.
Image difference(const Image& current, const Image& previous) {
  if (previous.empty() || previous.width() != current.width() ||
      previous.height() != current.height()) {
    return current;
  }
  const auto palette = current.palette();
  const auto previousPalette = previous.palette();
  const auto transparent = current.transparentIndex();
  if (transparent && current.format() == PixelFormat::indexed8 &&
      previous.format() == PixelFormat::indexed8 && previous.transparentIndex() == transparent &&
      std::equal(palette.begin(), palette.end(), previousPalette.begin(), previousPalette.end())) {
    PixelBuffer indices(current.bytes().size());
    const auto now = current.bytes();
    const auto before = previous.bytes();
    for (std::size_t i = 0; i < indices.size(); ++i) {
      indices[i] = now[i] == before[i] ? *transparent : now[i];
    }
    return Image::indexed8(current.width(), current.height(), std::move(indices),
                           std::vector<RGBColor>(palette.begin(), palette.end()), transparent);
  }
  return FrameComparison::createDiffFrame(current, previous, 0).value_or(current);
}

}  // namespace

/// A frame kept from the sequence and how long it shows.
struct SequenceEncoder::KeepEntry {
  int dataIndex = 0;
  double delay = 0;
};

/// Which frames of a sequence are kept, and where scenes start among them.
struct SequenceEncoder::SequencePlan {
  std::vector<KeepEntry> kept;
  std::vector<std::size_t> sceneStarts;
};

SequenceEncoder::SequenceEncoder(int count, const FrameSupplier& frameAt,
                                 const SequenceOptions& options, bool apngAlpha)
    : count_(count),
      frameAt_(frameAt),
      options_(options),
      apngAlpha_(apngAlpha),
      nominalDelay_(1.0 / std::max(options.fps, 1)),
      minimumDelay_(options.format == OutputFormat::gif ? FrameDeduplicator::kShortestGIFDelay : 0),
      threads_(options.tuning.decodeThreads > 0 ? options.tuning.decodeThreads : workerCount()) {}

EncodeSummary SequenceEncoder::write(const OutputFactory& output) const {
  const bool sharedPalettes = options_.format == OutputFormat::gif &&
                              options_.tuning.paletteStrategy != PaletteStrategy::perFrame;
  return sharedPalettes ? writeWithSharedPalettes(output) : writeAsFound(output);
}

AnimationWriterOptions SequenceEncoder::writerOptions(bool frameDiffing,
                                                      bool reuseGlobalTable) const {
  AnimationWriterOptions writer;
  writer.format = options_.format;
  writer.loopCount = options_.loopCount;
  writer.frameDiffing = frameDiffing && options_.format == OutputFormat::gif;
  writer.reuseGlobalTable = reuseGlobalTable;
  writer.webpQuality = options_.webpQuality;
  writer.webpMode = options_.tuning.webpMode;
  writer.apngAlpha = apngAlpha_;
  return writer;
}

SequenceEncoder::Arrival SequenceEncoder::classify(const DecodedFrame& frame,
                                                   const std::optional<Image>& comparison,
                                                   bool& previousDecoded) const {
  if (frame.repeat) {
    // Identical to a frame that could not be decoded: that one was skipped, so is this.
    return previousDecoded ? Arrival::repeat : Arrival::skipped;
  }
  previousDecoded = frame.image.has_value();
  if (!previousDecoded) {
    return Arrival::skipped;
  }
  return options_.deduplicate && comparison && repeats(*comparison, *frame.image) ? Arrival::repeat
                                                                                  : Arrival::kept;
}

bool SequenceEncoder::tooShort(double delay) const {
  // Delays summed from fractions of a second land a rounding error short of the minimum.
  return delay < minimumDelay_ - 1e-9;
}

RepeatCheck SequenceEncoder::repeatCheck() const {
  // Without deduplication every frame is written, so every frame is needed.
  return options_.deduplicate ? options_.repeatsPrevious : RepeatCheck();
}

bool SequenceEncoder::repeats(const Image& kept, const Image& next) const {
  return FrameComparison::framesRepeat(kept, next, options_.tuning.dedupRule);
}

Image SequenceEncoder::prepared(const Image& image) const {
  return options_.transform ? options_.transform(image) : image;
}

void SequenceEncoder::report(RenderPhase phase, int done, int total) const {
  if (options_.progress) {
    options_.progress(phase, done, total);
  }
}

/// One pass: each kept frame is written as soon as the next kept frame ends its delay.
EncodeSummary SequenceEncoder::writeAsFound(const OutputFactory& output) const {
  std::unique_ptr<FrameOutput> writer;
  std::optional<Image> comparison;  // the last kept frame, as decoded
  std::optional<Image> pending;     // the last kept frame, as written
  double pendingDelay = 0;
  const auto flush = [&] {
    if (pending) {
      if (!writer) {
        writer = output(writerOptions(options_.frameDiffing, false));
      }
      writer->append(*pending, pendingDelay);
      pending.reset();
    }
  };
  {
    std::function<Image(const Image&, std::size_t)> prepare;
    if (options_.transform) {
      prepare = [this](const Image& image, std::size_t) { return prepared(image); };
    }
    FramePrefetch reader(frameAt_, allIndices(count_), prepare, threads_, true, repeatCheck());
    bool previousDecoded = false;
    for (int i = 0; i < count_; ++i) {
      checkCancellation(options_.stop);
      DecodedFrame frame = *reader.next();
      const Arrival arrival = classify(frame, comparison, previousDecoded);
      if (arrival == Arrival::repeat) {
        pendingDelay += nominalDelay_;
        if (frame.image) {
          pending = std::move(frame.written);  // where a fade settles, as in plan()
        }
      } else if (arrival == Arrival::kept && pending && tooShort(pendingDelay)) {
        pendingDelay += nominalDelay_;  // this frame is dropped; the next is compared as before
      } else if (arrival == Arrival::kept) {
        flush();
        pending = std::move(frame.written);
        pendingDelay = nominalDelay_;
        comparison = std::move(frame.image);
      }
      report(RenderPhase::encode, i + 1, count_);
    }
  }
  if (pending && tooShort(pendingDelay)) {
    pendingDelay = minimumDelay_;
  }
  flush();
  if (!writer) {
    return {};  // nothing could be decoded: nothing to write
  }
  checkCancellation(options_.stop);
  writer->finish();
  return writer->summary();
}

/// The first of two passes: which frames to keep, and where scenes start.
SequenceEncoder::SequencePlan SequenceEncoder::plan() const {
  SequencePlan result;
  std::optional<Image> comparison;
  FramePrefetch reader(frameAt_, allIndices(count_), nullptr, threads_, true, repeatCheck());
  bool previousDecoded = false;
  for (int i = 0; i < count_; ++i) {
    checkCancellation(options_.stop);
    DecodedFrame frame = *reader.next();
    const Arrival arrival = classify(frame, comparison, previousDecoded);
    if (arrival == Arrival::repeat) {
      result.kept.back().delay += nominalDelay_;
      if (frame.image) {
        // Near-identical, not identical: a run shows its latest picture, where a fade has
        // settled, while later frames are still compared with its first, so slow changes add up.
        result.kept.back().dataIndex = i;
      }
    } else if (arrival == Arrival::kept && !result.kept.empty() &&
               tooShort(result.kept.back().delay)) {
      result.kept.back().delay += nominalDelay_;
    } else if (arrival == Arrival::kept) {
      if (!comparison || ColorPaletteOptimizer::isSceneChange(*comparison, *frame.image)) {
        result.sceneStarts.push_back(result.kept.size());
      }
      result.kept.push_back({i, nominalDelay_});
      comparison = std::move(frame.image);
    }
    report(RenderPhase::palette, i + 1, count_);
  }
  if (!result.kept.empty() && tooShort(result.kept.back().delay)) {
    result.kept.back().delay = minimumDelay_;
  }
  if (options_.tuning.paletteStrategy == PaletteStrategy::global && !result.kept.empty()) {
    result.sceneStarts = {0};
  }
  return result;
}

/// The palette the kept frames `begin..<end` share, or none where they look better with a
/// palette each. With diffing one entry stays free for transparency.
std::optional<std::vector<RGBColor>> SequenceEncoder::scenePalette(
    const std::vector<KeepEntry>& kept, std::size_t begin, std::size_t end) const {
  const auto frame = [&](std::size_t i) {
    auto image = frameAt_(kept[begin + i].dataIndex);
    return image ? prepared(*image) : Image();
  };
  const bool automatic = options_.tuning.paletteStrategy == PaletteStrategy::automatic;
  if (options_.tuning.paletteBuilder == PaletteBuilder::medianCut) {
    // Diffed frames add a transparent entry to the scene's colours.
    return ColorPaletteOptimizer::sharedPalette(end - begin, frame, automatic,
                                                options_.frameDiffing ? 255 : 256);
  }
  // One sampled frame at a time: twenty full frames at once would dominate peak memory.
  HistogramQuantizer::ColorHistogram histogram;
  for (const std::size_t i : ColorPaletteOptimizer::sampledFrames(end - begin)) {
    histogram.add(frame(i));
  }
  auto palette = histogram.palette(options_.frameDiffing ? 255 : 256, kVisuallyLosslessError);
  if (palette.colors.empty() ||
      (automatic && palette.meanSquaredError > kSharedPaletteMaximumError)) {
    return std::nullopt;
  }
  return std::move(palette.colors);
}

/// Two passes: plan, pick a palette per scene, then write every kept frame quantized to its
/// scene's palette. With diffing, unchanged palette indices become transparent, and frames on
/// the shared palette refer to the global colour table instead of repeating it.
EncodeSummary SequenceEncoder::writeWithSharedPalettes(const OutputFactory& output) const {
  const SequencePlan sequence = plan();
  if (sequence.kept.empty()) {
    return {};
  }
  const std::vector<KeepEntry>& kept = sequence.kept;
  std::vector<std::optional<std::vector<RGBColor>>> palettes;
  std::vector<std::size_t> sceneOf(kept.size());
  for (std::size_t s = 0; s < sequence.sceneStarts.size(); ++s) {
    const std::size_t begin = sequence.sceneStarts[s];
    const std::size_t end =
        s + 1 < sequence.sceneStarts.size() ? sequence.sceneStarts[s + 1] : kept.size();
    palettes.push_back(scenePalette(kept, begin, end));
    std::fill(sceneOf.begin() + static_cast<std::ptrdiff_t>(begin),
              sceneOf.begin() + static_cast<std::ptrdiff_t>(end), s);
  }
  std::vector<int> keptIndices;
  for (const KeepEntry& entry : kept) {
    keptIndices.push_back(entry.dataIndex);
  }
  const std::unique_ptr<FrameOutput> writer =
      output(writerOptions(false, /*reuseGlobalTable=*/true));
  FramePrefetch reader(
      frameAt_, keptIndices,
      [&](const Image& image, std::size_t position) {
        Image frame = prepared(image);
        const auto& palette = palettes[sceneOf[position]];
        if (!palette) {
          return frame;
        }
        auto quantized = MedianCutQuantizer::quantize(frame, *palette);
        if (!quantized || !options_.frameDiffing) {
          return quantized.value_or(frame);
        }
        // Every frame of the scene carries the transparent entry, so all their colour tables
        // are the same bytes and can refer to the global one.
        std::vector<RGBColor> colors(palette->begin(), palette->end());
        const auto transparent = static_cast<std::uint8_t>(colors.size());
        colors.push_back(RGBColor{});
        const auto indices = quantized->bytes();
        return Image::indexed8(frame.width(), frame.height(),
                               PixelBuffer(indices.begin(), indices.end()), std::move(colors),
                               transparent);
      },
      threads_, /*keepDecoded=*/false);
  Image previous;  // the last frame written, in full
  for (std::size_t position = 0; position < kept.size(); ++position) {
    checkCancellation(options_.stop);
    Image frame = std::move(reader.next()->written);
    writer->append(options_.frameDiffing ? difference(frame, previous) : frame,
                   kept[position].delay);
    previous = std::move(frame);
    report(RenderPhase::encode, static_cast<int>(position + 1), static_cast<int>(kept.size()));
  }
  checkCancellation(options_.stop);
  writer->finish();
  return writer->summary();
}

}  // namespace brimble
