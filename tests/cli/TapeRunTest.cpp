// Tapes from tests/tapes run headless as they stand, into a real xterm on the embedded display:
// each output has the tape's frame size and plays as long as the tape's own timeline, typed text
// is readable in the frames, and hidden steps leave none. Frames are kept under
// test-artifacts/tapes for a person to look at.

#include <filesystem>
#include <numeric>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Support/Files.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/ImageFiles.h"
#include "tests/Support/Images.h"
#include "tests/Support/MediaProbe.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/TextRecognition.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::Pixel;

const fs::path kTapes = fs::path(BRIMBLE_SOURCE_DIR) / "tests" / "tapes";

// Runs `tape` with the test's folder as the working directory, where its outputs go.
testing::CommandResult runTape(const fs::path& directory, const fs::path& tape) {
  return testing::runCommand(
      "cd " + testing::shellQuote(directory.string()) + " && " +
      testing::brimbleWithStderr("run --headless -q " + testing::shellQuote(tape.string())));
}

double seconds(const testing::DecodedGIF& gif) {
  return std::accumulate(gif.delaysCentiseconds.begin(), gif.delaysCentiseconds.end(), 0) / 100.0;
}

bool near(Pixel p, Pixel q, int tolerance) {
  return std::abs(p.r - q.r) + std::abs(p.g - q.g) + std::abs(p.b - q.b) <= tolerance;
}

TEST(TapeRun, TypingKeysWaitsAndTwoOutputsAtTheTapesSize) {
  testing::TempDirectory directory;
  const auto result = runTape(directory.path(), kTapes / "basics.tape");
  ASSERT_EQ(result.exitCode, 0) << result.output;

  const auto gif = testing::decodeGIFFile(directory / "basics.gif");
  ASSERT_TRUE(gif) << result.output;
  EXPECT_EQ(gif->width, 800);
  EXPECT_EQ(gif->height, 400);
  const Image& last = gif->frames.back();
  testing::keepArtifact(gif->frames.front(), "tapes", "basics-first.png");
  testing::keepArtifact(last, "tapes", "basics-last.png");
  // Dracula's background fills the frame.
  EXPECT_GT(testing::shareNear(last, {0x28, 0x2a, 0x36}, 6), 0.8);
  if (testing::textRecognitionAvailable()) {
    // Ctrl+L cleared what came before; the last command and what it printed remain.
    const std::string text = testing::recognizedText(last);
    EXPECT_THAT(text, HasSubstr("echo FINISHED")) << text;
    EXPECT_THAT(text, Not(HasSubstr("DONE"))) << text;
    // The typo was taken back by five Backspaces before Enter.
    const std::string middle = testing::recognizedText(gif->frames[gif->frames.size() / 2]);
    EXPECT_THAT(middle, Not(HasSubstr("typo"))) << middle;
  }
  // The same render into an MP4 of the same size and length.
  const auto streams = testing::probeStreams(directory / "basics.mp4");
  ASSERT_FALSE(streams.empty());
  EXPECT_EQ(streams.front().width, 800);
  EXPECT_EQ(streams.front().height, 400);
  EXPECT_NEAR(streams.front().duration, seconds(*gif), 0.2);
}

