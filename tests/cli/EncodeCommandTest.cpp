// The `brimble` binary run the way a user runs it.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Encoding/TestPattern.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/Files.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/Images.h"
#include "tests/Support/MediaProbe.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::brimbleCommand;
using testing::runCommand;
using testing::shellQuote;
using testing::TempDirectory;

TEST(BrimbleEncode, TestPatternBecomesAGIFAndASummaryLine) {
  TempDirectory directory;
  const auto out = directory / "demo.gif";
  const auto result = runCommand(
      brimbleCommand("encode --test-pattern --no-dedup --frames 12 --size 160x100 --fps 20 -o " +
                     shellQuote(out.string()) + " 2>&1"));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const std::string expectedStart = out.string() + ": " +
                                    std::to_string(std::filesystem::file_size(out)) +
                                    " bytes, 12 frames, 160x100, ";
  EXPECT_EQ(result.output.substr(0, expectedStart.size()), expectedStart) << result.output;
  // 12 frames at 20 fps play 0.6 s, however long the encode took.
  EXPECT_NE(result.output.find(", plays 0.60 s (encoded in "), std::string::npos) << result.output;

  const auto decoded = testing::decodeGIFFile(out);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->frames.size(), 12u);
  EXPECT_EQ(decoded->delaysCentiseconds.front(), 5);
  EXPECT_EQ(decoded->plays, 0);
  // Above 50 fps frames would be 1 or 2 cs; browsers play 1 cs as 10. Every other frame goes,
  // the length stays (12 frames at 60 fps: 20 cs).
  const auto fast = directory / "fast.gif";
  ASSERT_EQ(runCommand(brimbleCommand("encode --test-pattern --no-dedup --frames 12 --size 80x50 "
                                      "--fps 60 -o " +
                                      shellQuote(fast.string())))
                .exitCode,
            0);
  const auto played = testing::decodeGIFFile(fast);
  ASSERT_TRUE(played);
  EXPECT_EQ(played->delaysCentiseconds, (std::vector<int>{3, 4, 3, 3, 4, 3}));
  std::filesystem::remove(fast);
  // Only the finished file is left behind.
  EXPECT_EQ(testing::entriesIn(directory.path()), 1);
}

void writeBytes(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes) {
  testing::writeFile(path, std::string(bytes.begin(), bytes.end()));
}

void writePNG(const std::filesystem::path& path, const Image& image) {
  writeBytes(path, encodePNG(image));
}

/// Frames named so that name order differs from creation order, each a solid colour.
void writeNumberedFrames(const std::filesystem::path& directory) {
  writePNG(directory / "frame-2.png", testing::solidImage(40, 30, {0, 200, 0}));
  writePNG(directory / "frame-1.png", testing::solidImage(40, 30, {200, 0, 0}));
  writePNG(directory / "frame-3.png", testing::solidImage(40, 30, {0, 0, 200}));
  std::ofstream(directory / "notes.txt") << "not a frame";
}

std::vector<std::uint8_t> redsOf(const testing::DecodedGIF& gif) {
  std::vector<std::uint8_t> reds;
  for (const Image& frame : gif.frames) {
    reds.push_back(testing::pixelAt(frame, 5, 5).r);
  }
  return reds;
}

