#include "BrimbleCore/Encoding/VideoWriter.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <stop_token>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/AnimationWriter.h"
#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/TestPattern.h"
#include "BrimbleCore/Encoding/VideoError.h"
#include "BrimbleCore/Support/Cancellation.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Files.h"
#include "tests/Support/Images.h"
#include "tests/Support/MediaProbe.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::TempDirectory;

constexpr const char* kWriterStopped =
    "Failed to encode the video. The video writer stopped before the file was finished, so "
    "nothing was saved.";

std::vector<ProcessedFrame> patternFrames(int count, int width, int height,
                                          const std::vector<double>& delays) {
  std::vector<ProcessedFrame> frames;
  for (int i = 0; i < count; ++i) {
    frames.push_back({testPatternFrame(i, count, width, height),
                      delays[static_cast<std::size_t>(i) % delays.size()], std::nullopt});
  }
  return frames;
}

/// Frames no encoder can shrink much, to fill a disk quickly.
std::vector<ProcessedFrame> noiseFrames(int count, int width, int height) {
  std::uint32_t state = 12345;
  std::vector<ProcessedFrame> frames;
  for (int i = 0; i < count; ++i) {
    frames.push_back({testing::imageOf(width, height,
                                       [&](int, int) {
                                         state = state * 1664525 + 1013904223;
                                         return testing::Pixel{
                                             static_cast<std::uint8_t>(state >> 24),
                                             static_cast<std::uint8_t>(state >> 16),
                                             static_cast<std::uint8_t>(state >> 8)};
                                       }),
                      0.1, std::nullopt});
  }
  return frames;
}

EncodeSummary encodeMP4(const std::vector<ProcessedFrame>& frames, const std::filesystem::path& out,
                        const VideoOptions& video = {}, const EncodeProgress& progress = {},
                        const std::stop_token& stop = {}) {
  return ClipEncoder::encode(frames, out,
                             {.frameDiffing = false,
                              .format = OutputFormat::mp4,
                              .progress = progress,
                              .stop = stop,
                              .video = video});
}

TEST(VideoWriter, VariableDelaysAndAnOddSizeBecomeAFaststartH264FileThatMatchesItsFrames) {
  TempDirectory directory;
  // 321x201: both sides odd, so both are padded by one repeated pixel.
  const std::vector<double> delays = {0.05, 0.1, 1.0 / 30, 0.25, 0.017};
  const auto frames = patternFrames(25, 321, 201, delays);
  const auto out = directory / "clip.mp4";
  const EncodeSummary summary = encodeMP4(frames, out);
  EXPECT_EQ(summary.frames, 25);
  EXPECT_EQ(summary.width, 322);
  EXPECT_EQ(summary.height, 202);

  const auto streams = testing::probeStreams(out);
  ASSERT_EQ(streams.size(), 1u);
  const auto& video = streams.front();
  EXPECT_EQ(video.codecName, "h264");
  EXPECT_EQ(video.pixelFormat, "yuv420p");
  EXPECT_EQ(video.width, 322);
  EXPECT_EQ(video.height, 202);
  EXPECT_EQ(video.frames, 25);
  // Every frame starts where the delays before it end, to the millisecond.
  ASSERT_EQ(video.frameTimes.size(), 25u);
  double start = 0;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_NEAR(video.frameTimes[i], start, 0.0011) << "frame " << i;
    start += frames[i].delay;
  }
  EXPECT_NEAR(video.duration, start, 0.0011);
  // A last frame held long (a demo's final pause) is shown for all of it, though the encoder
  // puts another frame after it in decoding order.
  std::vector<ProcessedFrame> paused = patternFrames(12, 64, 48, {1.0 / 30});
  paused.back().delay = 1.5;
  const auto held = directory / "held.mp4";
  encodeMP4(paused, held);
  EXPECT_NEAR(testing::probeStreams(held).front().duration, 11.0 / 30 + 1.5, 0.0011);

  const auto boxes = testing::topLevelBoxes(out);
  const auto moov = std::find(boxes.begin(), boxes.end(), "moov");
  const auto mdat = std::find(boxes.begin(), boxes.end(), "mdat");
  ASSERT_EQ(boxes.front(), "ftyp");
  ASSERT_NE(mdat, boxes.end());
  EXPECT_LT(moov, mdat) << "the index must come before the media data";

  std::vector<Image> images;
  for (const auto& frame : frames) {
    images.push_back(frame.image);
  }
  testing::writeFrames(images, directory / "source");
  const auto ssim = testing::ssimAgainstFrames(out, directory / "source", 321, 201);
  ASSERT_TRUE(ssim);
  EXPECT_GE(*ssim, 0.97);
  // A lower quality setting gives a smaller file that is still the same video.
  const auto rough = directory / "rough.mp4";
  VideoOptions coarse;
  coarse.crf = 40;
  coarse.preset = "ultrafast";
  encodeMP4(frames, rough, coarse);
  EXPECT_LT(std::filesystem::file_size(rough), std::filesystem::file_size(out));
  EXPECT_EQ(testing::probeStreams(rough).front().frames, 25);
}