TEST(TapeRun, ADressedTerminalFillsTheFrameWithItsBarMarginAndColours) {
  testing::TempDirectory directory;
  const auto result = runTape(directory.path(), kTapes / "looks.tape");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const auto gif = testing::decodeGIFFile(directory / "looks.gif");
  ASSERT_TRUE(gif) << result.output;
  EXPECT_EQ(gif->width, 640);
  EXPECT_EQ(gif->height, 360);
  // The tape's timeline: 15 + 32 + 11 typed characters and three keys at 50 ms, three seconds
  // of Sleep.
  EXPECT_NEAR(seconds(*gif), (15 + 32 + 11 + 3) * 0.05 + 3, 0.1 * 5.9);

  const Image& last = gif->frames.back();
  testing::keepArtifact(last, "tapes", "looks-last.png");
  // The margin's colour at the corners; the bar (30 pixels, three buttons on the left) under
  // the margin; the theme's background below it, all the way to the margin.
  EXPECT_TRUE(near(testing::pixelAt(last, 3, 3), {0x67, 0x4e, 0xff}, 12));
  EXPECT_TRUE(near(testing::pixelAt(last, 636, 356), {0x67, 0x4e, 0xff}, 12));
  EXPECT_TRUE(near(testing::pixelAt(last, 320, 30 + 30 + 150), {0x10, 0x20, 0x30}, 12));
  EXPECT_TRUE(near(testing::pixelAt(last, 640 - 31, 360 - 31 - 12), {0x10, 0x20, 0x30}, 12));
  // Rounded: the corner pixel itself is the margin's (in the window's shadow), not the window's.
  const Pixel corner = testing::pixelAt(last, 30, 360 - 31);
  EXPECT_TRUE(corner.b > 180 && corner.r < 120) << int(corner.r) << "," << int(corner.b);
  bool redButton = false;
  for (int x = 30; x < 30 + 60 && !redButton; ++x) {
    redButton = near(testing::pixelAt(last, x, 30 + 15), {0xff, 0x5f, 0x57}, 60);
  }
  EXPECT_TRUE(redButton);
  // printf's green is the theme's own, a pure green (the xterm default's is darker).
  int green = 0;
  for (int y = 0; y < last.height(); ++y) {
    for (int x = 0; x < last.width(); ++x) {
      const Pixel p = testing::pixelAt(last, x, y);
      green += p.g > 200 && p.r < 70 && p.b < 70;
    }
  }
  EXPECT_GT(green, 60);

  // The screenshot is the terminal as it was then, a PNG.
  const Image shot = testing::readPNG(directory / "looks-shot.png");
  EXPECT_GT(shot.width(), 0);
  if (testing::textRecognitionAvailable()) {
    // The shell had the tape's environment, and Paste typed what Copy took.
    const std::string text = testing::recognizedText(last);
    EXPECT_THAT(text, HasSubstr("hello from env")) << text;
    EXPECT_THAT(text, HasSubstr("echo pasted")) << text;
  }
}

TEST(TapeRun, HiddenStepsAndASourcedTapeLeaveNoFrames) {
  testing::TempDirectory directory;
  const auto result = runTape(directory.path(), kTapes / "hidden.tape");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  // The sourced tape's own output is not written.
  EXPECT_FALSE(fs::exists(directory / "setup.gif"));
  const auto gif = testing::decodeGIFFile(directory / "hidden.gif");
  ASSERT_TRUE(gif) << result.output;
  EXPECT_EQ(gif->width, 600);
  EXPECT_EQ(gif->height, 300);
  // Only what follows Show: 10 characters and Enter at 50 ms and a second of Sleep; the hidden
  // part slept 2.5 s.
  EXPECT_NEAR(seconds(*gif), 11 * 0.05 + 1, 0.1 * 1.55 + 0.05);
  testing::keepArtifact(gif->frames.front(), "tapes", "hidden-first.png");
  if (testing::textRecognitionAvailable()) {
    const std::string first = testing::recognizedText(gif->frames.front());
    EXPECT_THAT(first, Not(HasSubstr("SECRET"))) << first;
    const std::string last = testing::recognizedText(gif->frames.back());
    EXPECT_THAT(last, HasSubstr("echo shown")) << last;
  }
}

TEST(TapeRun, ValidateReportsATapesMistakeWithItsLineAndCaret) {
  testing::TempDirectory directory;
  const fs::path tape = directory / "broken.tape";
  testing::writeFile(tape, "Output demo.gif\nSet Width 800\nType \"ls\"\nSleeep 1s\n");
  const auto result = testing::runCommand(
      testing::brimbleWithStderr("validate " + testing::shellQuote(tape.string())));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("Line 4, Col 1: Unknown command 'Sleeep'; did you mean "
                                       "'Sleep'?\n  Sleeep 1s\n  ^"));
  // `run` stops at the same check, before anything opens or is written.
  const auto run = runTape(directory.path(), tape);
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_FALSE(fs::exists(directory / "demo.gif"));
}

}  // namespace
}  // namespace brimble
