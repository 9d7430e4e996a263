#include "BrimbleCore/Encoding/GIFEncoder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "BrimbleCore/Encoding/APNGMuxer.h"
#include "BrimbleCore/Encoding/ByteSink.h"
#include "BrimbleCore/Encoding/ColorPaletteOptimizer.h"
#include "BrimbleCore/Encoding/GIFMuxer.h"
#include "BrimbleCore/Encoding/HistogramQuantizer.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/MedianCutQuantizer.h"
#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/SampledDifference.h"
#include "BrimbleCore/Encoding/WebPMuxer.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/OrderedPrefetcher.h"
#include "BrimbleCore/Support/ParallelFor.h"

namespace brimble {
namespace {

// Pixels are B, G, R, A in memory, so on a little-endian machine alpha is the top byte.
constexpr std::uint32_t kColorMask = 0x00FFFFFF;
constexpr std::uint32_t kOpaque = 0xFF000000;
constexpr float kDefaultWebPQuality = 75;
// JPEG at the recorders' quality moves a static pixel by a few levels at most.
constexpr int kEveryPixelTolerance = 10;
// A shared palette is used where it keeps frames within about 40 dB PSNR of full colour; beyond
// that, palettes of their own look visibly better.
constexpr double kSharedPaletteMaximumError = 6.5;
// Palette entries beyond what keeps frames within about 52 dB PSNR cannot be seen, but they split
// antialiased edges into more distinct indices, which LZW compresses worse.
constexpr double kVisuallyLosslessError = 0.2;

/// The file an encode writes: a hidden sibling of the destination, renamed over it by `commit`
/// and deleted if the encode ends any other way.
class OutputFile {
 public:
  explicit OutputFile(const std::filesystem::path& destination)
      : destination_(destination),
        partial_(destination.parent_path() / ("." + destination.filename().string() + ".partial-" +
                                              makeUUIDString().substr(0, 8))) {}
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile() {
    if (!committed_) {
      std::error_code ignored;
      std::filesystem::remove(partial_, ignored);
    }
  }

  std::unique_ptr<FileByteSink> createSink() const {
    try {
      return std::make_unique<FileByteSink>(partial_);
    } catch (const MuxError&) {
      throw MuxError::unexpectedLayout("could not create " + destination_.string());
    }
  }

  void commit() {
    std::error_code error;
    std::filesystem::rename(partial_, destination_, error);
    if (error) {
      throw std::system_error(error,
                              "rename " + partial_.string() + " to " + destination_.string());
    }
    committed_ = true;
  }

 private:
  std::filesystem::path destination_;
  std::filesystem::path partial_;
  bool committed_ = false;
};

/// An animation writer for `format` that reports its own failures for the formats whose
/// writers are not GIF's.
class Writer {
 public:
  Writer(OutputFormat format, std::unique_ptr<ByteSink> sink, int loopCount, bool frameDiffing,
         float webpQuality, bool webpLossless, bool reuseGlobalTable = false)
      : format_(format) {
    switch (format) {
      case OutputFormat::gif: {
        auto gif = std::make_unique<GIFMuxer>(std::move(sink), loopCount, frameDiffing, 0);
        gif->setReuseGlobalTable(reuseGlobalTable);
        muxer_ = std::move(gif);
        break;
      }
      case OutputFormat::webp:
        muxer_ = std::make_unique<WebPMuxer>(std::move(sink), loopCount, webpQuality, webpLossless);
        break;
      case OutputFormat::apng:
        muxer_ = std::make_unique<APNGMuxer>(std::move(sink), loopCount);
        break;
      case OutputFormat::mp4:
        throw MuxError::unexpectedLayout("mp4 has no animation muxer");
    }
  }

  void append(const Image& image, double delay) {
    if (format_ == OutputFormat::gif) {
      delay = gifDelayOnTimeline(delay);
    }
    logged([&] { muxer_->append(image, delay); });
    if (summary_.frames++ == 0) {
      summary_.width = image.width();
      summary_.height = image.height();
    }
  }
  void finish() {
    logged([&] { muxer_->finish(); });
  }

  const EncodeSummary& summary() const noexcept { return summary_; }

 private:
  template <typename Body>
  void logged(Body body) {
    try {
      body();
    } catch (const std::exception& error) {
      if (format_ == OutputFormat::webp) {
        logLine(std::string("BrimbleCore: WebP mux failed: ") + error.what());
      } else if (format_ == OutputFormat::apng) {
        logLine(std::string("BrimbleCore: APNG mux failed: ") + error.what());
      }
      throw;
    }
  }

