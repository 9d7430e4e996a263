// Any bytes at all: GIFDecoder either yields frames of the canvas it announced or throws
// ImageCodecError; it never reads out of bounds, hangs, or allocates for a canvas larger than
// GIFDecoder::kMaximumCanvasPixels (a hostile header claims up to 65535x65535).

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "BrimbleCore/Encoding/GIFDecoder.h"
#include "BrimbleCore/Encoding/ImageCodec.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    brimble::GIFDecoder decoder(std::vector<std::uint8_t>(data, data + size), "fuzz.gif");
    const brimble::ImageSize canvas = decoder.size();
    if (static_cast<std::int64_t>(canvas.width) * canvas.height >
        brimble::GIFDecoder::kMaximumCanvasPixels) {
      std::abort();
    }
    while (const auto frame = decoder.next()) {
      if (frame->image.width() != canvas.width || frame->image.height() != canvas.height ||
          !(frame->delay >= 0)) {
        std::abort();
      }
    }
  } catch (const brimble::ImageCodecError&) {
  }
  return 0;
}
