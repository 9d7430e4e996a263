#include "BrimbleCore/Encoding/HistogramQuantizer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace brimble::HistogramQuantizer {
namespace {

// 6 bits per channel keeps neighbouring shades of a gradient apart while the histogram still
// fits in cache-friendly 4 MB; the two dropped bits are summed so bin means stay exact.
constexpr int kBins = 1 << 18;
constexpr int kRefinementPasses = 2;

inline std::uint32_t binOf(const std::uint8_t* pixel) noexcept {
  return (std::uint32_t{pixel[2]} >> 2 << 12) | (std::uint32_t{pixel[1]} >> 2 << 6) |
         (std::uint32_t{pixel[0]} >> 2);
}

struct BinAccumulator {
  std::uint32_t count;
  std::uint32_t lowR, lowG, lowB;  // sums of the two bits the bin number drops
};

/// One occupied histogram bin: its pixel count and mean colour.
struct Entry {
  std::uint32_t bin;
  double weight;
  std::array<double, 3> mean;  // r, g, b
};

struct Box {
  std::size_t begin;
  std::size_t end;
  double error;  // sum of squared distances of the box's pixels to its mean
};

/// Weighted sums over a run of entries, enough to get a mean and a squared error.
struct Moments {
  double weight = 0;
  std::array<double, 3> sum{};
  std::array<double, 3> sumSquares{};

  void add(const Entry& entry) {
    weight += entry.weight;
    for (int c = 0; c < 3; ++c) {
      sum[c] += entry.weight * entry.mean[c];
      sumSquares[c] += entry.weight * entry.mean[c] * entry.mean[c];
    }
  }
  double channelError(int c) const {
    return weight > 0 ? sumSquares[c] - sum[c] * sum[c] / weight : 0;
  }
  double error() const { return channelError(0) + channelError(1) + channelError(2); }
};

Moments momentsOf(const std::vector<Entry>& entries, std::size_t begin, std::size_t end) {
  Moments moments;
  for (std::size_t i = begin; i < end; ++i) {
    moments.add(entries[i]);
  }
  return moments;
}

/// Splits `box` where the two halves have the least total squared error, along the channel with
/// the widest spread. Returns the index where the second half starts.
std::size_t splitPoint(std::vector<Entry>& entries, const Box& box) {
  const Moments whole = momentsOf(entries, box.begin, box.end);
  int axis = 0;
  for (int c = 1; c < 3; ++c) {
    if (whole.channelError(c) > whole.channelError(axis)) {
      axis = c;
    }
  }
  std::sort(entries.begin() + static_cast<std::ptrdiff_t>(box.begin),
            entries.begin() + static_cast<std::ptrdiff_t>(box.end),
            [axis](const Entry& a, const Entry& b) { return a.mean[axis] < b.mean[axis]; });
  Moments left;
  double bestError = std::numeric_limits<double>::infinity();
  std::size_t best = box.begin + 1;
  for (std::size_t i = box.begin; i + 1 < box.end; ++i) {
    left.add(entries[i]);
    Moments right;
    right.weight = whole.weight - left.weight;
    for (int c = 0; c < 3; ++c) {
      right.sum[c] = whole.sum[c] - left.sum[c];
      right.sumSquares[c] = whole.sumSquares[c] - left.sumSquares[c];
    }
    const double error = left.error() + right.error();
    if (error < bestError) {
      bestError = error;
      best = i + 1;
    }
  }
  return best;
}

std::vector<Box> medianCut(std::vector<Entry>& entries, int maxColors) {
  std::vector<Box> boxes{{0, entries.size(), momentsOf(entries, 0, entries.size()).error()}};
  while (static_cast<int>(boxes.size()) < maxColors) {
    std::size_t pick = boxes.size();
    for (std::size_t i = 0; i < boxes.size(); ++i) {
      if (boxes[i].end - boxes[i].begin > 1 &&
          (pick == boxes.size() || boxes[i].error > boxes[pick].error)) {
        pick = i;
      }
    }
    if (pick == boxes.size()) {
      break;  // every box holds a single bin
    }
    const Box box = boxes[pick];
    const std::size_t middle = splitPoint(entries, box);
    boxes[pick] = {box.begin, middle, momentsOf(entries, box.begin, middle).error()};
    boxes.push_back({middle, box.end, momentsOf(entries, middle, box.end).error()});
  }
  return boxes;
}

std::uint8_t nearest(const std::vector<std::array<double, 3>>& palette,
                     const std::array<double, 3>& color) {
  std::size_t best = 0;
  double bestDistance = std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < palette.size(); ++i) {
    const double dr = palette[i][0] - color[0];
    const double dg = palette[i][1] - color[1];
    const double db = palette[i][2] - color[2];
    const double distance = dr * dr + dg * dg + db * db;
    if (distance < bestDistance) {
      bestDistance = distance;
      best = i;
    }
  }
  return static_cast<std::uint8_t>(best);
}

