#pragma once

#include <filesystem>
#include <optional>
#include <span>

#include "BrimbleCore/Effects/FrameCompositor.h"
#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Encoding/AudioTrack.h"

namespace brimble::SegmentSound {

/// The sound of a render, laid on its output timeline: each output frame plays the sound its
/// segment recorded at the time the frame shows (so idle ramps and cuts stay in step with the
/// picture), and title cards and segments without sound are silent. Written to `file`, which
/// the caller owns. No value when no segment has sound. Throws std::system_error naming a file
/// that cannot be read or written. An output played `speed` times as fast plays `speed` frame
/// times of sound in each frame's time, higher or lower as a tape played faster or slower.
std::optional<AudioTrack> compose(const FrameCompositor& compositor,
                                  std::span<const RenderSegment> segments, int fps,
                                  const std::filesystem::path& file, double speed = 1);

}  // namespace brimble::SegmentSound
