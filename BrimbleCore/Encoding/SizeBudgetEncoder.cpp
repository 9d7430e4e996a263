#include "BrimbleCore/Encoding/SizeBudgetEncoder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <system_error>

#include <fmt/format.h>

#include "BrimbleCore/Encoding/ImageScaler.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {

SizeReduction SizeBudgetEncoder::reductionForPass(int pass) {
  // Colours go first because they cost the least to the eye; width next; frames last, because
  // a choppy animation is what viewers notice most.
  static constexpr std::array<SizeReduction, kMaxPasses> kPasses = {{
      {8, 1.0, 1},
      {5, 1.0, 1},
      {4, 0.75, 1},
      {4, 0.5, 1},
      {4, 0.5, 2},
      {3, 0.35, 3},
  }};
  return kPasses[static_cast<std::size_t>(std::clamp(pass, 1, kMaxPasses) - 1)];
}

Image SizeBudgetEncoder::reduceColours(const Image& image, int bits) {
  if (bits >= 8 || image.empty()) {
    return image;
  }
  const Image source = image.toBGRA8();
  const int levels = (1 << bits) - 1;
  std::array<std::uint8_t, 256> table{};
  for (int value = 0; value < 256; ++value) {
    const int level = static_cast<int>(std::lround(value * levels / 255.0));
    table[static_cast<std::size_t>(value)] =
        static_cast<std::uint8_t>(std::lround(level * 255.0 / levels));
  }
  const int width = source.width();
  PixelBuffer pixels(static_cast<std::size_t>(width) * 4 *
                     static_cast<std::size_t>(source.height()));
  std::size_t out = 0;
  for (int y = 0; y < source.height(); ++y) {
    const auto row = source.row(y);
    for (int x = 0; x < width; ++x) {
      const std::size_t in = static_cast<std::size_t>(x) * 4;
      pixels[out++] = table[row[in]];
      pixels[out++] = table[row[in + 1]];
      pixels[out++] = table[row[in + 2]];
      pixels[out++] = row[in + 3];
    }
  }
  return Image::bgra8(width, source.height(), std::move(pixels));
}

SizeBudgetEncoder::Result SizeBudgetEncoder::encode(int count, const FrameSupplier& frameAt,
                                                    const std::filesystem::path& output,
                                                    const SequenceOptions& options,
                                                    std::uint64_t budgetBytes,
                                                    const PassStarted& passStarted) {
  Result result;
  const int lastPass = budgetBytes > 0 ? kMaxPasses : 1;
  for (int pass = 1; pass <= lastPass; ++pass) {
    if (options.stop.stop_requested()) {
      throw CancellationError();
    }
    if (passStarted) {
      passStarted(pass);
    }
    const SizeReduction reduction = reductionForPass(pass);
    SequenceOptions passOptions = options;
    if (reduction.colourBits < 8 || reduction.widthScale < 1) {
      passOptions.transform = [reduction, base = options.transform](const Image& frame) {
        Image image = base ? base(frame) : frame;
        if (reduction.widthScale < 1) {
          const int width = std::max(2, static_cast<int>(image.width() * reduction.widthScale));
          image = ImageScaler::scaleToMaxWidth(image, width);
        }
        return reduceColours(image, reduction.colourBits);
      };
    }
    const int step = reduction.frameStep;
    const int passCount = (count + step - 1) / step;
    FrameSupplier passFrames = frameAt;
    if (step > 1) {
      passFrames = [&frameAt, step](int index) { return frameAt(index * step); };
      // Frames are shown `step` times longer; fps is whole, so the clip's length can shift by a
      // rounding of the rate, never by a frame's worth per frame.
      passOptions.fps = std::max(1, static_cast<int>(std::lround(options.fps / double(step))));
      passOptions.repeatsPrevious = {};
    }
    result.summary = ClipEncoder::encodeSequence(passCount, passFrames, output, passOptions);
    result.passes = pass;
    std::error_code error;
    result.fileSize = result.summary.frames > 0 ? std::filesystem::file_size(output, error) : 0;
    result.fits = budgetBytes == 0 || result.fileSize <= budgetBytes;
    if (result.fits || result.summary.frames == 0) {
      return result;
    }
  }
  logLine(fmt::format("BrimbleCore: file size {} KB exceeds budget {} KB after {} passes",
                      result.fileSize / 1024, budgetBytes / 1024, result.passes));
  return result;
}

}  // namespace brimble
