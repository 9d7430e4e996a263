#include "BrimbleCore/Effects/SegmentRenderer.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "BrimbleCore/Effects/RenderTimeline.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"

namespace brimble::SegmentRenderer {
namespace {

std::optional<Image> decodeFrame(const RecordedSegment& segment, int index) {
  const std::vector<std::uint8_t> data = segment.frames->data(index);
  auto image = decodeImage(data);
  if (image) {
    return image->toBGRA8();
  }
  return std::nullopt;
}

// `image` at `size`, centred on an opaque black canvas of `canvas`.
Image placed(const Image& image, ImageSize size, ImageSize canvas) {
  const Image scaled = ImageScaler::resize(image, size);
  if (size.width == canvas.width && size.height == canvas.height) {
    return scaled;
  }
  const std::size_t stride = static_cast<std::size_t>(canvas.width) * 4;
  PixelBuffer pixels(stride * static_cast<std::size_t>(canvas.height), 0);
  for (std::size_t i = 3; i < pixels.size(); i += 4) {
    pixels[i] = 255;
  }
  const int left = (canvas.width - size.width) / 2;
  const int top = (canvas.height - size.height) / 2;
  for (int y = 0; y < size.height; ++y) {
    const auto row = scaled.row(y);
    std::copy(
        row.begin(), row.end(),
        pixels.begin() + static_cast<std::ptrdiff_t>(static_cast<std::size_t>(top + y) * stride +
                                                     static_cast<std::size_t>(left) * 4));
  }
  return Image::bgra8(canvas.width, canvas.height, std::move(pixels));
}

// A crossfade step: `from` and `to` mixed, `weight` of the way to `to`.
Image blended(const Image& from, const Image& to, double weight) {
  const auto amount = static_cast<unsigned>(std::lround(std::clamp(weight, 0.0, 1.0) * 256));
  PixelBuffer pixels(static_cast<std::size_t>(from.width()) * 4 *
                     static_cast<std::size_t>(from.height()));
  std::size_t out = 0;
  for (int y = 0; y < from.height(); ++y) {
    const auto a = from.row(y);
    const auto b = to.row(y);
    for (std::size_t i = 0; i < a.size(); ++i) {
      pixels[out++] = static_cast<std::uint8_t>((a[i] * (256 - amount) + b[i] * amount + 128) >> 8);
    }
  }
  return Image::bgra8(from.width(), from.height(), std::move(pixels));
}

}  // namespace

EncodeSummary render(std::span<const RecordedSegment> segments, const RenderSettings& settings,
                     const std::filesystem::path& output, const EncodeProgress& progress,
                     const std::stop_token& stop) {
  const std::vector<TimelineFrame> timeline =
      RenderTimeline::build(segments, settings.fps, settings.transition);
  if (timeline.empty()) {
    return {};
  }
  // Each segment's size at the maximum width, read from its first frame; the canvas holds the
  // largest of them. Odd sizes are kept even, as every writer prefers.
  std::vector<ImageSize> sizes(segments.size());
  ImageSize canvas;
  for (std::size_t i = 0; i < segments.size(); ++i) {
    if (!segments[i].frames || segments[i].frames->count() == 0) {
      continue;
    }
    const auto first = decodeFrame(segments[i], 0);
    if (!first) {
      continue;
    }
    sizes[i] = ImageScaler::scaledSize(first->width(), first->height(), settings.maxWidth);
    canvas.width = std::max(canvas.width, sizes[i].width);
    canvas.height = std::max(canvas.height, sizes[i].height);
  }
  const auto frameOf = [&](int segment, int index) -> std::optional<Image> {
    const auto i = static_cast<std::size_t>(segment);
    if (sizes[i].width == 0) {
      return std::nullopt;
    }
    auto image = decodeFrame(segments[i], index);
    if (!image) {
      return std::nullopt;
    }
    return placed(*image, sizes[i], canvas);
  };
  const FrameSupplier frameAt = [&](int k) -> std::optional<Image> {
    const TimelineFrame& entry = timeline[static_cast<std::size_t>(k)];
    auto image = frameOf(entry.segment, entry.frame);
    if (entry.nextSegment < 0) {
      return image;
    }
    auto next = frameOf(entry.nextSegment, entry.nextFrame);
    if (!image || !next) {
      return image ? image : next;
    }
    return blended(*image, *next, entry.blend);
  };

  SequenceOptions options;
  options.fps = settings.fps;
  options.loopCount = settings.loopCount;
  options.frameDiffing = true;
  options.deduplicate = settings.deduplicate;
  options.format = settings.format;
  options.progress = progress;
  options.webpQuality = settings.webpQuality;
  options.stop = stop;
  options.tuning.paletteStrategy = settings.paletteStrategy;
  // Screen recordings change a few pixels at a time (a typed character): only a comparison of
  // every pixel tells such frames apart, and histogram palettes keep antialiased text faithful.
  options.tuning.dedupRule = DedupRule::everyPixel;
  options.tuning.paletteBuilder = PaletteBuilder::histogram;
  // An output frame that shows the same source frame as the one before it needs no decoding.
  options.repeatsPrevious = [&](int k) {
    return k > 0 &&
           timeline[static_cast<std::size_t>(k)] == timeline[static_cast<std::size_t>(k) - 1];
  };
  return GIFEncoder::encodeSequence(static_cast<int>(timeline.size()), frameAt, output, options);
}

}  // namespace brimble::SegmentRenderer