TEST(BrimbleEncode, MaxSizeReEncodesUntilTheFileFitsAndSaysAtWhichPass) {
  TempDirectory directory;
  const auto out = directory / "small.gif";
  const std::string encode = "encode --test-pattern --no-dedup --frames 24 --size 400x250 ";
  const auto full = runCommand(brimbleCommand(encode + "-o " + shellQuote(out.string())));
  ASSERT_EQ(full.exitCode, 0) << full.output;
  ASSERT_GT(std::filesystem::file_size(out), 20u * 1024) << "must start over the budget";

  const auto result =
      runCommand(brimbleCommand(encode + "--max-size 20 -o " + shellQuote(out.string()) + " 2>&1"));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const std::string marker = "KB fits the 20 KB budget at pass ";
  const auto at = result.output.find(marker);
  ASSERT_NE(at, std::string::npos) << result.output;
  const int pass = std::stoi(result.output.substr(at + marker.size()));
  EXPECT_GT(pass, 1);
  // Which reduction each pass makes is the size budget encoder's own test.
  EXPECT_LE(std::filesystem::file_size(out), 20u * 1024);

  const auto tooSmall =
      runCommand(brimbleCommand(encode + "--max-size 1 -o " + shellQuote(out.string()) + " 2>&1"));
  EXPECT_EQ(tooSmall.exitCode, 0) << tooSmall.output;
  EXPECT_NE(tooSmall.output.find("is still over the 1 KB budget after 6 passes; the last pass was "
                                 "kept"),
            std::string::npos)
      << tooSmall.output;
  EXPECT_TRUE(std::filesystem::exists(out));
}

TEST(BrimbleEncode, FramesComeInNameOrderFromADirectoryAndInTheOrderGivenAsFiles) {
  TempDirectory directory;
  std::filesystem::create_directory(directory / "frames");
  writeNumberedFrames(directory / "frames");
  const auto out = directory / "clip.gif";
  const auto frame = [&](const char* name) {
    return shellQuote((directory / "frames" / name).string());
  };
  for (const auto& [inputs, reds] :
       {std::pair{shellQuote((directory / "frames").string()),
                  std::vector<std::uint8_t>{200, 0, 0}},
        {frame("frame-3.png") + " " + frame("frame-1.png"), std::vector<std::uint8_t>{0, 200}}}) {
    const auto result = runCommand(
        brimbleCommand("encode --fps 10 " + inputs + " -o " + shellQuote(out.string()) + " 2>&1"));
    ASSERT_EQ(result.exitCode, 0) << result.output;
    const auto decoded = testing::decodeGIFFile(out);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(redsOf(*decoded), reds);
    EXPECT_EQ(decoded->delaysCentiseconds, std::vector<int>(reds.size(), 10));
  }
}

/// A folder of three frames whose middle one is `middle`.
std::string framesAround(const std::filesystem::path& folder,
                         const std::vector<std::uint8_t>& middle, const std::string& extension) {
  std::filesystem::create_directories(folder);
  writePNG(folder / "1.png", testing::solidImage(160, 100, {200, 0, 0}));
  writeBytes(folder / ("2" + extension), middle);
  writePNG(folder / "3.png", testing::solidImage(160, 100, {0, 0, 200}));
  return (folder / ("2" + extension)).string();
}

