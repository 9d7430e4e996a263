// Any bytes at all, read the way `brimble process` reads a GIF: one frame at a time through the
// edit chain (repeats merged, pauses faded out, frames scaled down). Every frame that comes out
// is at most the canvas wide (and at most the width asked for), and shows for a finite, not
// negative time; or ImageCodecError or ClipEditError says why the file cannot be processed. It
// never reads out of bounds, hangs, or holds more than a few canvases (the fuzzer's memory limit
// stands for that bound).

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

#include "BrimbleCore/Effects/IdleTrimmer.h"
#include "BrimbleCore/Encoding/ClipEditor.h"
#include "BrimbleCore/Encoding/GIFDecoder.h"
#include "BrimbleCore/Encoding/ImageCodec.h"

namespace {

constexpr int kMaxWidth = 64;
// Scaling costs time in proportion to a canvas's pixels, tens of seconds for the largest ones
// under the fuzzer's instrumentation: inputs past this many pixels only slow the search down.
constexpr std::int64_t kMaxCanvasPixels = std::int64_t{1} << 22;
constexpr double kPause = 0.05;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    auto decoder = std::make_unique<brimble::GIFDecoder>(
        std::vector<std::uint8_t>(data, data + size), "fuzz.gif");
    const brimble::ImageSize canvas = decoder->size();
    if (static_cast<std::int64_t>(canvas.width) * canvas.height > kMaxCanvasPixels) {
      return 0;
    }
    brimble::ClipEdit edit;
    edit.deduplicate = true;
    edit.maxWidth = kMaxWidth;
    edit.idle = [](std::span<const brimble::ProcessedFrame> frames) {
      return brimble::IdleTrimmer::apply(frames, brimble::IdleStrategy::fade, kPause);
    };
    edit.idleThreshold = kPause;
    const auto stream = brimble::ClipEditor::stream(std::move(decoder), edit);
    while (const auto frame = stream->next()) {
      if (frame->image.width() > std::min(canvas.width, kMaxWidth) ||
          !std::isfinite(frame->delay) || frame->delay < 0) {
        std::abort();
      }
    }
  } catch (const brimble::ImageCodecError&) {
  } catch (const brimble::ClipEditError&) {
  }
  return 0;
}
