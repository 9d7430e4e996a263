#include "BrimbleCore/Encoding/RecordingEncoder.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "BrimbleCore/Encoding/ImageCodec.h"

namespace brimble {

int RecordingEncoder::playbackFPS(int frameCount, double recordedSeconds, int promisedFPS) {
  const double rate = frameCount / std::max(recordedSeconds, 1e-3);
  // Clamped before it becomes an int, which no count over no time can overflow then.
  const double highest = static_cast<double>(std::max(1, promisedFPS));
  return static_cast<int>(std::lround(std::clamp(rate, 1.0, highest)));
}

RecordingSequence RecordingEncoder::prepare(std::shared_ptr<const CompressedFrameStore> store,
                                            double recordedSeconds, SequenceOptions options,
                                            RecordingOverlay overlay) {
  RecordingSequence sequence;
  sequence.count = store->count();
  options.fps = playbackFPS(sequence.count, recordedSeconds, options.fps);
  options.video.frameRate = options.fps;
  // Screen recordings change a few pixels at a time (a typed character): only a comparison of
  // every pixel tells such frames apart, and histogram palettes keep antialiased text faithful.
  options.tuning.dedupRule = DedupRule::everyPixel;
  options.tuning.paletteBuilder = PaletteBuilder::histogram;
  options.tuning.paletteStrategy = PaletteStrategy::automatic;
  // A recorder compresses an unchanged picture to the same bytes.
  options.repeatsPrevious = [store, changesAt = std::move(overlay.changesAt)](int index) {
    if (changesAt && changesAt(index)) {
      return false;
    }
    return store->data(index) == store->data(index - 1);
  };
  sequence.frameAt = [store, paint = std::move(overlay.paint)](int index) {
    std::optional<Image> frame = decodeImage(store->data(index));
    if (frame && paint) {
      frame = paint(*frame, index);
    }
    return frame;
  };
  sequence.options = std::move(options);
  return sequence;
}

EncodeSummary RecordingEncoder::encode(std::shared_ptr<const CompressedFrameStore> store,
                                       double recordedSeconds, const std::filesystem::path& output,
                                       SequenceOptions options) {
  const RecordingSequence sequence = prepare(std::move(store), recordedSeconds, std::move(options));
  return ClipEncoder::encodeSequence(sequence.count, sequence.frameAt, output, sequence.options);
}

}  // namespace brimble