TEST(BrimbleEncode, BadFramesAreExplainedAndNothingIsWritten) {
  TempDirectory directory;
  writePNG(directory / "a.png", testing::solidImage(40, 30, {1, 2, 3}));
  writePNG(directory / "b.png", testing::solidImage(41, 30, {1, 2, 3}));
  std::ofstream(directory / "c.png") << "not really a PNG";
  const auto a = (directory / "a.png").string();
  const auto b = (directory / "b.png").string();
  const auto c = (directory / "c.png").string();
  std::filesystem::create_directory(directory / "empty");
  // Cut off three quarters of the way: the header still reads, the pixels do not.
  const auto png = encodePNG(testPatternFrame(0, 1, 160, 100));
  const auto jpeg = encodeJPEG(testPatternFrame(0, 1, 160, 100), 85);
  const auto cutPNG =
      framesAround(directory / "cut-png", {png.begin(), png.begin() + png.size() * 3 / 4}, ".png");
  const auto cutJPEG = framesAround(directory / "cut-jpeg",
                                    {jpeg.begin(), jpeg.begin() + jpeg.size() * 3 / 4}, ".jpg");
  const std::string damaged = ": the image is damaged or cut short";
  struct Case {
    std::string inputs;
    std::string message;
  };
  const std::vector<Case> cases = {
      {shellQuote(a) + " " + shellQuote(b),
       "frames of mixed sizes: " + a + " is 40x30 but " + b + " is 41x30"},
      {shellQuote(a) + " " + shellQuote(c), c + ": not a PNG or JPEG image"},
      {shellQuote((directory / "missing").string()),
       (directory / "missing").string() + ": no such file or directory"},
      {shellQuote((directory / "empty").string()),
       (directory / "empty").string() + ": no PNG or JPEG frames in this directory"},
      {shellQuote((directory / "cut-png").string()),
       "cannot read " + cutPNG + damaged + " (--skip-bad-frames leaves it out)"},
      {shellQuote((directory / "cut-jpeg").string()),
       "cannot read " + cutJPEG + damaged + " (--skip-bad-frames leaves it out)"},
  };
  const auto out = directory / "clip.gif";
  for (const Case& bad : cases) {
    const auto result = runCommand(
        brimbleCommand("encode " + bad.inputs + " -o " + shellQuote(out.string()) + " 2>&1"));
    EXPECT_EQ(result.exitCode, 1) << result.output;
    EXPECT_EQ(result.output, "brimble encode: " + bad.message + "\n");
    EXPECT_FALSE(std::filesystem::exists(out));
  }
  // Skipping is a choice, and each skipped frame is named.
  for (const auto& [folder, file] : {std::pair{"cut-png", cutPNG}, {"cut-jpeg", cutJPEG}}) {
    const auto result = runCommand(
        brimbleCommand("encode --skip-bad-frames " + shellQuote((directory / folder).string()) +
                       " -o " + shellQuote(out.string()) + " 2>&1 >/dev/null"));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output, "brimble encode: warning: skipped " + file + damaged + "\n");
    const auto decoded = testing::decodeGIFFile(out);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->frames.size(), 2u);
  }
}

TEST(BrimbleEncode, SkipBadFramesLeavesOutEmptyAndGarbageFilesAndSaysWhenNoneIsLeft) {
  TempDirectory directory;
  std::mt19937 random(23);
  std::vector<std::uint8_t> garbage(4096);
  for (std::uint8_t& byte : garbage) {
    byte = static_cast<std::uint8_t>(random() & 0xFF);
  }
  // Written by a crashed exporter: a file created but never filled, and one of noise.
  const auto badFrames = [&](const std::filesystem::path& folder) {
    std::filesystem::create_directory(folder);
    writeBytes(folder / "2.png", {});
    writeBytes(folder / "3.jpg", garbage);
    return std::pair{(folder / "2.png").string(), (folder / "3.jpg").string()};
  };
  const auto [empty, noise] = badFrames(directory / "mixed");
  writePNG(directory / "mixed" / "1.png", testing::solidImage(40, 30, {200, 0, 0}));
  writePNG(directory / "mixed" / "4.png", testing::solidImage(40, 30, {0, 0, 200}));
  const auto out = directory / "clip.gif";
  const auto skipped = runCommand(
      brimbleCommand("encode --skip-bad-frames " + shellQuote((directory / "mixed").string()) +
                     " -o " + shellQuote(out.string()) + " 2>&1 >/dev/null"));
  EXPECT_EQ(skipped.exitCode, 0) << skipped.output;
  EXPECT_EQ(skipped.output, "brimble encode: warning: skipped " + empty +
                                ": not a PNG or JPEG image\nbrimble encode: warning: skipped " +
                                noise + ": not a PNG or JPEG image\n");
  const auto decoded = testing::decodeGIFFile(out);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->frames.size(), 2u);

  // Nothing left to encode: said once, nothing written.
  std::filesystem::remove(out);
  const auto [allEmpty, allNoise] = badFrames(directory / "bad");
  const auto none = runCommand(brimbleCommand("encode --skip-bad-frames " +
                                              shellQuote((directory / "bad").string()) + " -o " +
                                              shellQuote(out.string()) + " 2>&1"));
  EXPECT_EQ(none.exitCode, 1) << none.output;
  EXPECT_EQ(none.output, "brimble encode: warning: skipped " + allEmpty +
                             ": not a PNG or JPEG image\nbrimble encode: warning: skipped " +
                             allNoise +
                             ": not a PNG or JPEG image\nbrimble encode: no frame could be "
                             "decoded; nothing was written\n");
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(BrimbleEncode, TheOutputNameOrFormatOptionPicksTheFormat) {
  TempDirectory directory;
  const std::string encode = "encode --test-pattern --frames 4 --size 80x50 ";
  for (const auto& [arguments, probe] :
       {std::pair{"-o clip.png", "apng\n"}, {"--format apng -o clip.anim", "apng\n"}}) {
    ASSERT_EQ(runCommand("cd " + shellQuote(directory.path().string()) + " && " +
                         brimbleCommand(encode + arguments))
                  .exitCode,
              0);
    const std::string file = std::string(arguments).substr(std::string(arguments).rfind(' ') + 1);
    EXPECT_EQ(runCommand("ffprobe -v error -show_entries stream=codec_name -of csv=p=0 " +
                         shellQuote((directory / file).string()))
                  .output,
              probe);
  }
  // WebP is lossless unless asked otherwise: smaller and exact on screen content.
  const auto webp = directory / "clip.webp";
  ASSERT_EQ(runCommand(brimbleCommand(encode + "-o " + shellQuote(webp.string()))).exitCode, 0);
  const auto info = runCommand("webpmux -info " + shellQuote(webp.string())).output;
  EXPECT_NE(info.find("Number of frames: 4"), std::string::npos) << info;
  EXPECT_EQ(info.find("lossy"), std::string::npos) << info;
}