std::uint8_t toChannel(double value) {
  return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

/// Counts the visible pixels of `rect` into the thread's histogram, noting newly used bins.
void accumulate(const Image& image, PixelRect rect, std::vector<BinAccumulator>& histogram,
                std::vector<std::uint32_t>& used) {
  for (int y = rect.top; y < rect.top + rect.height; ++y) {
    const std::uint8_t* pixel = image.row(y).data() + static_cast<std::size_t>(rect.left) * 4;
    for (int x = 0; x < rect.width; ++x, pixel += 4) {
      if (pixel[3] == 0) {
        continue;
      }
      BinAccumulator& bin = histogram[binOf(pixel)];
      if (bin.count++ == 0) {
        used.push_back(binOf(pixel));
      }
      bin.lowR += pixel[2] & 3u;
      bin.lowG += pixel[1] & 3u;
      bin.lowB += pixel[0] & 3u;
    }
  }
}

/// The occupied bins with their mean colours; leaves the histogram clean for the next use.
std::vector<Entry> takeEntries(std::vector<BinAccumulator>& histogram,
                               const std::vector<std::uint32_t>& used) {
  std::vector<Entry> entries;
  entries.reserve(used.size());
  for (const std::uint32_t bin : used) {
    BinAccumulator& accumulator = histogram[bin];
    const double count = accumulator.count;
    entries.push_back({bin,
                       count,
                       {((bin >> 12) << 2) + accumulator.lowR / count,
                        (((bin >> 6) & 63) << 2) + accumulator.lowG / count,
                        ((bin & 63) << 2) + accumulator.lowB / count}});
    accumulator = {};
  }
  return entries;
}

struct Fitted {
  std::vector<std::array<double, 3>> palette;
  std::vector<std::uint8_t> choice;  // palette index of each entry
  double squaredError = 0;           // summed over all pixels and channels
  double weight = 0;                 // pixels
};

/// Median cut, then k-means passes that move each palette colour to the mean of the pixels that
/// chose it, which recovers the accents median cut averages away (a red cursor over a grey
/// page).
Fitted fit(std::vector<Entry>& entries, int maxColors) {
  Fitted result;
  for (const Box& box : medianCut(entries, maxColors)) {
    const Moments moments = momentsOf(entries, box.begin, box.end);
    result.palette.push_back({moments.sum[0] / moments.weight, moments.sum[1] / moments.weight,
                              moments.sum[2] / moments.weight});
  }
  result.choice.resize(entries.size());
  for (int pass = 0;; ++pass) {
    for (std::size_t i = 0; i < entries.size(); ++i) {
      result.choice[i] = nearest(result.palette, entries[i].mean);
    }
    if (pass == kRefinementPasses) {
      break;
    }
    std::vector<Moments> clusters(result.palette.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
      clusters[result.choice[i]].add(entries[i]);
    }
    for (std::size_t k = 0; k < result.palette.size(); ++k) {
      if (clusters[k].weight > 0) {
        for (int c = 0; c < 3; ++c) {
          result.palette[k][c] = clusters[k].sum[c] / clusters[k].weight;
        }
      }
    }
  }
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const auto& color = result.palette[result.choice[i]];
    for (int c = 0; c < 3; ++c) {
      const double d = color[c] - entries[i].mean[c];
      result.squaredError += entries[i].weight * d * d;
    }
    result.weight += entries[i].weight;
  }
  return result;
}

std::vector<RGBColor> toColors(const std::vector<std::array<double, 3>>& palette) {
  std::vector<RGBColor> colors;
  colors.reserve(palette.size());
  for (const auto& color : palette) {
    colors.push_back({toChannel(color[0]), toChannel(color[1]), toChannel(color[2])});
  }
  return colors;
}

