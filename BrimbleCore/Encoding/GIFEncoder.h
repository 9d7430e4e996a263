#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <stop_token>

#include "BrimbleCore/Encoding/CompressedFrameStore.h"
#include "BrimbleCore/Encoding/Frame.h"
#include "BrimbleCore/Encoding/Image.h"
#include "BrimbleCore/Encoding/OutputFormat.h"
#include "BrimbleCore/Encoding/PaletteStrategy.h"

namespace brimble {

/// The phases progress is reported for.
enum class RenderPhase { palette, encode };

/// Progress of an encode: items done of a total within a phase. May be called from worker
/// threads.
using EncodeProgress = std::function<void(RenderPhase phase, int done, int total)>;

/// Applied to every frame just before it is written, e.g. scaling to a maximum width. Called
/// from worker threads, possibly several at once.
using FrameTransform = std::function<Image(const Image&)>;

/// What an encode wrote.
struct EncodeSummary {
  int frames = 0;  // frames in the file; 0 when nothing was written
  int width = 0;
  int height = 0;
};

/// Frame `index` of a sequence, decoded; no value for a frame that cannot be decoded. Called from
/// worker threads, possibly several at once, and more than once for some frames.
using FrameSupplier = std::function<std::optional<Image>(int index)>;

/// How deduplication decides that a frame repeats the last kept one.
enum class DedupRule {
  /// About 100 sampled pixels, up to 5 of them changed (`compressedFramesAreSimilar`): cheap and
  /// tolerant, but blind to small changes such as a typed character.
  sampled,
  /// Every pixel, each within 10 per channel (`framesMatchEveryPixel`): JPEG noise repeats, any
  /// visible change does not.
  everyPixel,
};

/// How shared palettes are built.
enum class PaletteBuilder {
  /// Median cut over 500 colours sampled from each of up to 20 frames; a scene shares a palette
  /// when those samples hold at most 512 distinct colours.
  medianCut,
  /// A colour histogram of every pixel of up to 20 frames, split by variance and refined; a
  /// scene shares a palette when it stays within about 40 dB PSNR of full colour.
  histogram,
};

/// Choices beyond the designed defaults.
struct EncoderTuning {
  PaletteBuilder paletteBuilder = PaletteBuilder::medianCut;
  DedupRule dedupRule = DedupRule::sampled;
  /// Palettes for GIF frames written from a sequence; the designed behaviour gives every frame
  /// its own. With diffing and a shared palette, frames are diffed by palette index.
  PaletteStrategy paletteStrategy = PaletteStrategy::perFrame;
  /// Lossless WebP frames (the quality then sets the compression effort).
  bool webpLossless = false;
  /// Threads that decode and transform frames ahead of the writer; 0 means one per core.
  unsigned decodeThreads = 0;
};

/// Turns a recording into an animation file (GIF, WebP or APNG). Output is written beside the
/// destination and renamed over it when complete: after a failure or a cancellation nothing is
/// left and an existing file at the destination is untouched.
class GIFEncoder {
 public:
  /// Writes `frames` with their delays. GIF without diffing applies `paletteStrategy` first;
  /// with diffing each frame keeps full colour and frames after the first carry only what
  /// changed. WebP frames are lossy at quality 75. Nothing is written for no frames. Throws
  /// MuxError (also "mp4 has no animation muxer"), file errors, and CancellationError when
  /// `stop` is requested.
  static EncodeSummary encode(std::span<const ProcessedFrame> frames, int loopCount,
                              PaletteStrategy paletteStrategy, bool frameDiffing,
                              OutputFormat format, const std::filesystem::path& url,
                              const EncodeProgress& progress = {},
                              const std::stop_token& stop = {});

  /// Writes the JPEG (or PNG) frames of `frameStore`, each nominally 1/`fps` long. With
  /// `deduplicate`, frames similar to the last kept frame only lengthen its delay. Frames that
  /// cannot be decoded are skipped. Decoding runs ahead on worker threads; at most a few decoded
  /// frames are alive at any time, whatever the recording's length.
  static EncodeSummary encodeCompressed(const CompressedFrameStore& frameStore, int fps,
                                        int loopCount, bool frameDiffing, bool deduplicate,
                                        OutputFormat format, const std::filesystem::path& url,
                                        const EncodeProgress& progress = {},
                                        const FrameTransform& transform = {},
                                        float webpQuality = 75, const std::stop_token& stop = {},
                                        const EncoderTuning& tuning = {});

  /// `encodeCompressed` for any sequence of `count` frames that can be produced by index: a
  /// recording's frame store, image files, generated frames.
  static EncodeSummary encodeSequence(int count, const FrameSupplier& frameAt, int fps,
                                      int loopCount, bool frameDiffing, bool deduplicate,
                                      OutputFormat format, const std::filesystem::path& url,
                                      const EncodeProgress& progress = {},
                                      const FrameTransform& transform = {}, float webpQuality = 75,
                                      const std::stop_token& stop = {},
                                      const EncoderTuning& tuning = {});

  /// The pixels of `current` that changed since `previous`: a bgra8 image of the same size in
  /// which every pixel whose blue, green and red each differ by at most `tolerance` is fully
  /// transparent (all four bytes 0) and every other pixel is the current colour, opaque. No
  /// value when the sizes differ.
  static std::optional<Image> createDiffFrame(const Image& current, const Image& previous,
                                              int tolerance);

  /// Whether two frames look the same despite JPEG noise: about 100 sampled pixels, each allowed
  /// to differ by 10 per channel, and at most 5 of them beyond that.
  static bool compressedFramesAreSimilar(const Image& a, const Image& b);

  /// Whether `next` repeats `kept` by `rule`.
  static bool framesRepeat(const Image& kept, const Image& next, DedupRule rule);

  /// Whether every pixel of `a` is within `tolerance` per channel of the same pixel of `b`
  /// (alpha ignored). Images of different sizes never match.
  static bool framesMatchEveryPixel(const Image& a, const Image& b, int tolerance);
};

}  // namespace brimble
