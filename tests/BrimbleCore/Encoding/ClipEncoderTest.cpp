#include "BrimbleCore/Encoding/ClipEncoder.h"

#include <array>
#include <fstream>
#include <functional>
#include <stop_token>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/DiskFrameWriter.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/ImageScaler.h"
#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/TestPattern.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Files.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/Images.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

Image onePixelRow(const std::vector<std::array<std::uint8_t, 3>>& bgr) {
  PixelBuffer pixels;
  for (const auto& p : bgr) {
    pixels.insert(pixels.end(), {p[0], p[1], p[2], 255});
  }
  return Image::bgra8(static_cast<int>(bgr.size()), 1, pixels);
}

std::vector<std::uint8_t> bytesOf(const Image& image) {
  return {image.bytes().begin(), image.bytes().end()};
}

TEST(ClipEncoder, DiffFrameKeepsOnlyPixelsBeyondTheTolerance) {
  const Image previous =
      onePixelRow({{100, 100, 100}, {100, 100, 100}, {100, 100, 100}, {7, 8, 9}});
  const Image current = onePixelRow({{103, 100, 97}, {100, 104, 100}, {100, 100, 100}, {7, 8, 9}});
  EXPECT_EQ(bytesOf(*ClipEncoder::createDiffFrame(current, previous, 3)),
            (std::vector<std::uint8_t>{0, 0, 0, 0, 100, 104, 100, 255, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(
      bytesOf(*ClipEncoder::createDiffFrame(current, previous, 0)),
      (std::vector<std::uint8_t>{103, 100, 97, 255, 100, 104, 100, 255, 0, 0, 0, 0, 0, 0, 0, 0}));
  // Indexed images compare by colour: the same colours under other indices did not change.
  const Image indexed = Image::indexed8(2, 1, {0, 1}, {{10, 20, 30}, {40, 50, 60}});
  const Image reordered = Image::indexed8(2, 1, {1, 0}, {{40, 50, 60}, {10, 20, 30}});
  EXPECT_EQ(bytesOf(*ClipEncoder::createDiffFrame(reordered, indexed, 0)),
            std::vector<std::uint8_t>(8, 0));
  EXPECT_FALSE(ClipEncoder::createDiffFrame(current, indexed, 0).has_value()) << "sizes differ";
}

using testing::TempDirectory;

std::vector<ProcessedFrame> patternFrames(int count, int width, int height, double delay) {
  std::vector<ProcessedFrame> frames;
  for (int i = 0; i < count; ++i) {
    frames.push_back({testPatternFrame(i, count, width, height), delay, std::nullopt});
  }
  return frames;
}

std::vector<std::vector<std::uint8_t>> jpegBlobs(const std::vector<Image>& images) {
  std::vector<std::vector<std::uint8_t>> blobs;
  for (const Image& image : images) {
    blobs.push_back(encodeJPEG(image, 85));
  }
  return blobs;
}

TEST(ClipEncoder, NoFramesAndMixedSizesWriteNothing) {
  TempDirectory directory;
  EXPECT_EQ(ClipEncoder::encode(
                {}, directory / "out.gif",
                {.frameDiffing = false, .tuning = {.paletteStrategy = PaletteStrategy::automatic}})
                .frames,
            0);
  ClipEncoder::encodeCompressed(InMemoryFrameStore(), directory / "out.gif", {.fps = 30});
  const std::vector<std::pair<std::function<void()>, MuxError>> failures = {
      {[&] {
         const InMemoryFrameStore store(
             jpegBlobs({testPatternFrame(0, 2, 64, 48), testPatternFrame(1, 2, 60, 48)}));
         ClipEncoder::encodeCompressed(store, directory / "out.gif",
                                       {.fps = 10, .frameDiffing = false, .deduplicate = false});
       },
       MuxError::inconsistentCanvas()},
  };
  for (const auto& [encode, expected] : failures) {
    EXPECT_EQ(testing::errorText<MuxError>(encode), expected.what());
  }
  EXPECT_EQ(testing::entriesIn(directory.path()), 0);
}

TEST(ClipEncoder, CancellingLeavesNoFileAndTheOldOneIntact) {
  TempDirectory directory;
  const auto out = directory / "out.gif";
  std::ofstream(out) << "the previous recording";
  const auto frames = patternFrames(10, 80, 50, 0.1);
  std::stop_source stop;
  int reported = 0;
  const EncodeProgress cancelAfterTwo = [&](RenderPhase phase, int done, int) {
    if (phase == RenderPhase::encode && done == 2) {
      stop.request_stop();
    }
    ++reported;
  };
  EXPECT_THROW(ClipEncoder::encode(frames, out,
                                   {.frameDiffing = true,
                                    .progress = cancelAfterTwo,
                                    .stop = stop.get_token(),
                                    .tuning = {.paletteStrategy = PaletteStrategy::perFrame}}),
               CancellationError);
  EXPECT_EQ(reported, 2);
  EXPECT_EQ(testing::readFile(out), "the previous recording");
  EXPECT_EQ(testing::entriesIn(directory.path()), 1);
}

TEST(ClipEncoder, CompressedFramesMergeRepeatsAndSkipWhatCannotBeDecoded) {
  TempDirectory directory;
  const Image a = testing::solidImage(64, 48, {30, 60, 90});
  const Image b = testing::solidImage(64, 48, {200, 100, 0});
  auto blobs = jpegBlobs({a, a, a, b, b});
  // Identical bytes repeat the frame before without being decoded, unless that one failed too.
  blobs.insert(blobs.begin() + 2, 2, std::vector<std::uint8_t>{'n', 'o', 'p', 'e'});
  const InMemoryFrameStore store(blobs);

  const auto merged = directory / "merged.gif";
  EXPECT_EQ(ClipEncoder::encodeCompressed(store, merged,
                                          {.fps = 10, .frameDiffing = false, .deduplicate = true})
                .frames,
            2);
  const auto decoded = testing::decodeGIFFile(merged);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->delaysCentiseconds, (std::vector<int>{30, 20}));

  const auto all = directory / "all.gif";
  EXPECT_EQ(ClipEncoder::encodeCompressed(store, all,
                                          {.fps = 10, .frameDiffing = false, .deduplicate = false})
                .frames,
            5);
}

TEST(ClipEncoder, EveryPixelDeduplicationKeepsATypedCharacterAndShowsWhereAFadeSettles) {
  TempDirectory directory;
  const Image blank = testing::solidImage(300, 200, {240, 240, 240});
  const Image typed = testing::imageOf(300, 200, [](int x, int y) {
    return x >= 100 && x < 106 && y >= 50 && y < 60 ? testing::Pixel{20, 20, 20}
                                                    : testing::Pixel{240, 240, 240};
  });
  const InMemoryFrameStore store({encodePNG(blank), encodePNG(typed)});
  EncoderTuning tuning;
  for (const auto& [rule, frames] :
       {std::pair{DedupRule::sampled, 1}, {DedupRule::everyPixel, 2}}) {
    tuning.dedupRule = rule;
    EXPECT_EQ(ClipEncoder::encodeCompressed(
                  store, directory / "a.gif",
                  {.fps = 10, .frameDiffing = true, .deduplicate = true, .tuning = tuning})
                  .frames,
              frames);
  }

  // The last steps of a fade differ from the settled picture by a few levels: merged into one
  // frame, it shows the settled picture, not the trace of what faded out.
  const Image trace = testing::imageOf(300, 200, [](int x, int y) {
    return x >= 100 && x < 106 && y >= 50 && y < 60 ? testing::Pixel{232, 232, 232}
                                                    : testing::Pixel{240, 240, 240};
  });
  const std::vector<Image> fade{typed, trace, blank, blank};
  SequenceOptions options;
  options.fps = 10;
  options.tuning.dedupRule = DedupRule::everyPixel;
  const auto out = directory / "fade.gif";
  EXPECT_EQ(ClipEncoder::encodeSequence(
                4, [&](int i) -> std::optional<Image> { return fade[static_cast<std::size_t>(i)]; },
                out, options)
                .frames,
            2);
  const auto decoded = testing::decodeGIFFile(out);
  ASSERT_TRUE(decoded);
  EXPECT_TRUE(decoded->frames.back().hasSamePixels(blank));
  EXPECT_EQ(decoded->delaysCentiseconds.back(), 30);
}

TEST(ClipEncoder, SharedPalettesDiffByIndexAndReuseTheGlobalTable) {
  TempDirectory directory;
  std::vector<Image> images;
  for (int i = 0; i < 8; ++i) {
    images.push_back(testPatternFrame(i, 8, 160, 100));
  }
  SequenceOptions options;
  options.fps = 10;
  options.deduplicate = false;
  options.tuning.paletteStrategy = PaletteStrategy::global;
  options.tuning.paletteBuilder = PaletteBuilder::histogram;
  const auto out = directory / "shared.gif";
  const auto summary = ClipEncoder::encodeSequence(
      8, [&](int i) -> std::optional<Image> { return images[static_cast<std::size_t>(i)]; }, out,
      options);
  EXPECT_EQ(summary.frames, 8);
  const auto decoded = testing::decodeGIFFile(out);
  ASSERT_TRUE(decoded);
  ASSERT_EQ(decoded->frames.size(), 8u);
  for (std::size_t i = 0; i < images.size(); ++i) {
    EXPECT_GT(testing::psnr(decoded->frames[i], images[i]), 38.0) << "frame " << i;
    EXPECT_FALSE(decoded->localTables[i]) << "frame " << i << " repeats the table";
  }

  // Frames in memory: the palette is reported before the frames are written.
  std::vector<ProcessedFrame> frames;
  for (const Image& image : images) {
    frames.push_back({image, 0.1, std::nullopt});
  }
  std::vector<std::pair<RenderPhase, int>> progress;
  ClipEncoder::encode(
      frames, out,
      {.frameDiffing = false,
       .progress = [&](RenderPhase phase, int done, int) { progress.emplace_back(phase, done); },
       .tuning = {.paletteStrategy = PaletteStrategy::global}});
  EXPECT_EQ(progress.front().first, RenderPhase::palette);
  EXPECT_EQ(progress.back(), (std::pair{RenderPhase::encode, 8}));
  const auto global = testing::decodeGIFFile(out);
  ASSERT_TRUE(global);
  for (std::size_t i = 0; i < images.size(); ++i) {
    EXPECT_GT(testing::psnr(global->frames[i], images[i]), 30.0) << "frame " << i;
  }
}

TEST(ClipEncoder, WritesFromARecordingOnDiskTransformingEachFrame) {
  TempDirectory directory;
  DiskFrameWriter writer(directory.path());
  for (int i = 0; i < 6; ++i) {
    writer.append(encodeJPEG(testPatternFrame(i, 6, 200, 100), 85));
  }
  const auto store = writer.finalize();
  for (const auto* name : {"recording.gif", "recording.png"}) {
    const auto out = directory / name;
    const auto summary = ClipEncoder::encodeCompressed(
        *store, out,
        {.fps = 30,
         .frameDiffing = true,
         .deduplicate = false,
         .format = outputFormatFromExtension(out.extension().string()).value(),
         .transform = [](const Image& image) { return ImageScaler::scaleToMaxWidth(image, 100); }});
    EXPECT_EQ(summary.frames, 6);
    const auto probe = testing::runCommand(
        "ffprobe -v error -count_frames -show_entries stream=codec_name,width,height,"
        "nb_read_frames -of csv=p=0 " +
        testing::shellQuote(out.string()));
    EXPECT_EQ(probe.output,
              std::string(name) == "recording.gif" ? "gif,100,50,6\n" : "apng,100,50,6\n");
  }
}

}  // namespace
}  // namespace brimble