  /// GIF delays are whole centiseconds. Rounding each delay alone lets the animation drift from
  /// the recording (30 fps frames of 3.33 cs become 3 cs: 10% fast); rounding the running end
  /// time instead keeps every frame within 5 ms of when it was captured.
  double gifDelayOnTimeline(double delay) {
    const double start = elapsed_;
    elapsed_ += delay > 0 && std::isfinite(delay) ? delay : 0;
    return (std::round(elapsed_ * 100) - std::round(start * 100)) / 100;
  }

  OutputFormat format_;
  std::unique_ptr<AnimationMuxer> muxer_;
  EncodeSummary summary_;
  double elapsed_ = 0;  // seconds of animation written so far
};

void reportProgress(const EncodeProgress& progress, RenderPhase phase, int done, int total) {
  if (progress) {
    progress(phase, done, total);
  }
}

unsigned decodeThreadCount(const EncoderTuning& tuning) {
  return tuning.decodeThreads > 0 ? tuning.decodeThreads : workerCount();
}

/// One frame of a store, decoded: `image` is compared for deduplication and scene changes,
/// `written` is what goes to the writer (after the transform).
struct DecodedFrame {
  std::optional<Image> image;
  Image written;
};

/// Frames decoded (and transformed) ahead of the writer on worker threads.
class StoreReader {
 public:
  /// `prepare(image, position)` turns the decoded frame at `position` among `indices` into what
  /// is written; none writes the decoded frame. Without `keepDecoded`, `image` is emptied once
  /// prepared (it still tells whether decoding succeeded), so frames waiting in the window hold
  /// only what will be written.
  StoreReader(const FrameSupplier& frameAt, std::vector<int> indices,
              std::function<Image(const Image&, std::size_t)> prepare, unsigned threads,
              bool keepDecoded = true)
      : indices_(std::move(indices)),
        prefetcher_(
            indices_.size(),
            [this, &frameAt, prepare = std::move(prepare), keepDecoded](std::size_t i) {
              DecodedFrame frame;
              frame.image = frameAt(indices_[i]);
              if (frame.image) {
                frame.written = prepare ? prepare(*frame.image, i) : *frame.image;
                if (!keepDecoded) {
                  frame.image = Image();
                }
              }
              return frame;
            },
            threads, 2 * static_cast<std::size_t>(threads)) {}

  std::optional<DecodedFrame> next() { return prefetcher_.next(); }

 private:
  const std::vector<int> indices_;
  OrderedPrefetcher<DecodedFrame> prefetcher_;  // last: its workers read the fields above
};

std::vector<int> allIndices(int count) {
  std::vector<int> indices(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    indices[static_cast<std::size_t>(i)] = i;
  }
  return indices;
}

/// A frame kept from the sequence and how long it shows.
struct KeepEntry {
  int dataIndex = 0;
  double delay = 0;
};

/// Which frames of a sequence are kept, and where scenes start among them.
struct SequencePlan {
  std::vector<KeepEntry> kept;
  std::vector<std::size_t> sceneStarts;
};

/// Writes a frame sequence: decoding runs ahead on worker threads while this thread
/// deduplicates, diffs and writes.
struct SequenceEncoder {
  int count;
  const FrameSupplier& frameAt;
  double nominalDelay;
  int loopCount;
  bool frameDiffing;
  bool deduplicate;
  OutputFormat format;
  const EncodeProgress& progress;
  const FrameTransform& transform;
  float webpQuality;
  const std::stop_token& stop;
  const EncoderTuning& tuning;
  unsigned threads;

  using SinkFactory = std::function<std::unique_ptr<FileByteSink>()>;

  bool repeats(const Image& kept, const Image& next) const {
    return GIFEncoder::framesRepeat(kept, next, tuning.dedupRule);
  }

  Image prepared(const Image& image) const { return transform ? transform(image) : image; }

