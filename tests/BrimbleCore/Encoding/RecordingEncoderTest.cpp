#include "BrimbleCore/Encoding/RecordingEncoder.h"

#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/Images.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

TEST(RecordingEncoder, FramesPlayAtTheRateTheyWereTakenFromOneUpToThePromisedRate) {
  // A busy machine skipped half the ticks: 45 frames in 3 s of a 30 fps recording.
  EXPECT_EQ(RecordingEncoder::playbackFPS(45, 3, 30), 15);
  EXPECT_EQ(RecordingEncoder::playbackFPS(90, 3, 30), 30);
  // More frames than promised never play faster than promised.
  EXPECT_EQ(RecordingEncoder::playbackFPS(100, 2, 30), 30);
  // No recorded time at all: the promised rate.
  EXPECT_EQ(RecordingEncoder::playbackFPS(90, 0, 30), 30);
  // 12.5 frames a second round half away from zero.
  EXPECT_EQ(RecordingEncoder::playbackFPS(25, 2, 30), 13);
  // Fewer than one frame a second, or none, still play at 1 fps; so does a promise below 1.
  EXPECT_EQ(RecordingEncoder::playbackFPS(1, 5, 30), 1);
  EXPECT_EQ(RecordingEncoder::playbackFPS(0, 5, 30), 1);
  EXPECT_EQ(RecordingEncoder::playbackFPS(10, 1, 0), 1);
}

/// Frames as a recorder stores them: a, a again (the same bytes), b, c three times, d, e.
std::shared_ptr<const CompressedFrameStore> recording() {
  const std::vector<testing::Pixel> colours = {
      {200, 30, 30}, {30, 200, 30}, {30, 30, 200}, {200, 200, 30}, {30, 200, 200}};
  std::vector<std::vector<std::uint8_t>> jpegs;
  for (const testing::Pixel& colour : colours) {
    jpegs.push_back(encodeJPEG(testing::solidImage(32, 24, colour), 90));
  }
  return std::make_shared<InMemoryFrameStore>(std::vector<std::vector<std::uint8_t>>{
      jpegs[0], jpegs[0], jpegs[1], jpegs[2], jpegs[2], jpegs[2], jpegs[3], jpegs[4]});
}

TEST(RecordingEncoder, AClipLastsAsLongAsItsRecordingAndAMarkAppearingEndsARepeat) {
  testing::TempDirectory folder;
  // Eight frames over two seconds of a 30 fps recording play at 4 fps: a quarter second each,
  // repeats added to the frame they repeat.
  const auto plain = folder / "plain.gif";
  RecordingEncoder::encode(recording(), 2, plain, {.fps = 30});
  const auto decoded = testing::decodeGIFFile(plain);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->delaysCentiseconds, (std::vector<int>{50, 25, 75, 25, 25}));

  // A white mark drawn from the second frame on: that frame's bytes repeat the first, but it
  // must be decoded and kept, or the mark would appear a frame late.
  RecordingOverlay overlay;
  overlay.paint = [](const Image& frame, int index) {
    if (index < 1) {
      return frame;
    }
    return testing::imageOf(frame.width(), frame.height(), [&](int x, int y) {
      return x < 8 && y < 8 ? testing::Pixel{255, 255, 255} : testing::pixelAt(frame, x, y);
    });
  };
  overlay.changesAt = [](int index) { return index == 1; };
  const RecordingSequence sequence =
      RecordingEncoder::prepare(recording(), 2, {.fps = 30}, overlay);
  EXPECT_EQ(sequence.options.fps, 4);
  const auto marked = folder / "marked.gif";
  ClipEncoder::encodeSequence(sequence.count, sequence.frameAt, marked, sequence.options);
  const auto withMark = testing::decodeGIFFile(marked);
  ASSERT_TRUE(withMark);
  EXPECT_EQ(withMark->delaysCentiseconds, (std::vector<int>{25, 25, 25, 75, 25, 25}));
  EXPECT_LT(testing::pixelAt(withMark->frames[0], 2, 2).g, 100);
  EXPECT_GT(testing::pixelAt(withMark->frames[1], 2, 2).g, 240);
}

}  // namespace
}  // namespace brimble
