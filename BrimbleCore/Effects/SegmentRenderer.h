#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <vector>

#include "BrimbleCore/Effects/OutputClock.h"
#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Effects/RenderSettings.h"
#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/OutputFormat.h"

namespace brimble {

/// The render path: recorded segments in, one animation file out. The segments play one after
/// another at the settings' frame rate, each crossfading into the next over the `transition`,
/// between the title cards, scaled to the maximum width and centred on one canvas as large as
/// the largest of them, with the effects the settings and the segments' annotations ask for
/// (FrameCompositor), and stream into the encoder. Frames are decoded when they are needed and
/// repeats are neither decoded nor drawn again, so memory stays small whatever the recordings'
/// length.
namespace SegmentRenderer {

/// One file (or folder) a render writes.
struct RenderOutput {
  std::filesystem::path path;
  /// The animation or video format; no value for a folder of PNG frames ("frame-00001.png",
  /// ..., one for each frame 1/fps apart).
  std::optional<OutputFormat> format;
};

/// Writes `segments` to `output` (through an AtomicFile: on failure or cancellation nothing is
/// left). Segments without frames are left out; with none left nothing is written and the
/// summary counts 0 frames. Throws EffectsError for settings it cannot use (a colour that is
/// none) and what the encoder throws (MuxError, file errors, CancellationError once `stop` is
/// requested). When `outputClock` is given, it is set to where the segments' moments show in
/// the output, before the encode starts.
EncodeSummary render(std::span<const RenderSegment> segments, const RenderSettings& settings,
                     const std::filesystem::path& output, const EncodeProgress& progress = {},
                     const std::stop_token& stop = {}, OutputClock* outputClock = nullptr);

/// Lays out `segments` once and writes each of `outputs` from that one render, in order, each as
/// `render` writes its file (the settings' format is each output's own). A frame folder is made
/// if it is missing (its parent must exist); frames an earlier render left there beyond this
/// one's are removed, and a folder holding anything else is refused (EffectsError), since its
/// files are not ours to replace. Returns one summary per output, and sets `outputClock` as `render` does. Throws as `render` does;
/// outputs written before a failure stay written.
std::vector<EncodeSummary> renderEach(std::span<const RenderSegment> segments,
                                      const RenderSettings& settings,
                                      std::span<const RenderOutput> outputs,
                                      const EncodeProgress& progress = {},
                                      const std::stop_token& stop = {},
                                      OutputClock* outputClock = nullptr);

/// The last frame `render` writes for the same segments and settings, drawn as it is drawn
/// there; no value when there is none.
std::optional<Image> lastFrame(std::span<const RenderSegment> segments,
                               const RenderSettings& settings);

}  // namespace SegmentRenderer
}  // namespace brimble