TEST(BrimbleProcess, TrimsAndCropsAndExplainsBadRanges) {
  TempDirectory directory;
  const auto in = directory / "clip.gif";
  ASSERT_EQ(runCommand(brimbleCommand("encode --test-pattern --no-dedup --frames 10 --size 200x120 "
                                      "--fps 10 -o " +
                                      shellQuote(in.string())))
                .exitCode,
            0);
  const auto original = testing::decodeGIFFile(in);
  ASSERT_TRUE(original);
  const auto out = directory / "cut.gif";
  const auto result = runCommand(brimbleCommand(
      "process " + shellQuote(in.string()) + " --no-dedup --trim 0.3:0.7 --crop 20,10,100,60 -o " +
      shellQuote(out.string()) + " 2>&1"));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const auto cut = testing::decodeGIFFile(out);
  ASSERT_TRUE(cut);
  EXPECT_EQ(cut->width, 100);
  EXPECT_EQ(cut->height, 60);
  // Frames 3 to 6 of 10 cs each, cut out of the original at (20,10).
  ASSERT_EQ(cut->frames.size(), 4u);
  EXPECT_EQ(cut->delaysCentiseconds, (std::vector<int>{10, 10, 10, 10}));
  for (int i = 0; i < 4; ++i) {
    const Image& frame = cut->frames[static_cast<std::size_t>(i)];
    const Image& source = original->frames[static_cast<std::size_t>(i + 3)];
    for (int y : {0, 30, 59}) {
      for (int x : {0, 50, 99}) {
        const auto a = frame.row(y).subspan(static_cast<std::size_t>(x) * 4, 3);
        const auto b = source.row(y + 10).subspan(static_cast<std::size_t>(x + 20) * 4, 3);
        EXPECT_TRUE(std::equal(a.begin(), a.end(), b.begin())) << i << " at " << x << "," << y;
      }
    }
  }

  const auto late =
      runCommand(brimbleCommand("process " + shellQuote(in.string()) + " --trim 5: -o " +
                                shellQuote(out.string()) + " 2>&1"));
  EXPECT_EQ(late.exitCode, 1);
  EXPECT_EQ(late.output,
            "brimble process: Can't trim from 5.00 s to 1.00 s: the clip is 1.00 s long and the "
            "start must come before the end.\n");
  const auto wide =
      runCommand(brimbleCommand("process " + shellQuote(in.string()) + " --crop 150,0,100,20 -o " +
                                shellQuote(out.string()) + " 2>&1"));
  EXPECT_EQ(wide.exitCode, 1);
  EXPECT_EQ(wide.output,
            "brimble process: Can't crop to 150,0 100x20: the rectangle must lie inside the "
            "200x120 frames.\n");
  const auto bad =
      runCommand(brimbleCommand("process " + shellQuote(in.string()) + " --crop 1,2,3 2>&1"));
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_EQ(bad.output,
            "brimble process: --crop must be X,Y,WIDTH,HEIGHT in pixels (got \"1,2,3\")\n");
}

