#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "BrimbleCore/Encoding/Image.h"
#include "BrimbleCore/Support/OrderedPrefetcher.h"

namespace brimble {

/// Frame `index` of a sequence, decoded; no value for a frame that cannot be decoded. Called from
/// worker threads, possibly several at once, and more than once for some frames.
using FrameSupplier = std::function<std::optional<Image>(int index)>;

/// One frame of a sequence, decoded: `image` is compared for deduplication and scene changes,
/// `written` is what goes to the writer.
struct DecodedFrame {
  std::optional<Image> image;
  Image written;
  /// Known to repeat the frame before it without being decoded; `image` is then empty.
  bool repeat = false;
};

/// Whether frame `index` is known, without decoding, to be the frame before it once more (for
/// instance byte-identical compressed data). Called from worker threads.
using RepeatCheck = std::function<bool(int index)>;

/// Frames of a sequence decoded (and prepared for writing) ahead of the consumer on worker
/// threads, handed out in order. At most two frames per thread wait, however long the sequence.
/// The consumer is one thread.
class FramePrefetch {
 public:
  /// `prepare(image, position)` turns the decoded frame at `position` among `indices` into what
  /// is written; none writes the decoded frame. Without `keepDecoded`, `image` is emptied once
  /// prepared (it still tells whether decoding succeeded), so waiting frames hold only what will
  /// be written. Consecutive frames that `repeats` reports are not decoded at all. `frameAt`
  /// must outlive this object.
  FramePrefetch(const FrameSupplier& frameAt, std::vector<int> indices,
                std::function<Image(const Image&, std::size_t)> prepare, unsigned threads,
                bool keepDecoded = true, RepeatCheck repeats = {});

  /// The next frame; no value after the last. Rethrows what `frameAt` or `prepare` threw.
  std::optional<DecodedFrame> next() { return prefetcher_.next(); }

 private:
  const std::vector<int> indices_;
  OrderedPrefetcher<DecodedFrame> prefetcher_;  // last: its workers read the fields above
};

}  // namespace brimble
