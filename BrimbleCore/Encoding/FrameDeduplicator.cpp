#include "BrimbleCore/Encoding/FrameDeduplicator.h"

#include "BrimbleCore/Encoding/FrameComparison.h"

namespace brimble::FrameDeduplicator {

std::vector<ProcessedFrame> process(std::span<const TimestampedFrame> frames, int fps) {
  std::vector<ProcessedFrame> result;
  if (frames.empty()) {
    return result;
  }
  if (frames.size() == 1) {
    const double fallback = fps > 0 ? 1.0 / fps : 0;
    result.push_back(
        {frames[0].image, frames[0].duration.value_or(fallback), frames[0].sourceTimestamp});
    return result;
  }
  const TimestampedFrame* kept = &frames[0];
  double keptDelay = frames[1].timestamp - frames[0].timestamp;
  for (std::size_t i = 1; i < frames.size(); ++i) {
    const double delay = i + 1 < frames.size() ? frames[i + 1].timestamp - frames[i].timestamp
                                               : frames[i].timestamp - frames[i - 1].timestamp;
    if (FrameComparison::compressedFramesAreSimilar(kept->image, frames[i].image)) {
      keptDelay += delay;
      continue;
    }
    result.push_back({kept->image, keptDelay, kept->sourceTimestamp});
    kept = &frames[i];
    keptDelay = delay;
  }
  result.push_back({kept->image, keptDelay, kept->sourceTimestamp});
  return result;
}

std::vector<ProcessedFrame> merge(std::span<const ProcessedFrame> frames, DedupRule rule) {
  std::vector<ProcessedFrame> result;
  for (const ProcessedFrame& frame : frames) {
    if (!result.empty() && FrameComparison::framesRepeat(result.back().image, frame.image, rule)) {
      result.back().delay += frame.delay;
    } else {
      result.push_back(frame);
    }
  }
  return result;
}

std::vector<ProcessedFrame> mergeShortFrames(std::span<const ProcessedFrame> frames,
                                             double minimumDelay) {
  // Delays summed from fractions (a tenth of 10 cs) land a rounding error short of the minimum.
  const double shortOf = minimumDelay - 1e-9;
  std::vector<ProcessedFrame> result;
  for (const ProcessedFrame& frame : frames) {
    if (!result.empty() && result.back().delay < shortOf) {
      result.back().delay += frame.delay;
    } else {
      result.push_back(frame);
    }
  }
  if (result.size() > 1 && result.back().delay < shortOf) {
    ProcessedFrame last = std::move(result.back());
    result.pop_back();
    result.back().image = std::move(last.image);
    result.back().delay += last.delay;
    result.back().sourceTimestamp = last.sourceTimestamp;
  }
  return result;
}

}  // namespace brimble::FrameDeduplicator