TEST(BrimbleProcess, ChangesSpeedAndSizeAndWritesBesideTheInput) {
  TempDirectory directory;
  const auto in = directory / "clip.gif";
  ASSERT_EQ(
      runCommand(
          brimbleCommand(
              "encode --test-pattern --no-dedup --frames 6 --size 200x120 --fps 10 --loop 3 -o " +
              shellQuote(in.string())))
          .exitCode,
      0);
  const auto result = runCommand(
      brimbleCommand("process " + shellQuote(in.string()) + " --speed 2 --max-width 100 2>&1"));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const auto out = directory / "clip.processed.gif";
  EXPECT_EQ(result.output.rfind(out.string() + ": ", 0), 0u) << result.output;
  const auto decoded = testing::decodeGIFFile(out);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->width, 100);
  EXPECT_EQ(decoded->height, 60);
  EXPECT_EQ(decoded->delaysCentiseconds, std::vector<int>(6, 5));
  EXPECT_EQ(decoded->plays, 3);

  // Sped up past what browsers play (they show 0 and 1 cs as 10): frames merge so that every
  // delay stays at 2 cs or more, and the whole lasts a tenth (a seventh) of the 60 cs input.
  for (const auto& [speed, total] : {std::pair{"10", 6}, {"7", 9}}) {
    const auto fast = directory / "fast.gif";
    ASSERT_EQ(runCommand(brimbleCommand("process " + shellQuote(in.string()) + " --speed " + speed +
                                        " -o " + shellQuote(fast.string())))
                  .exitCode,
              0);
    const auto played = testing::decodeGIFFile(fast);
    ASSERT_TRUE(played);
    EXPECT_GE(
        *std::min_element(played->delaysCentiseconds.begin(), played->delaysCentiseconds.end()), 2)
        << speed;
    EXPECT_EQ(
        std::accumulate(played->delaysCentiseconds.begin(), played->delaysCentiseconds.end(), 0),
        total)
        << speed;
  }

  // In place: the input is replaced only once the new file is complete.
  const auto again = runCommand(brimbleCommand("process " + shellQuote(in.string()) + " -o " +
                                               shellQuote(in.string()) + " --speed 0.5 2>&1"));
  ASSERT_EQ(again.exitCode, 0) << again.output;
  const auto slower = testing::decodeGIFFile(in);
  ASSERT_TRUE(slower);
  EXPECT_EQ(slower->delaysCentiseconds, std::vector<int>(6, 20));

  const auto missing = runCommand(
      brimbleCommand("process " + shellQuote((directory / "nope.gif").string()) + " 2>&1"));
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.output, "brimble process: cannot read " + (directory / "nope.gif").string() +
                                ": No such file or directory\n");
}

