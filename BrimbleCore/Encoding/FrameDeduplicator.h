#pragma once

#include <span>
#include <vector>

#include "BrimbleCore/Encoding/Frame.h"
#include "BrimbleCore/Encoding/FrameComparison.h"

namespace brimble {

/// Merges runs of near-identical captured frames into one frame shown for their combined time,
/// before effects run. Pure; safe from any thread.
namespace FrameDeduplicator {

/// Each kept frame's delay covers every similar frame after it (compared with the kept frame,
/// not the one before, so a slow fade is cut where it has drifted far enough). Delays come from
/// the gaps between timestamps; the last frame repeats the last gap; a single frame shows for its
/// `duration`, or 1/`fps`.
std::vector<ProcessedFrame> process(std::span<const TimestampedFrame> frames, int fps);

/// The same merging for frames that already carry delays (a decoded GIF): each kept frame's delay
/// grows by the delays of the frames after it that repeat it by `rule`.
std::vector<ProcessedFrame> merge(std::span<const ProcessedFrame> frames,
                                  DedupRule rule = DedupRule::everyPixel);

/// Browsers show a GIF frame of 0 or 1 centisecond for 10: the shortest delay that plays as
/// written.
constexpr double kShortestGIFDelay = 0.02;

/// Frames merged so that each shows for at least `minimumDelay`: a shorter frame takes in the
/// frames after it (their images are dropped) until its delay reaches the minimum. The total
/// time is unchanged. A short remainder at the end joins the frame before it, which then shows
/// the last image.
std::vector<ProcessedFrame> mergeShortFrames(std::span<const ProcessedFrame> frames,
                                             double minimumDelay);

}  // namespace FrameDeduplicator
}  // namespace brimble