void requireColors(int maxColors) {
  if (maxColors < 1 || maxColors > 256) {
    throw std::invalid_argument("HistogramQuantizer builds palettes of 1...256 colours");
  }
}

}  // namespace

QuantizedPixels quantize(const Image& image, PixelRect rect, int maxColors) {
  requireColors(maxColors);
  if (image.format() != PixelFormat::bgra8) {
    throw std::invalid_argument("HistogramQuantizer reads bgra8 images");
  }
  thread_local std::vector<BinAccumulator> histogram(kBins);
  std::vector<std::uint32_t> used;
  accumulate(image, rect, histogram, used);
  std::vector<Entry> entries = takeEntries(histogram, used);

  QuantizedPixels result;
  result.indices.assign(static_cast<std::size_t>(rect.width) * rect.height, 0);
  if (entries.empty()) {
    return result;
  }
  const Fitted fitted = fit(entries, maxColors);
  thread_local std::vector<std::uint8_t> lookup(kBins);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    lookup[entries[i].bin] = fitted.choice[i];
  }
  result.palette = toColors(fitted.palette);
  const auto transparent = static_cast<std::uint8_t>(result.palette.size() & 0xFF);
  std::uint8_t* out = result.indices.data();
  for (int y = rect.top; y < rect.top + rect.height; ++y) {
    const std::uint8_t* pixel = image.row(y).data() + static_cast<std::size_t>(rect.left) * 4;
    for (int x = 0; x < rect.width; ++x, pixel += 4) {
      *out++ = pixel[3] == 0 ? transparent : lookup[binOf(pixel)];
    }
  }
  return result;
}

ColorHistogram::ColorHistogram() : bins_(static_cast<std::size_t>(kBins) * 4, 0) {}

void ColorHistogram::add(const Image& source) {
  const Image image = source.toBGRA8();
  for (int y = 0; y < image.height(); ++y) {
    const std::uint8_t* pixel = image.row(y).data();
    for (int x = 0; x < image.width(); ++x, pixel += 4) {
      if (pixel[3] == 0) {
        continue;
      }
      std::uint32_t* bin = &bins_[static_cast<std::size_t>(binOf(pixel)) * 4];
      if (bin[0]++ == 0) {
        used_.push_back(binOf(pixel));
      }
      bin[1] += pixel[2] & 3u;
      bin[2] += pixel[1] & 3u;
      bin[3] += pixel[0] & 3u;
    }
  }
}

SharedPalette ColorHistogram::palette(int maxColors, double enoughError) const {
  requireColors(maxColors);
  std::vector<Entry> entries;
  entries.reserve(used_.size());
  for (const std::uint32_t bin : used_) {
    const std::uint32_t* counts = &bins_[static_cast<std::size_t>(bin) * 4];
    const double count = counts[0];
    entries.push_back(
        {bin,
         count,
         {((bin >> 12) << 2) + counts[1] / count, (((bin >> 6) & 63) << 2) + counts[2] / count,
          ((bin & 63) << 2) + counts[3] / count}});
  }
  SharedPalette result;
  if (entries.empty()) {
    return result;
  }
  const auto fitted = [&](int colors) {
    const Fitted fit_ = fit(entries, colors);
    return SharedPalette{toColors(fit_.palette), fit_.squaredError / (3 * fit_.weight)};
  };
  result = fitted(maxColors);
  if (result.meanSquaredError > enoughError) {
    return result;
  }
  // The error falls as colours are added; bisect for the fewest that are enough.
  int low = 1;  // too few (or untried)
  int high = maxColors;
  while (high - low > std::max(4, high / 16)) {
    const int middle = (low + high) / 2;
    SharedPalette candidate = fitted(middle);
    if (candidate.meanSquaredError <= enoughError) {
      high = middle;
      result = std::move(candidate);
    } else {
      low = middle;
    }
  }
  return result;
}

SharedPalette paletteFor(std::span<const Image> images, int maxColors, double enoughError) {
  ColorHistogram histogram;
  for (const Image& image : images) {
    histogram.add(image);
  }
  return histogram.palette(maxColors, enoughError);
}

}  // namespace brimble::HistogramQuantizer
