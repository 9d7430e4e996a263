// The APNG and WebP writers, read back by decoders we did not write: ffmpeg's APNG demuxer,
// libpng, webpmux and libwebp's animation decoder.

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <png.h>
#include <webp/demux.h>

#include "BrimbleCore/Encoding/APNGMuxer.h"
#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/TestPattern.h"
#include "BrimbleCore/Encoding/WebPMuxer.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Files.h"
#include "tests/Support/Images.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::runCommand;
using testing::shellQuote;
using testing::TempDirectory;

std::vector<Image> clip(int count, int width, int height) {
  std::vector<Image> frames;
  for (int i = 0; i < count; ++i) {
    frames.push_back(testPatternFrame(i, count, width, height));
  }
  return frames;
}

template <typename Muxer, typename... Args>
void writeClip(const std::filesystem::path& path, const std::vector<Image>& frames,
               const std::vector<double>& delays, Args... args) {
  Muxer muxer(std::make_unique<FileByteSink>(path), args...);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    muxer.append(frames[i], delays[i]);
  }
  muxer.finish();
}

/// Every frame as ffmpeg decodes it, as raw BGRA.
std::vector<Image> ffmpegFrames(const std::filesystem::path& path, int width, int height) {
  TempDirectory directory;
  const auto raw = directory / "frames.raw";
  const auto result =
      runCommand("ffmpeg -v error -i " + shellQuote(path.string()) + " -fps_mode passthrough" +
                 " -f rawvideo -pix_fmt bgra " + shellQuote(raw.string()) + " 2>&1");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  const std::string bytes = testing::readFile(raw);
  const std::size_t frameBytes = static_cast<std::size_t>(width) * height * 4;
  std::vector<Image> frames;
  for (std::size_t at = 0; at + frameBytes <= bytes.size(); at += frameBytes) {
    frames.push_back(
        Image::bgra8(width, height,
                     PixelBuffer(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                                 bytes.begin() + static_cast<std::ptrdiff_t>(at + frameBytes))));
  }
  return frames;
}

TEST(APNGMuxer, FramesRoundTripLosslesslyWithTheirTimingAndLoops) {
  TempDirectory directory;
  const auto path = directory / "clip.png";
  const auto frames = clip(6, 160, 100);
  writeClip<APNGMuxer>(path, frames, {0.1, 0.05, 1.0, 0.04, 0.5, 0.25}, 3);
  const auto durations =
      runCommand("ffprobe -v error -show_entries packet=duration_time -of csv=p=0 " +
                 shellQuote(path.string()));
  EXPECT_EQ(durations.output, "0.100000\n0.050000\n1.000000\n0.040000\n0.500000\n0.250000\n");
  const auto decoded = ffmpegFrames(path, 160, 100);
  ASSERT_EQ(decoded.size(), frames.size());
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_TRUE(decoded[i].hasSamePixels(frames[i])) << "frame " << i;
  }
  // libpng sees the first frame; acTL (frame count 6, 3 plays) follows the 13-byte IHDR.
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  ASSERT_NE(png_image_begin_read_from_file(&png, path.c_str()), 0) << png.message;
  png.format = PNG_FORMAT_BGRA;
  PixelBuffer pixels(PNG_IMAGE_SIZE(png));
  ASSERT_NE(png_image_finish_read(&png, nullptr, pixels.data(), 0, nullptr), 0) << png.message;
  EXPECT_TRUE(Image::bgra8(160, 100, std::move(pixels)).hasSamePixels(frames[0]));
  EXPECT_EQ(testing::readFile(path).substr(37, 12), std::string("acTL\0\0\0\6\0\0\0\3", 12));
}

TEST(APNGMuxer, MisuseIsRefused) {
  auto sink = std::make_unique<MemoryByteSink>();
  MemoryByteSink* memory = sink.get();
  APNGMuxer muxer(std::move(sink), 0);
  EXPECT_THROW(muxer.finish(), MuxError);
  EXPECT_TRUE(memory->data.empty());
  muxer.append(testing::solidImage(8, 6, {0, 0, 255}), 0.1);
  const std::vector<std::pair<Image, MuxError>> cases = {
      {testPatternFrame(1, 2, 9, 6), MuxError::inconsistentCanvas()},
      // Premultiplied (128, 0, 0, 128): translucent, in a file begun without alpha.
      {testing::solidImage(8, 6, {128, 0, 0, 128}), MuxError::unsupportedColorType(6)},
  };
  for (const auto& [image, expected] : cases) {
    EXPECT_EQ(testing::errorText<MuxError>([&] { muxer.append(image, 0.1); }), expected.what());
  }
}

