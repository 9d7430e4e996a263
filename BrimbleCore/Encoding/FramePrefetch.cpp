#include "BrimbleCore/Encoding/FramePrefetch.h"

namespace brimble {

FramePrefetch::FramePrefetch(const FrameSupplier& frameAt, std::vector<int> indices,
                             std::function<Image(const Image&, std::size_t)> prepare,
                             unsigned threads, bool keepDecoded, RepeatCheck repeats)
    : indices_(std::move(indices)),
      prefetcher_(
          indices_.size(),
          [this, &frameAt, prepare = std::move(prepare), keepDecoded,
           repeats = std::move(repeats)](std::size_t i) {
            DecodedFrame frame;
            if (repeats && i > 0 && indices_[i - 1] + 1 == indices_[i] && repeats(indices_[i])) {
              frame.repeat = true;
              return frame;
            }
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

}  // namespace brimble
