#include "BrimbleCore/Encoding/ClipEditor.h"

#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Effects/IdleTrimmer.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/Images.h"

namespace brimble {
namespace {

/// Frames 0.5, 1, 0.25 s long, 8x6, each pixel's red its x, green its y and blue the frame.
std::vector<ProcessedFrame> clip() {
  std::vector<ProcessedFrame> frames;
  const double delays[] = {0.5, 1.0, 0.25};
  for (int i = 0; i < 3; ++i) {
    ProcessedFrame frame;
    frame.image = testing::imageOf(8, 6, [i](int x, int y) {
      return testing::Pixel{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y),
                            static_cast<std::uint8_t>(i)};
    });
    frame.delay = delays[i];
    frames.push_back(frame);
  }
  return frames;
}

std::vector<double> delays(const std::vector<ProcessedFrame>& frames) {
  std::vector<double> result;
  for (const ProcessedFrame& frame : frames) {
    result.push_back(frame.delay);
  }
  return result;
}

TEST(ClipEditor, TrimKeepsTheTimeInsideTheRangeEvenAcrossFrames) {
  // 0 - 0.5 - 1.5 - 1.75: from 0.25 to 1.6 keeps 0.25 of the first, all of the second, 0.1 of
  // the third.
  const auto trimmed = ClipEditor::trim(clip(), 0.25, 1.6);
  ASSERT_EQ(trimmed.size(), 3u);
  EXPECT_DOUBLE_EQ(trimmed[0].delay, 0.25);
  EXPECT_DOUBLE_EQ(trimmed[1].delay, 1.0);
  EXPECT_NEAR(trimmed[2].delay, 0.1, 1e-9);
  // A range inside one frame keeps that frame alone; an end past the clip is its end.
  const auto inner = ClipEditor::trim(clip(), 0.6, 0.9);
  ASSERT_EQ(inner.size(), 1u);
  EXPECT_EQ(inner[0].image.bytes()[0], 1);  // blue of frame 1
  EXPECT_EQ(delays(ClipEditor::trim(clip(), 1.5, 99)), (std::vector<double>{0.25}));

  EXPECT_EQ(testing::errorText<ClipEditError>([] { ClipEditor::trim(clip(), 2, 3); }),
            "Can't trim from 2.00 s to 1.75 s: the clip is 1.75 s long and the start must come "
            "before the end.");
  EXPECT_EQ(testing::errorText<ClipEditError>([] { ClipEditor::trim(clip(), 1, 1); }),
            "Can't trim from 1.00 s to 1.00 s: the clip is 1.75 s long and the start must come "
            "before the end.");
}

TEST(ClipEditor, CropCutsEveryFrameAndRefusesRectanglesOutside) {
  const auto cropped = ClipEditor::crop(clip(), {2, 1, 3, 4});
  ASSERT_EQ(cropped.size(), 3u);
  for (std::size_t i = 0; i < cropped.size(); ++i) {
    const Image& image = cropped[i].image;
    ASSERT_EQ(image.width(), 3);
    ASSERT_EQ(image.height(), 4);
    // Pixel (0,0) of the crop was (2,1): red 2, green 1.
    EXPECT_EQ(image.row(0)[2], 2);
    EXPECT_EQ(image.row(0)[1], 1);
    // The last pixel was (4,4).
    EXPECT_EQ(image.row(3)[2 * 4 + 2], 4);
    EXPECT_EQ(image.row(3)[2 * 4 + 1], 4);
    EXPECT_EQ(image.row(0)[0], i);
  }
  EXPECT_EQ(testing::errorText<ClipEditError>([] {
              ClipEditor::crop(clip(), {6, 0, 3, 2});
            }),
            "Can't crop to 6,0 3x2: the rectangle must lie inside the 8x6 frames.");
  EXPECT_NE(testing::errorText<ClipEditError>([] {
              ClipEditor::crop(clip(), {0, 0, 0, 2});
            }),
            "(no error)");
}

TEST(ClipEditor, ApplyTrimsThenCropsThenSpeedsUpAndParsesTheCommandLineForms) {
  ClipEdit edit;
  edit.trimStart = 0.5;
  edit.crop = PixelRect{0, 0, 4, 4};
  edit.speed = 2;
  const auto edited = ClipEditor::apply(clip(), edit);
  EXPECT_EQ(delays(edited), (std::vector<double>{0.5, 0.125}));
  EXPECT_EQ(edited[0].image.width(), 4);
  EXPECT_EQ(testing::errorText<ClipEditError>([] { ClipEditor::changeSpeed(clip(), 0); }),
            "Can't play at 0x: the speed must be between 0.01 and 100.");

  using Range = std::pair<std::optional<double>, std::optional<double>>;
  EXPECT_EQ(ClipEditor::parseTrim("1.5:4"), (Range{1.5, 4.0}));
  EXPECT_EQ(ClipEditor::parseTrim("2:"), (Range{2.0, std::nullopt}));
  EXPECT_EQ(ClipEditor::parseTrim(":3"), (Range{std::nullopt, 3.0}));
  for (const char* bad : {":", "1-2", "a:2", "1:2:3", "-1:2"}) {
    EXPECT_FALSE(ClipEditor::parseTrim(bad)) << bad;
  }
  EXPECT_EQ(ClipEditor::parseCrop("10,20,300,200"), (PixelRect{10, 20, 300, 200}));
  for (const char* bad : {"10,20,300", "1,2,0,4", "a,b,c,d", "1,2,3,4,5", "-1,0,2,2"}) {
    EXPECT_FALSE(ClipEditor::parseCrop(bad)) << bad;
  }
}

TEST(ClipEditor, TheChainEditsInTheClipsOwnTermsThenMergesRepeatsBeforeCuttingPauses) {
  // A second of red, a pause of four blue frames that differ by a few levels (the noise a lossy
  // encode leaves), a second of green; 80x40.
  const auto frame = [](testing::Pixel colour, double delay) {
    return ProcessedFrame{testing::solidImage(80, 40, colour), delay, std::nullopt};
  };
  const std::vector<ProcessedFrame> frames = {frame({200, 0, 0}, 1), frame({0, 0, 200}, 2),
                                              frame({0, 4, 200}, 2), frame({3, 0, 204}, 2),
                                              frame({0, 0, 197}, 2), frame({0, 200, 0}, 1)};
  ClipEdit edit;
  edit.trimStart = 0.5;                 // the clip's own seconds: half of the red goes
  edit.crop = PixelRect{0, 0, 40, 20};  // the clip's own pixels
  edit.speed = 2;
  edit.maxWidth = 20;
  edit.deduplicate = true;
  edit.idle = [](std::span<const ProcessedFrame> clip) {
    return IdleTrimmer::apply(clip, IdleStrategy::cut, 2);
  };
  const auto edited = ClipEditor::apply(frames, edit);
  // Red for 0.25 s; the pause, 4 s once its noisy repeats are one frame, cut to half a second;
  // green for 0.5 s. Cutting first would find no pause: no two of its frames are the same.
  EXPECT_EQ(delays(edited), (std::vector<double>{0.25, 0.5, 0.5}));
  ASSERT_EQ(edited.size(), 3u);
  for (const ProcessedFrame& part : edited) {
    EXPECT_EQ(part.image.width(), 20);
    EXPECT_EQ(part.image.height(), 10);
  }
  // The pause shows its first frame, which the others repeated.
  const testing::Pixel pause = testing::pixelAt(edited[1].image, 5, 5);
  EXPECT_NEAR(pause.r, 0, 2);
  EXPECT_NEAR(pause.g, 0, 2);
  EXPECT_NEAR(pause.b, 200, 2);
}

/// A clip with pauses of every length around the thresholds below: pictures held for 0.1 to
/// 1.5 s, some as runs of identical frames, some repeated with a little noise. 16x12.
std::vector<ProcessedFrame> clipWithPauses() {
  struct Held {
    std::uint8_t shade;
    int frames;
    double delay;
    std::uint8_t noise;
  };
  const Held pictures[] = {{10, 1, 0.1, 0},  {40, 6, 0.25, 0}, {70, 1, 0.2, 0},  {100, 3, 0.5, 3},
                           {130, 1, 0.1, 0}, {160, 2, 0.1, 0}, {190, 8, 0.2, 0}, {220, 4, 0.3, 2},
                           {30, 1, 1.5, 0},  {60, 1, 0.1, 0},  {90, 5, 0.3, 0},  {120, 1, 0.05, 0}};
  std::vector<ProcessedFrame> frames;
  for (const Held& held : pictures) {
    for (int i = 0; i < held.frames; ++i) {
      const auto noise = static_cast<std::uint8_t>(i % 2 == 1 ? held.noise : 0);
      ProcessedFrame frame;
      frame.image = testing::imageOf(16, 12, [&](int x, int y) {
        return testing::Pixel{static_cast<std::uint8_t>(held.shade + noise),
                              static_cast<std::uint8_t>(x * 8), static_cast<std::uint8_t>(y * 8)};
      });
      frame.delay = held.delay;
      frames.push_back(frame);
    }
  }
  return frames;
}

std::vector<ProcessedFrame> drained(FrameStream& stream) {
  std::vector<ProcessedFrame> frames;
  while (auto frame = stream.next()) {
    frames.push_back(std::move(*frame));
  }
  return frames;
}

ClipEdit idleEdit(IdleStrategy strategy, double threshold) {
  ClipEdit edit;
  edit.idle = [strategy, threshold](std::span<const ProcessedFrame> frames) {
    return IdleTrimmer::apply(frames, strategy, threshold);
  };
  edit.idleThreshold = threshold;
  return edit;
}

TEST(ClipEditor, AStreamEditsFrameByFrameExactlyAsTheWholeClipIsEdited) {
  const std::vector<ProcessedFrame> frames = clipWithPauses();
  std::vector<std::pair<std::string, ClipEdit>> edits = {
      {"nothing", {}},
      {"trim inside", {.trimStart = 0.3, .trimEnd = 2.1}},
      {"trim from", {.trimStart = 4.0}},
      {"trim to", {.trimEnd = 0.55}},
      {"crop, speed, width",
       {.crop = PixelRect{2, 1, 10, 8}, .speed = 2.5, .maxWidth = 6, .deduplicate = false}},
      {"dedup", {.deduplicate = true}},
  };
  for (const IdleStrategy strategy : {IdleStrategy::cut, IdleStrategy::ramp, IdleStrategy::fade}) {
    for (const double threshold : {0.0, 0.25, 0.5, 1.0, 5.0}) {
      const std::string name = "idle " + std::to_string(static_cast<int>(strategy)) + " over " +
                               std::to_string(threshold);
      edits.emplace_back(name, idleEdit(strategy, threshold));
      ClipEdit everything = idleEdit(strategy, threshold);
      everything.trimStart = 0.15;
      everything.speed = 0.5;
      everything.deduplicate = true;
      edits.emplace_back(name + " after trim, speed and dedup", everything);
    }
  }
  for (const auto& [name, edit] : edits) {
    const std::vector<ProcessedFrame> whole = ClipEditor::apply(frames, edit);
    const auto stream = ClipEditor::stream(std::make_unique<SpanFrameStream>(frames), edit);
    const std::vector<ProcessedFrame> streamed = drained(*stream);
    ASSERT_EQ(streamed.size(), whole.size()) << name;
    for (std::size_t i = 0; i < whole.size(); ++i) {
      EXPECT_NEAR(streamed[i].delay, whole[i].delay, 1e-9) << name << ", frame " << i;
      EXPECT_TRUE(streamed[i].image.hasSamePixels(whole[i].image)) << name << ", frame " << i;
    }
  }
  // A trim that keeps nothing, and a crop outside, are found as the clip is read.
  const auto failure = [&frames](const ClipEdit& edit) {
    return testing::errorText<ClipEditError>([&] {
      const auto stream = ClipEditor::stream(std::make_unique<SpanFrameStream>(frames), edit);
      drained(*stream);
    });
  };
  const double length = ClipEditor::duration(frames);
  EXPECT_EQ(failure({.trimStart = 99}),
            testing::errorText<ClipEditError>([&] { ClipEditor::trim(frames, 99, length); }));
  EXPECT_EQ(failure({.trimStart = 2, .trimEnd = 1}),
            testing::errorText<ClipEditError>([&] { ClipEditor::trim(frames, 2, 1); }));
  EXPECT_EQ(failure({.crop = PixelRect{10, 0, 10, 4}}),
            "Can't crop to 10,0 10x4: the rectangle must lie inside the 16x12 frames.");
}

TEST(ClipEditor, AStreamHoldsOnlyTheFramesSinceThePictureLastChangedQuickly) {
  const std::vector<ProcessedFrame> frames = clipWithPauses();
  auto source = std::make_unique<SpanFrameStream>(frames);
  const SpanFrameStream& reading = *source;
  const auto stream = ClipEditor::stream(std::move(source), idleEdit(IdleStrategy::fade, 0.5));
  // The first picture shows for 0.1 s, no pause: the frame after it ends the first piece.
  ASSERT_TRUE(stream->next());
  EXPECT_EQ(reading.position().read, 2);
  // The second is a pause (six frames, 1.5 s), which fades into the third (0.2 s): that piece
  // ends at the fourth picture's first frame, the ninth of the clip.
  ASSERT_TRUE(stream->next());
  EXPECT_EQ(reading.position().read, 9);
  drained(*stream);
  EXPECT_EQ(reading.position().read, static_cast<int>(frames.size()));
}

TEST(ClipEditor, AppendJoinsASegmentAtTheClipsSize) {
  std::vector<ProcessedFrame> segment(2);
  for (ProcessedFrame& frame : segment) {
    frame.image = testing::solidImage(16, 12, {200, 100, 50});
    frame.delay = 0.1;
  }
  const auto joined = ClipEditor::append(clip(), segment);
  ASSERT_EQ(joined.size(), 5u);
  EXPECT_EQ(delays(joined), (std::vector<double>{0.5, 1.0, 0.25, 0.1, 0.1}));
  for (const ProcessedFrame& frame : joined) {
    EXPECT_EQ(frame.image.width(), 8);
    EXPECT_EQ(frame.image.height(), 6);
  }
  // A solid picture stays that colour when scaled.
  const auto pixel = joined[4].image.toBGRA8().row(3).subspan(4 * 4, 3);
  EXPECT_NEAR(pixel[2], 200, 2);
  EXPECT_NEAR(pixel[1], 100, 2);
  EXPECT_NEAR(pixel[0], 50, 2);
  EXPECT_EQ(ClipEditor::append({}, segment).size(), 2u);
}

}  // namespace
}  // namespace brimble