TEST(VideoWriter, RefusedSettingsOtherSizesAndCancellingLeaveNothingBehind) {
  TempDirectory directory;
  const auto out = directory / "out.mp4";
  const auto frames = patternFrames(6, 64, 48, {0.1});
  VideoOptions badCRF;
  badCRF.crf = 52;
  EXPECT_EQ(testing::errorText<VideoError>([&] { encodeMP4(frames, out, badCRF); }),
            "the CRF must be a whole number from 0 to 51 (got 52)");
  VideoOptions badPreset;
  badPreset.preset = "quick";
  EXPECT_EQ(testing::errorText<VideoError>([&] { encodeMP4(frames, out, badPreset); }),
            "unknown preset \"quick\" (use ultrafast, superfast, veryfast, faster, fast, medium, "
            "slow, slower, veryslow or placebo)");
  auto mixed = frames;
  mixed[3].image = testPatternFrame(3, 6, 66, 48);
  EXPECT_EQ(testing::errorText<VideoError>([&] { encodeMP4(mixed, out); }),
            "a video frame is 66x48 but the first was 64x48; a video keeps one size");
  EXPECT_EQ(testing::entriesIn(directory.path()), 0);

  // A cancelled encode leaves the earlier file as it was.
  testing::writeFile(out, "the previous recording");
  std::stop_source stop;
  const EncodeProgress cancelAfterThree = [&](RenderPhase, int done, int) {
    if (done == 3) {
      stop.request_stop();
    }
  };
  EXPECT_THROW(encodeMP4(frames, out, {}, cancelAfterThree, stop.get_token()), CancellationError);
  EXPECT_EQ(testing::readFile(out), "the previous recording");
  EXPECT_EQ(testing::entriesIn(directory.path()), 1);

  // The animation writers themselves have no MP4 muxer; the pipeline routes MP4 to video.
  AnimationWriterOptions animation;
  animation.format = OutputFormat::mp4;
  EXPECT_EQ(testing::errorText<MuxError>(
                [&] { AnimationWriter(animation, std::make_unique<MemoryByteSink>()); }),
            "mp4 has no animation muxer");
}

/// A small file system of its own, so the disk can be filled without touching the real one.
class SmallDisk {
 public:
  explicit SmallDisk(const std::filesystem::path& folder) : folder_(folder) {
    std::filesystem::create_directories(folder);
    mounted_ = testing::runCommand("mount -t tmpfs -o size=96k tmpfs " +
                                   testing::shellQuote(folder.string()) + " 2>&1")
                   .exitCode == 0;
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  ~SmallDisk() {
    if (mounted_) {
      testing::runCommand("umount " + testing::shellQuote(folder_.string()));
    }
  }
  bool mounted() const { return mounted_; }

 private:
  std::filesystem::path folder_;
  bool mounted_ = false;
};

TEST(VideoWriter, AFullDiskStopsTheWriterAndLeavesNoPartialFile) {
  TempDirectory directory;
  const SmallDisk disk(directory / "small");
  if (!disk.mounted()) {
    GTEST_SKIP() << "mounting a small tmpfs needs root";
  }
  const auto out = directory / "small" / "full.mp4";
  const std::string error =
      testing::errorText<VideoError>([&] { encodeMP4(noiseFrames(12, 320, 240), out); });
  EXPECT_EQ(error.substr(0, std::string(kWriterStopped).size()), kWriterStopped) << error;
  EXPECT_NE(error.find("No space left on device"), std::string::npos) << error;
  EXPECT_EQ(testing::entriesIn(directory / "small"), 0);
}

}  // namespace
}  // namespace brimble