struct DecodedWebP {
  int width = 0;
  int height = 0;
  int loopCount = -1;
  std::vector<Image> frames;
  std::vector<int> endTimesMs;
};

DecodedWebP decodeWebP(const std::filesystem::path& path) {
  const std::string bytes = testing::readFile(path);
  WebPData data{reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
  WebPAnimDecoderOptions options;
  WebPAnimDecoderOptionsInit(&options);
  options.color_mode = MODE_BGRA;
  std::unique_ptr<WebPAnimDecoder, decltype(&WebPAnimDecoderDelete)> decoder(
      WebPAnimDecoderNew(&data, &options), &WebPAnimDecoderDelete);
  DecodedWebP decoded;
  if (!decoder) {
    ADD_FAILURE() << "libwebp cannot open " << path;
    return decoded;
  }
  WebPAnimInfo info;
  WebPAnimDecoderGetInfo(decoder.get(), &info);
  decoded.width = static_cast<int>(info.canvas_width);
  decoded.height = static_cast<int>(info.canvas_height);
  decoded.loopCount = static_cast<int>(info.loop_count);
  while (WebPAnimDecoderHasMoreFrames(decoder.get())) {
    std::uint8_t* pixels = nullptr;
    int timestamp = 0;
    if (!WebPAnimDecoderGetNext(decoder.get(), &pixels, &timestamp)) {
      ADD_FAILURE() << "frame decode failed";
      break;
    }
    const std::size_t size = static_cast<std::size_t>(decoded.width) * decoded.height * 4;
    decoded.frames.push_back(
        Image::bgra8(decoded.width, decoded.height, PixelBuffer(pixels, pixels + size)));
    decoded.endTimesMs.push_back(timestamp);
  }
  return decoded;
}

TEST(WebPMuxer, EveryModeKeepsTimingLoopAndLikeness) {
  TempDirectory directory;
  const auto path = directory / "clip.webp";
  const auto frames = clip(5, 160, 100);
  for (const WebPMode mode : {WebPMode::lossy, WebPMode::lossless, WebPMode::mixed}) {
    writeClip<WebPMuxer>(path, frames, {0.1, 0.05, 1.0, 0.04, 0.5}, 2, 75.0f, mode);
    const auto decoded = decodeWebP(path);
    EXPECT_EQ(decoded.width, 160);
    EXPECT_EQ(decoded.loopCount, 2);
    EXPECT_EQ(decoded.endTimesMs, (std::vector<int>{100, 150, 1150, 1190, 1690}));
    ASSERT_EQ(decoded.frames.size(), frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
      EXPECT_GT(testing::psnr(decoded.frames[i], frames[i]), mode == WebPMode::lossless ? 98 : 28)
          << "frame " << i << " mode " << static_cast<int>(mode);
    }
  }
}

TEST(AnimationWriters, TranslucentFramesReadBackWithStraightAlpha) {
  TempDirectory directory;
  // Premultiplied (128, 0, 0, 128) in memory: straight red at half opacity.
  const std::vector<ProcessedFrame> frames = {
      {testing::solidImage(8, 6, {0, 0, 255}), 0.1, std::nullopt},
      {testing::solidImage(8, 6, {128, 0, 0, 128}), 0.1, std::nullopt}};
  for (const WebPMode mode : {WebPMode::lossy, WebPMode::lossless, WebPMode::mixed}) {
    writeClip<WebPMuxer>(directory / "clip.webp", {frames[0].image, frames[1].image}, {0.1, 0.1}, 0,
                         75.0f, mode);
    const auto decoded = decodeWebP(directory / "clip.webp");
    ASSERT_EQ(decoded.frames.size(), 2u);
    const testing::Pixel pixel = testing::pixelAt(decoded.frames[1], 3, 3);  // straight BGRA
    EXPECT_NEAR(pixel.r, 255, 3) << "mode " << static_cast<int>(mode);
    EXPECT_EQ(pixel.a, 128) << "mode " << static_cast<int>(mode);
  }
  // The APNG began opaque: the encoder writes it again with alpha.
  const auto path = directory / "clip.png";
  ClipEncoder::encode(frames, path,
                      {.frameDiffing = false,
                       .format = OutputFormat::apng,
                       .tuning = {.paletteStrategy = PaletteStrategy::automatic}});
  const auto decoded = ffmpegFrames(path, 8, 6);
  ASSERT_EQ(decoded.size(), 2u);
  const testing::Pixel pixel = testing::pixelAt(decoded[1], 3, 3);  // ffmpeg's bgra is straight
  EXPECT_EQ(std::vector<int>({pixel.r, pixel.g, pixel.b, pixel.a}),
            std::vector<int>({255, 0, 0, 128}));
}

}  // namespace
}  // namespace brimble
