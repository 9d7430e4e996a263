// Size, fidelity and time of each WebP mode on a folder of frames (a screen recording as PNG
// files, e.g. the peer benchmark's clips), encoded the way `brimble encode` does (scaled to at
// most 800 wide, every-pixel deduplication) and read back with libwebp's animation decoder.
//
//   BrimbleWebPModesBench FRAMES_DIR [FPS=30] [QUALITY=75]
//
// PSNR is over blue, green and red of every source frame against the frame the WebP shows at
// that frame's time, from the summed squared error of the whole clip.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <webp/demux.h>

#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"

namespace {

using namespace brimble;
namespace fs = std::filesystem;

struct Shown {
  std::vector<PixelBuffer> frames;  // straight BGRA, canvas size
  std::vector<int> endMs;
  int width = 0;
  int height = 0;
};

Shown decodeWebP(const fs::path& file) {
  const std::vector<std::uint8_t> bytes = readFileBytes(file);
  WebPData data{bytes.data(), bytes.size()};
  WebPAnimDecoderOptions options;
  WebPAnimDecoderOptionsInit(&options);
  options.color_mode = MODE_BGRA;
  std::unique_ptr<WebPAnimDecoder, decltype(&WebPAnimDecoderDelete)> decoder(
      WebPAnimDecoderNew(&data, &options), &WebPAnimDecoderDelete);
  Shown shown;
  WebPAnimInfo info;
  WebPAnimDecoderGetInfo(decoder.get(), &info);
  shown.width = static_cast<int>(info.canvas_width);
  shown.height = static_cast<int>(info.canvas_height);
  const std::size_t size = static_cast<std::size_t>(shown.width) * shown.height * 4;
  while (WebPAnimDecoderHasMoreFrames(decoder.get())) {
    std::uint8_t* pixels = nullptr;
    int timestamp = 0;
    WebPAnimDecoderGetNext(decoder.get(), &pixels, &timestamp);
    shown.frames.emplace_back(pixels, pixels + size);
    shown.endMs.push_back(timestamp);
  }
  return shown;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s FRAMES_DIR [FPS] [QUALITY]\n", argv[0]);
    return 2;
  }
  const fs::path folder = argv[1];
  const int fps = argc > 2 ? std::stoi(argv[2]) : 30;
  const float quality = argc > 3 ? std::stof(argv[3]) : 75;
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".png") {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  const auto scaled = [&](int index) -> std::optional<Image> {
    auto image = decodeImage(readFileBytes(files[static_cast<std::size_t>(index)]));
    return image ? std::optional(ImageScaler::scaleToMaxWidth(*image, 800)) : std::nullopt;
  };
  const fs::path out = fs::temp_directory_path() / "brimble-webp-modes.webp";
  std::printf("| mode | bytes | PSNR dB | encode s |\n|---|---|---|---|\n");
  for (const auto& [name, mode] : {std::pair{"lossy", WebPMode::lossy},
                                   {"lossless", WebPMode::lossless},
                                   {"mixed", WebPMode::mixed}}) {
    SequenceOptions options;
    options.fps = fps;
    options.format = OutputFormat::webp;
    options.webpQuality = quality;
    options.tuning.dedupRule = DedupRule::everyPixel;
    options.tuning.webpMode = mode;
    const auto started = std::chrono::steady_clock::now();
    ClipEncoder::encodeSequence(static_cast<int>(files.size()), scaled, out, options);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const Shown shown = decodeWebP(out);
    double squared = 0;
    double samples = 0;
    std::size_t at = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
      const int timeMs = static_cast<int>(std::lround(i * 1000.0 / fps));
      while (at + 1 < shown.endMs.size() && shown.endMs[at] <= timeMs) {
        ++at;
      }
      const Image source = scaled(static_cast<int>(i))->toBGRA8();
      const std::uint8_t* p = shown.frames[at].data();
      for (int y = 0; y < source.height(); ++y) {
        const auto row = source.row(y);
        for (std::size_t x = 0; x < row.size(); ++x) {
          if (x % 4 != 3) {
            const double d = row[x] - p[static_cast<std::size_t>(y) * shown.width * 4 + x];
            squared += d * d;
            samples += 1;
          }
        }
      }
    }
    const double psnr = 10 * std::log10(255.0 * 255.0 / (squared / samples));
    std::printf("| %s | %ju | %.2f | %.2f |\n", name,
                static_cast<std::uintmax_t>(fs::file_size(out)), psnr, seconds);
    std::fflush(stdout);
  }
  fs::remove(out);
  return 0;
}