  /// One pass: each kept frame is written as soon as the next kept frame ends its delay.
  EncodeSummary writeAsFound(const SinkFactory& sink) const {
    std::optional<Writer> writer;
    std::optional<Image> comparison;  // the last kept frame, as decoded
    std::optional<Image> pending;     // the last kept frame, as written
    double pendingDelay = 0;
    const auto flush = [&] {
      if (pending) {
        if (!writer) {
          writer.emplace(format, sink(), loopCount, frameDiffing && format == OutputFormat::gif,
                         webpQuality, tuning.webpLossless);
        }
        writer->append(*pending, pendingDelay);
        pending.reset();
      }
    };
    {
      std::function<Image(const Image&, std::size_t)> prepare;
      if (transform) {
        prepare = [this](const Image& image, std::size_t) { return prepared(image); };
      }
      StoreReader reader(frameAt, allIndices(count), prepare, threads);
      for (int i = 0; i < count; ++i) {
        checkCancellation(stop);
        DecodedFrame frame = *reader.next();
        if (frame.image) {
          if (deduplicate && comparison && repeats(*comparison, *frame.image)) {
            pendingDelay += nominalDelay;
          } else {
            flush();
            pending = std::move(frame.written);
            pendingDelay = nominalDelay;
            comparison = std::move(frame.image);
          }
        }
        reportProgress(progress, RenderPhase::encode, i + 1, count);
      }
    }
    flush();
    if (!writer) {
      return {};  // nothing could be decoded: nothing to write
    }
    checkCancellation(stop);
    writer->finish();
    return writer->summary();
  }

  /// The first of two passes: which frames to keep, and where scenes start.
  SequencePlan plan() const {
    SequencePlan result;
    std::optional<Image> comparison;
    StoreReader reader(frameAt, allIndices(count), nullptr, threads);
    for (int i = 0; i < count; ++i) {
      checkCancellation(stop);
      DecodedFrame frame = *reader.next();
      if (frame.image) {
        if (deduplicate && comparison && repeats(*comparison, *frame.image)) {
          result.kept.back().delay += nominalDelay;
        } else {
          if (!comparison || ColorPaletteOptimizer::isSceneChange(*comparison, *frame.image)) {
            result.sceneStarts.push_back(result.kept.size());
          }
          result.kept.push_back({i, nominalDelay});
          comparison = std::move(frame.image);
        }
      }
      reportProgress(progress, RenderPhase::palette, i + 1, count);
    }
    if (tuning.paletteStrategy == PaletteStrategy::global && !result.kept.empty()) {
      result.sceneStarts = {0};
    }
    return result;
  }

  /// The palette the kept frames `begin..<end` share, or none where they look better with a
  /// palette each. With diffing one entry stays free for transparency.
  std::optional<std::vector<RGBColor>> scenePalette(const std::vector<KeepEntry>& kept,
                                                    std::size_t begin, std::size_t end) const {
    const auto frame = [&](std::size_t i) {
      auto image = frameAt(kept[begin + i].dataIndex);
      return image ? prepared(*image) : Image();
    };
    const bool automatic = tuning.paletteStrategy == PaletteStrategy::automatic;
    if (tuning.paletteBuilder == PaletteBuilder::medianCut) {
      return ColorPaletteOptimizer::sharedPalette(end - begin, frame, automatic);
    }
    // One sampled frame at a time: twenty full frames at once would dominate peak memory.
    HistogramQuantizer::ColorHistogram histogram;
    for (const std::size_t i : ColorPaletteOptimizer::sampledFrames(end - begin)) {
      histogram.add(frame(i));
    }
    auto palette = histogram.palette(frameDiffing ? 255 : 256, kVisuallyLosslessError);
    if (palette.colors.empty() ||
        (automatic && palette.meanSquaredError > kSharedPaletteMaximumError)) {
      return std::nullopt;
    }
    return std::move(palette.colors);
  }