TEST(BrimbleProcess, IdleStrategiesShortenPausesAndDedupeKeepsTheTime) {
  TempDirectory directory;
  const auto in = directory / "paused.gif";
  // 0.5 s of one picture, a 4 s pause on the next, then 0.5 s of a third.
  const auto frame = [](std::uint8_t shade, double delay) {
    return ProcessedFrame{testing::solidImage(40, 20, {shade, 60, 90}), delay, std::nullopt};
  };
  const std::vector<ProcessedFrame> frames = {frame(20, 0.5), frame(120, 1), frame(120, 3),
                                              frame(220, 0.5)};
  ClipEncoder::encode(frames, in, {.frameDiffing = false});
  const auto processed = [&](const std::string& options) {
    const auto out = directory / "out.gif";
    const auto result =
        runCommand(brimbleCommand("process " + shellQuote(in.string()) + " -o " +
                                  shellQuote(out.string()) + " " + options + " 2>&1"));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    const auto decoded = testing::decodeGIFFile(out);
    return decoded ? std::accumulate(decoded->delaysCentiseconds.begin(),
                                     decoded->delaysCentiseconds.end(), 0)
                   : -1;
  };
  EXPECT_EQ(processed("--no-dedupe"), 500);
  EXPECT_EQ(processed("--dedupe"), 500);
  EXPECT_EQ(processed("--idle-strategy cut"), 150);
  EXPECT_EQ(processed("--idle-strategy fade --idle-threshold 2.5"), 150);
  EXPECT_EQ(processed("--idle-strategy ramp"), 150);
  EXPECT_EQ(processed("--idle-strategy cut --idle-threshold 5"), 500);
  const auto wrong = runCommand(
      brimbleCommand("process " + shellQuote(in.string()) + " --idle-strategy skip 2>&1"));
  EXPECT_EQ(wrong.exitCode, 2);
  EXPECT_EQ(wrong.output,
            "brimble process: unknown idle strategy \"skip\" (use cut, ramp or fade)\n");
}

TEST(BrimbleEncode, AGIFProcessedIntoMP4KeepsItsTimesAndAnOddSizeIsPadded) {
  TempDirectory directory;
  const auto in = directory / "steps.gif";
  const auto frame = [](std::uint8_t shade, double delay) {
    return ProcessedFrame{testing::solidImage(45, 31, {shade, 60, 90}), delay, std::nullopt};
  };
  ClipEncoder::encode(
      std::vector<ProcessedFrame>{frame(20, 0.5), frame(120, 0.07), frame(220, 1.2)}, in,
      {.frameDiffing = false});
  const auto out = directory / "steps.mp4";
  const auto result = runCommand(brimbleCommand("process " + shellQuote(in.string()) + " -o " +
                                                shellQuote(out.string()) +
                                                " --speed 2 --crf 18 --preset fast 2>&1"));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(
      result.output.rfind(out.string() + ": " + std::to_string(std::filesystem::file_size(out)) +
                              " bytes, 3 frames, 46x32, ",
                          0),
      0u)
      << result.output;
  const auto video = testing::streamOfType(testing::probeStreams(out), "video");
  ASSERT_TRUE(video);
  EXPECT_EQ(video->codecName, "h264");
  EXPECT_EQ(video->width, 46);
  EXPECT_EQ(video->height, 32);
  // Twice as fast: 0.25 s, 0.035 s (GIF delays are whole centiseconds: 0.07 s) and 0.6 s.
  EXPECT_EQ(video->frameTimes, (std::vector<double>{0, 0.25, 0.285}));
  EXPECT_NEAR(video->duration, 0.885, 0.0011);
}

TEST(BrimbleEncode, CtrlCStopsCleanlyAndKeepsTheOldFile) {
  for (const std::string name : {"big.gif", "big.mp4"}) {
    TempDirectory directory;
    const auto out = directory / name;
    std::ofstream(out) << "yesterday's recording";
    testing::ChildProcess encode(
        {BRIMBLE_BINARY, "encode", "--test-pattern", "--frames", "100000", "-o", out.string()});
    // Wait until the partial file shows the encode is under way.
    for (int i = 0; i < 200 && testing::entriesIn(directory.path()) < 2; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    encode.signal(SIGINT);
    EXPECT_EQ(encode.wait(std::chrono::seconds(10)), 130) << name;
    EXPECT_EQ(encode.errorOutput(), "brimble encode: interrupted; nothing was written\n") << name;
    EXPECT_EQ(testing::readFile(out), "yesterday's recording") << name;
    EXPECT_EQ(testing::entriesIn(directory.path()), 1) << name;
  }
}

TEST(Brimble, HelpAndVersionSucceed) {
  const auto version = runCommand(brimbleCommand("--version"));
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_EQ(version.output.rfind("brimble ", 0), 0u) << version.output;
  EXPECT_EQ(runCommand(brimbleCommand("--help")).exitCode, 0);
}

}  // namespace
}  // namespace brimble
