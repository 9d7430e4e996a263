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

}  // namespace FrameDeduplicator
}  // namespace brimble