  /// Two passes: plan, pick a palette per scene, then write every kept frame quantized to its
  /// scene's palette. With diffing, unchanged palette indices become transparent, and frames on
  /// the shared palette refer to the global colour table instead of repeating it.
  EncodeSummary writeWithSharedPalettes(const SinkFactory& sink) const {
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
    Writer writer(format, sink(), loopCount, false, webpQuality, tuning.webpLossless,
                  /*reuseGlobalTable=*/true);
    StoreReader reader(
        frameAt, keptIndices,
        [&](const Image& image, std::size_t position) {
          Image frame = prepared(image);
          const auto& palette = palettes[sceneOf[position]];
          if (!palette) {
            return frame;
          }
          auto quantized = MedianCutQuantizer::quantize(frame, *palette);
          if (!quantized || !frameDiffing) {
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
        threads, /*keepDecoded=*/false);
    Image previous;  // the last frame written, in full
    for (std::size_t position = 0; position < kept.size(); ++position) {
      checkCancellation(stop);
      Image frame = std::move(reader.next()->written);
      writer.append(frameDiffing ? difference(frame, previous) : frame, kept[position].delay);
      previous = std::move(frame);
      reportProgress(progress, RenderPhase::encode, static_cast<int>(position + 1),
                     static_cast<int>(kept.size()));
    }
    checkCancellation(stop);
    writer.finish();
    return writer.summary();
  }

  /// `current` reduced to what changed since `previous`: by palette index when both use the same
  /// palette with a transparent entry, else by colour.
  static Image difference(const Image& current, const Image& previous) {
    if (previous.empty() || previous.width() != current.width() ||
        previous.height() != current.height()) {
      return current;
    }
    const auto palette = current.palette();
    const auto previousPalette = previous.palette();
    const auto transparent = current.transparentIndex();
    if (transparent && current.format() == PixelFormat::indexed8 &&
        previous.format() == PixelFormat::indexed8 && previous.transparentIndex() == transparent &&
        std::equal(palette.begin(), palette.end(), previousPalette.begin(),
                   previousPalette.end())) {
      PixelBuffer indices(current.bytes().size());
      const auto now = current.bytes();
      const auto before = previous.bytes();
      for (std::size_t i = 0; i < indices.size(); ++i) {
        indices[i] = now[i] == before[i] ? *transparent : now[i];
      }
      return Image::indexed8(current.width(), current.height(), std::move(indices),
                             std::vector<RGBColor>(palette.begin(), palette.end()), transparent);
    }
    return GIFEncoder::createDiffFrame(current, previous, 0).value_or(current);
  }
};

}  // namespace

EncodeSummary GIFEncoder::encode(std::span<const ProcessedFrame> frames, int loopCount,
                                 PaletteStrategy paletteStrategy, bool frameDiffing,
                                 OutputFormat format, const std::filesystem::path& url,
                                 const EncodeProgress& progress, const std::stop_token& stop) {
  if (frames.empty()) {
    return {};
  }
  if (format == OutputFormat::mp4) {
    throw MuxError::unexpectedLayout("mp4 has no animation muxer");
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
  OutputFile output(url);
  EncodeSummary summary;
  {
    Writer writer(format, output.createSink(), loopCount,
                  frameDiffing && format == OutputFormat::gif, kDefaultWebPQuality, false);
    const int total = static_cast<int>(toWrite.size());
    for (int i = 0; i < total; ++i) {
      checkCancellation(stop);
      writer.append(toWrite[static_cast<std::size_t>(i)].image,
                    toWrite[static_cast<std::size_t>(i)].delay);
      reportProgress(progress, RenderPhase::encode, i + 1, total);
    }
    checkCancellation(stop);
    writer.finish();
    summary = writer.summary();
  }
  output.commit();
  return summary;
}

EncodeSummary GIFEncoder::encodeCompressed(const CompressedFrameStore& frameStore, int fps,
                                           int loopCount, bool frameDiffing, bool deduplicate,
                                           OutputFormat format, const std::filesystem::path& url,
                                           const EncodeProgress& progress,
                                           const FrameTransform& transform, float webpQuality,
                                           const std::stop_token& stop,
                                           const EncoderTuning& tuning) {
  const FrameSupplier decode = [&frameStore](int index) {
    return decodeImage(frameStore.data(index));
  };
  return encodeSequence(frameStore.count(), decode, fps, loopCount, frameDiffing, deduplicate,
                        format, url, progress, transform, webpQuality, stop, tuning);
}

EncodeSummary GIFEncoder::encodeSequence(int count, const FrameSupplier& frameAt, int fps,
                                         int loopCount, bool frameDiffing, bool deduplicate,
                                         OutputFormat format, const std::filesystem::path& url,
                                         const EncodeProgress& progress,
                                         const FrameTransform& transform, float webpQuality,
                                         const std::stop_token& stop, const EncoderTuning& tuning) {
  if (count == 0) {
    return {};
  }
  if (format == OutputFormat::mp4) {
    throw MuxError::unexpectedLayout("mp4 has no animation muxer");
  }
  SequenceEncoder encoder{count,
                          frameAt,
                          1.0 / std::max(fps, 1),
                          loopCount,
                          frameDiffing,
                          deduplicate,
                          format,
                          progress,
                          transform,
                          webpQuality,
                          stop,
                          tuning,
                          decodeThreadCount(tuning)};
  OutputFile output(url);
  const auto sink = [&output] { return output.createSink(); };
  const bool sharedPalettes =
      format == OutputFormat::gif && tuning.paletteStrategy != PaletteStrategy::perFrame;
  const EncodeSummary summary =
      sharedPalettes ? encoder.writeWithSharedPalettes(sink) : encoder.writeAsFound(sink);
  if (summary.frames > 0) {
    output.commit();
  }
  return summary;
}

std::optional<Image> GIFEncoder::createDiffFrame(const Image& current, const Image& previous,
                                                 int tolerance) {
  if (current.width() != previous.width() || current.height() != previous.height()) {
    return std::nullopt;
  }
  const Image now = current.toBGRA8();
  const Image before = previous.toBGRA8();
  const auto width = static_cast<std::size_t>(now.width());
  PixelBuffer bytes(width * 4 * static_cast<std::size_t>(now.height()));
  std::uint8_t* out = bytes.data();
  for (int y = 0; y < now.height(); ++y, out += 4 * width) {
    const std::uint8_t* a = now.row(y).data();
    const std::uint8_t* b = before.row(y).data();
    if (tolerance == 0) {
      // Screens change in a few places: most rows are identical and stay transparent.
      if (std::memcmp(a, b, 4 * width) == 0) {
        std::memset(out, 0, 4 * width);
        continue;
      }
      // Whole-pixel compares without branches, which the compiler turns into vector code.
      for (std::size_t x = 0; x < width; ++x) {
        std::uint32_t p;
        std::uint32_t q;
        std::memcpy(&p, a + 4 * x, 4);
        std::memcpy(&q, b + 4 * x, 4);
        const std::uint32_t pixel = ((p ^ q) & kColorMask) != 0 ? (p | kOpaque) : 0;
        std::memcpy(out + 4 * x, &pixel, 4);
      }
      continue;
    }
    for (std::size_t x = 0; x < width; ++x) {
      const std::uint8_t* p = a + 4 * x;
      const std::uint8_t* q = b + 4 * x;
      if (std::abs(p[0] - q[0]) > tolerance || std::abs(p[1] - q[1]) > tolerance ||
          std::abs(p[2] - q[2]) > tolerance) {
        std::memcpy(out + 4 * x, p, 3);
        out[4 * x + 3] = 0xFF;
      } else {
        std::memset(out + 4 * x, 0, 4);
      }
    }
  }
  return Image::bgra8(now.width(), now.height(), std::move(bytes));
}

bool GIFEncoder::framesRepeat(const Image& kept, const Image& next, DedupRule rule) {
  return rule == DedupRule::sampled ? compressedFramesAreSimilar(kept, next)
                                    : framesMatchEveryPixel(kept, next, kEveryPixelTolerance);
}

bool GIFEncoder::framesMatchEveryPixel(const Image& a, const Image& b, int tolerance) {
  if (a.width() != b.width() || a.height() != b.height()) {
    return false;
  }
  const Image left = a.toBGRA8();
  const Image right = b.toBGRA8();
  for (int y = 0; y < left.height(); ++y) {
    const auto p = left.row(y);
    const auto q = right.row(y);
    if (std::memcmp(p.data(), q.data(), p.size()) == 0) {
      continue;
    }
    // Branch-free per row so the compiler vectorises it.
    int worst = 0;
    for (std::size_t i = 0; i < p.size(); ++i) {
      const int difference = std::abs(p[i] - q[i]) & ((i & 3) == 3 ? 0 : 0xFF);
      worst = std::max(worst, difference);
    }
    if (worst > tolerance) {
      return false;
    }
  }
  return true;
}

bool GIFEncoder::compressedFramesAreSimilar(const Image& a, const Image& b) {
  if (a.width() != b.width() || a.height() != b.height()) {
    return false;
  }
  const auto first = a.bytes();
  const auto second = b.bytes();
  if (first.empty() || second.empty() || a.bitsPerPixel() < 24 || b.bitsPerPixel() < 24) {
    return false;
  }
  const std::size_t pixelCount = static_cast<std::size_t>(a.width()) * a.height();
  const bool small = pixelCount < 100;
  const std::size_t stride = small ? 1 : pixelCount / 100;
  // Up to 5 of about 100 samples may differ; for tiny images the same share, 205/4096.
  const std::size_t allowed = small ? pixelCount * 205 / 4096 : 5;
  return countDifferingSamples(a, b, stride, 10, allowed + 1) <= allowed;
}

}  // namespace brimble
