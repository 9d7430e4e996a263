#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "BrimbleCore/Encoding/ClipEncoder.h"

namespace brimble {

/// How much one pass of a size-budget encode takes away from the clip.
struct SizeReduction {
  /// Significant bits kept of each colour channel (8: all colours).
  int colourBits = 8;
  /// Frames are scaled to this fraction of their width (1: as recorded).
  double widthScale = 1;
  /// Only every `frameStep`-th frame is kept, each shown that much longer (1: all frames).
  int frameStep = 1;
};

/// Encodes a sequence so that its file fits a size budget: when the file comes out too large it
/// is written again with fewer colours, then a smaller width, then fewer frames, until it fits or
/// the passes run out. One thread at a time.
class SizeBudgetEncoder {
 public:
  struct Result {
    EncodeSummary summary;
    /// Passes written, 1 when the first fit (or there was no budget).
    int passes = 1;
    std::uintmax_t fileSize = 0;
    /// False when even the last pass was over budget; its file is kept.
    bool fits = true;
  };

  /// Called as each pass begins, with its number (from 1).
  using PassStarted = std::function<void(int pass)>;

  /// The reduction of pass `pass` (1 = none), for passes 1 to kMaxPasses.
  static SizeReduction reductionForPass(int pass);
  static constexpr int kMaxPasses = 6;

  /// Writes `count` frames from `frameAt` to `output` with `options`; with `budgetBytes` above
  /// 0, rewrites with stronger reductions while the file is larger. Throws what ClipEncoder
  /// throws (CancellationError when `options.stop` is requested between or during passes).
  static Result encode(int count, const FrameSupplier& frameAt, const std::filesystem::path& output,
                       const SequenceOptions& options, std::uint64_t budgetBytes,
                       const PassStarted& passStarted = {});

  /// `image` with each channel cut to `bits` significant bits, rounded to the nearest level, so
  /// that the palette and the LZW codes of a GIF have fewer colours to tell apart.
  static Image reduceColours(const Image& image, int bits);
};

}  // namespace brimble
