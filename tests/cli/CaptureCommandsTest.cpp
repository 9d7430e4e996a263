// `brimble record` and `brimble still` run the way a user runs them, on a real X display.

#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "BrimbleCore/Capture/PrivateSoundServer.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/Files.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/ImageFiles.h"
#include "tests/Support/Images.h"
#include "tests/Support/MediaProbe.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/X11Helpers.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using testing::brimbleWithStderr;
using testing::runCommand;
using testing::shellQuote;
using testing::TempDirectory;
using testing::TestWindow;

/// Pixels of `image` whose colour is not red, within `tolerance` per channel (JPEG frames shift
/// pure colours slightly).
int notRed(const Image& image, int tolerance = 0) {
  int count = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      const testing::Pixel p = testing::pixelAt(image, x, y);
      count += p.r >= 255 - tolerance && p.g <= tolerance && p.b <= tolerance ? 0 : 1;
    }
  }
  return count;
}

TEST(BrimbleStill, CapturesAnApplicationsWindowARegionAndADisplay) {
  const auto display = x11::HeadlessDisplay::start();
  const TestWindow red({"--color", "ff0000", "--size", "320x200", "--class", "BrimbleCapture"});
  const TestWindow cover(
      {"--color", "00ff00", "--size", "640x480", "--class", "Other", "--position", "0,0"});
  TempDirectory directory;

  const auto app = directory / "app.png";
  auto result =
      runCommand(brimbleWithStderr("still --app brimblecapture -o " + shellQuote(app.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const Image window = testing::readPNG(app);
  EXPECT_EQ(window.width(), 320);
  EXPECT_EQ(window.height(), 200);
  EXPECT_EQ(notRed(window), 0) << "the covered window, captured whole";

  const auto region = directory / "region.png";
  result =
      runCommand(brimbleWithStderr("still --region 10,20,64,32 -o " + shellQuote(region.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(testing::readPNG(region).width(), 64);
  EXPECT_EQ(testing::readPNG(region).height(), 32);

  const auto screen = directory / "screen.png";
  result = runCommand(brimbleWithStderr("still --display 0 -o " + shellQuote(screen.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(testing::readPNG(screen).width(), 1920);

  for (const auto& [arguments, exitCode] :
       std::vector<std::pair<std::string, int>>{{"still --display -o screen.gif", 2},
                                                {"still -o none.png", 2},
                                                {"still --display --app x -o none.png", 2},
                                                {"still --region 1,2,3 -o none.png", 2},
                                                {"still --display 77 -o none.png", 1},
                                                {"still --app no-such-app -o none.png", 1},
                                                {"record --fps 0 --display -o none.gif", 2}}) {
    result = runCommand("cd " + shellQuote(directory.path().string()) + " && " +
                        brimbleWithStderr(arguments));
    EXPECT_EQ(result.exitCode, exitCode) << arguments << ": " << result.output;
  }
  EXPECT_FALSE(fs::exists(directory / "none.png"));
  EXPECT_FALSE(fs::exists(directory / "screen.gif"));
}

TEST(BrimbleRecord, RecordsAWindowForTheDurationIntoAnAnimation) {
  const auto display = x11::HeadlessDisplay::start();
  const TestWindow red({"--color", "ff0000", "--size", "320x200"});
  TempDirectory directory;
  const auto out = directory / "window.gif";
  const auto result = runCommand(brimbleWithStderr("record --window " + std::to_string(red.id()) +
                                                   " --duration 2 --fps 10 --no-cursor -o " +
                                                   shellQuote(out.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_NE(result.output.find(out.string() + ": "), std::string::npos) << result.output;
  const auto decoded = testing::decodeGIFFile(out);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->width, 320);
  EXPECT_EQ(decoded->height, 200);
  int centiseconds = 0;
  for (std::size_t i = 0; i < decoded->frames.size(); ++i) {
    centiseconds += decoded->delaysCentiseconds[i];
    EXPECT_EQ(notRed(decoded->frames[i], 8), 0);
  }
  EXPECT_GE(centiseconds, 170);
  EXPECT_LE(centiseconds, 230);
  // The summary gives the time the file plays, not the time the encode took (labelled apart).
  std::smatch summary;
  ASSERT_TRUE(std::regex_search(result.output, summary,
                                std::regex(R"(plays ([0-9.]+) s \(encoded in ([0-9.]+) s\))")))
      << result.output;
  EXPECT_NEAR(std::stod(summary[1]), centiseconds / 100.0, 0.005) << result.output;
}

/// The power of `frequency` in `samples` (Goertzel's single-bin DFT), per sample.
double powerAt(const std::vector<float>& samples, double frequency, int sampleRate) {
  const double coefficient = 2 * std::cos(2 * M_PI * frequency / sampleRate);
  double previous = 0;
  double beforePrevious = 0;
  for (const float sample : samples) {
    const double current = sample + coefficient * previous - beforePrevious;
    beforePrevious = previous;
    previous = current;
  }
  const double power = previous * previous + beforePrevious * beforePrevious -
                       coefficient * previous * beforePrevious;
  return power / static_cast<double>(samples.size() * samples.size());
}

/// A sine of `frequency` Hz at half scale, `seconds` long (longer than the recording that hears
/// it), playing into `sound` until the returned process ends.
Subprocess playTone(const PrivateSoundServer& sound, const fs::path& directory, double frequency,
                    int seconds) {
  const int rate = 48000;
  const fs::path file = directory / "tone.f32";
  {
    std::ofstream tone(file, std::ios::binary);
    for (int i = 0; i < rate * seconds; ++i) {
      const float sample = static_cast<float>(0.5 * std::sin(2 * M_PI * frequency * i / rate));
      tone.write(reinterpret_cast<const char*>(&sample), sizeof sample);
    }
  }
  SpawnOptions player;
  player.environment = {"PULSE_SERVER=" + sound.address()};
  Subprocess pacat = Subprocess::spawn(
      {"pacat", "--raw", "--format=float32le", "--rate=48000", "--channels=1", file.string()},
      player);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  return pacat;
}

TEST(BrimbleRecord, AnMP4WithAudioHasTheToneThatPlayedAndEndsWithItsFrames) {
  const auto display = x11::HeadlessDisplay::start();
  const TestWindow red({"--color", "ff0000", "--size", "320x200"});
  TempDirectory directory;
  const PrivateSoundServer sound;
  const int rate = 48000;
  const Subprocess player = playTone(sound, directory.path(), 660, 20);

  const auto out = directory / "window.mp4";
  const auto result = runCommand(brimbleWithStderr(
      "record --window " + std::to_string(red.id()) + " --duration 5 --audio-server " +
      sound.address() + " -o " + shellQuote(out.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const auto streams = testing::probeStreams(out);
  const auto video = testing::streamOfType(streams, "video");
  const auto audio = testing::streamOfType(streams, "audio");
  ASSERT_TRUE(video && audio) << result.output;
  EXPECT_EQ(video->codecName, "h264");
  EXPECT_EQ(audio->codecName, "aac");
  EXPECT_EQ(audio->sampleRate, 48000);
  EXPECT_NEAR(video->duration, 5, 0.3);
  EXPECT_NEAR(audio->duration, video->duration, 0.05);
  const std::vector<float> samples = testing::decodeAudio(out, rate);
  EXPECT_NEAR(static_cast<double>(samples.size()) / rate, video->duration, 0.05);
  const double tone = powerAt(samples, 660, rate);
  EXPECT_GT(tone, 0.01);  // a full-length 0.5 sine has 0.0625
  for (const double other : {220.0, 440.0, 1000.0, 1320.0, 3000.0}) {
    EXPECT_GT(tone, 100 * powerAt(samples, other, rate)) << other << " Hz";
  }

  // Sound only goes with MP4, and a missing server is named before anything is recorded.
  const auto gif = runCommand(brimbleWithStderr("record --display --duration 1 --audio -o " +
                                                shellQuote((directory / "sound.gif").string())));
  EXPECT_EQ(gif.exitCode, 2);
  EXPECT_EQ(gif.output,
            "brimble record: --audio records sound for MP4 output; GIF carries no sound (write a "
            ".mp4 file)\n");
  const auto silent =
      runCommand(brimbleWithStderr("record --display --duration 1 --audio-server "
                                   "unix:/nonexistent/native -o " +
                                   shellQuote((directory / "none.mp4").string())));
  EXPECT_EQ(silent.exitCode, 1);
  EXPECT_EQ(silent.output.rfind("brimble record: No sound server to record from (", 0), 0u)
      << silent.output;
  EXPECT_FALSE(fs::exists(directory / "sound.gif"));
  EXPECT_FALSE(fs::exists(directory / "none.mp4"));
}

TEST(BrimbleRun, AScriptsRecordWithAudioSoundsOnlyWhereThatSegmentPlays) {
  TempDirectory directory;
  const PrivateSoundServer sound;
  const int rate = 48000;
  const Subprocess player = playTone(sound, directory.path(), 880, 30);
  // A segment with sound, then one without: the second half of the video is silent.
  const auto out = directory / "demo.mp4";
  testing::writeFile(directory / "demo.brim", "set output \"" + out.string() +
                                                  "\"\nset transition 0\n"
                                                  "record region 0 0 320 200 duration 2 audio\n"
                                                  "record region 0 0 320 200 duration 2\n");
  const auto result = runCommand(
      "PULSE_SERVER=" + sound.address() + " " +
      brimbleWithStderr("run --headless -q " + shellQuote((directory / "demo.brim").string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const auto streams = testing::probeStreams(out);
  const auto video = testing::streamOfType(streams, "video");
  const auto audio = testing::streamOfType(streams, "audio");
  ASSERT_TRUE(video && audio) << result.output;
  EXPECT_NEAR(video->duration, 4, 0.3);
  EXPECT_NEAR(audio->duration, video->duration, 0.05);
  const std::vector<float> samples = testing::decodeAudio(out, rate);
  ASSERT_GT(samples.size(), static_cast<std::size_t>(rate * 3.5));
  // Away from the cut by a quarter second on each side.
  const std::vector<float> first(samples.begin() + rate / 4, samples.begin() + rate * 7 / 4);
  const std::vector<float> second(samples.end() - rate * 7 / 4, samples.end() - rate / 4);
  EXPECT_GT(powerAt(first, 880, rate), 0.01);
  EXPECT_GT(powerAt(first, 880, rate), 100 * powerAt(first, 440, rate));
  EXPECT_LT(powerAt(second, 880, rate), 1e-6);

  // Without a desktop sound server, the script's own private one hears what its programs play.
  const auto privateOut = directory / "private.mp4";
  testing::writeFile(directory / "private.brim",
                     "set output \"" + privateOut.string() + "\"\nrun \"pacat --raw " +
                         "--format=float32le --rate=48000 --channels=1 " +
                         (directory / "tone.f32").string() +
                         " </dev/null >/dev/null 2>&1 &\"\nwait 0.5\n"
                         "record region 0 0 320 200 duration 2 audio\n");
  const auto privately =
      runCommand("PULSE_SERVER=unix:/nonexistent/native " +
                 brimbleWithStderr("run --headless -q --private-sound-server " +
                                   shellQuote((directory / "private.brim").string())));
  ASSERT_EQ(privately.exitCode, 0) << privately.output;
  const std::vector<float> heard = testing::decodeAudio(privateOut, rate);
  ASSERT_GT(heard.size(), static_cast<std::size_t>(rate * 1.5));
  const std::vector<float> middle(heard.begin() + rate / 4, heard.end() - rate / 4);
  EXPECT_GT(powerAt(middle, 880, rate), 0.01);

  // A GIF cannot carry the sound: the line says so before anything is recorded.
  testing::writeFile(directory / "gif.brim",
                     "set output \"" + (directory / "demo.gif").string() +
                         "\"\nrecord region 0 0 320 200 duration 1 audio\n");
  const auto gif = runCommand(
      brimbleWithStderr("run --headless -q " + shellQuote((directory / "gif.brim").string())));
  EXPECT_NE(gif.exitCode, 0);
  EXPECT_NE(gif.output.find("Line 2: 'audio' records sound for MP4 output; GIF, WebP and APNG "
                            "carry no sound, so set the output to a .mp4 file or leave 'audio' "
                            "out"),
            std::string::npos)
      << gif.output;
  EXPECT_FALSE(fs::exists(directory / "demo.gif"));
}

TEST(BrimbleRecord, EffectsSetTheWindowOnABackgroundDrawThePointerAndCutThePause) {
  const auto display = x11::HeadlessDisplay::start();
  TestWindow red({"--color", "ff0000", "--size", "320x200", "--position", "50,50"});
  x11::X11ScreenSource source(display->displayName());
  const ScreenRect frame = source.window(red.id())->frame;
  red.warpPointer(frame.x + 100, frame.y + 80);
  ASSERT_TRUE(testing::eventually([&] {
    return source.pointerPosition() == std::pair{frame.x + 100, frame.y + 80};
  }));
  TempDirectory directory;
  const auto out = directory / "effects.gif";
  const auto result = runCommand(brimbleWithStderr(
      "record --window " + std::to_string(red.id()) +
      " --duration 3 --fps 10 --cursor-smoothing --click-indicators --keystroke-badges "
      "--idle-strategy cut --background '#336699' -o " +
      shellQuote(out.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const auto decoded = testing::decodeGIFFile(out);
  ASSERT_TRUE(decoded);
  EXPECT_GT(decoded->width, 320);
  EXPECT_GT(decoded->height, 200);
  const Image& first = decoded->frames.front();
  const testing::Pixel corner = testing::pixelAt(first, 1, 1);
  EXPECT_NEAR(corner.r, 0x33, 4);
  EXPECT_NEAR(corner.b, 0x99, 4);
  const testing::Pixel middle = testing::pixelAt(first, decoded->width / 2, decoded->height / 2);
  EXPECT_GT(middle.r, 230);
  EXPECT_LT(middle.g, 30);
  // The pointer, taken out of the frames, is drawn back where it was: some pixels in the window
  // near it are not red.
  int drawn = 0;
  const int left = (decoded->width - 320) / 2;
  const int top = (decoded->height - 200) / 2;
  for (int y = top + 75; y < top + 105; ++y) {
    for (int x = left + 95; x < left + 120; ++x) {
      const testing::Pixel p = testing::pixelAt(first, x, y);
      drawn += p.g > 100 || p.r < 100 ? 1 : 0;
    }
  }
  EXPECT_GT(drawn, 20);
  // Nothing moved for 3 s: the pause is cut to half a second.
  const int centiseconds =
      std::accumulate(decoded->delaysCentiseconds.begin(), decoded->delaysCentiseconds.end(), 0);
  EXPECT_GE(centiseconds, 40);
  EXPECT_LE(centiseconds, 70);

  const auto wrong =
      runCommand(brimbleWithStderr("record --window " + std::to_string(red.id()) +
                                   " --background teal -o " + shellQuote(out.string())));
  EXPECT_EQ(wrong.exitCode, 2);
  EXPECT_EQ(wrong.output,
            "brimble record: --background must be a hex colour such as #1a1a2e (got \"teal\")\n");
}

/// `brimble record --headless` of the display in a temporary directory of its own, ended by
/// `end` once it records: the frames taken are encoded, or (a second Ctrl-C) nothing is written,
/// and either way every helper stops and nothing else is left in the temporary directory.
void recordUntil(const std::string& end) {
  SCOPED_TRACE(end);
  TempDirectory directory;
  const auto out = directory / "recording.gif";
  testing::ChildProcess recording({"env", "TMPDIR=" + directory.path().string(), BRIMBLE_BINARY,
                                   "record", "--headless", "--display", "--fps", "20", "-o",
                                   out.string()});
  bool started = false;
  for (int i = 0; i < 500 && !started; ++i) {
    started = recording.errorOutput().find("recording display") != std::string::npos;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_TRUE(started) << recording.errorOutput();
  std::vector<pid_t> helpers;
  pid_t server = 0;
  for (const ProcessInfo& process : liveProcesses()) {
    if (process.parent == recording.pid()) {
      helpers.push_back(process.pid);
      std::string name;
      std::ifstream("/proc/" + std::to_string(process.pid) + "/comm") >> name;
      server = name == "Xvfb" ? process.pid : server;
    }
  }
  EXPECT_EQ(helpers.size(), 3u) << "Xvfb, the session bus and openbox";
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  if (end == "Ctrl-C") {
    recording.signal(SIGINT);
  } else {
    ::kill(server, SIGKILL);
  }
  const auto exitCode = recording.wait(std::chrono::seconds(60));
  ASSERT_TRUE(exitCode) << recording.errorOutput();
  if (end != "Ctrl-C") {
    EXPECT_EQ(*exitCode, 0);
    EXPECT_NE(recording.errorOutput().find("Brimble: capture stopped: Lost the connection to the "
                                           "X display \":"),
              std::string::npos)
        << recording.errorOutput();
  }
  if (*exitCode == 0) {
    const auto decoded = testing::decodeGIFFile(out);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->width, 1920);
    EXPECT_GE(decoded->frames.size(), 1u);
  } else {
    EXPECT_EQ(*exitCode, 130) << recording.errorOutput();
    EXPECT_FALSE(fs::exists(out));
  }
  for (const pid_t pid : helpers) {
    EXPECT_FALSE(processAlive(pid)) << pid;
  }
  for (const auto& entry : fs::directory_iterator(directory.path())) {
    EXPECT_EQ(entry.path(), out) << "left behind";
  }
}

TEST(BrimbleRecord, CtrlCOrALostDisplayLeaveAValidAnimationOrNoneAndNothingElse) {
  recordUntil("Ctrl-C");
  recordUntil("the X server is killed");
}

TEST(BrimbleRecord, RecordAndTheMCPServerSweepFrameFilesThatCrashedRunsLeft) {
  for (const std::string command :
       {"record --headless --region 0,0,64,64 --duration 0.2 -o out.gif", "mcp-server"}) {
    TempDirectory directory;
    const auto orphan = directory / "brimble-frames-6F1C2D8E-0B4A-4C3E-9F57-2A1D3C4B5E6F";
    const auto recent = directory / "brimble-frames-00000000-0B4A-4C3E-9F57-2A1D3C4B5E6F";
    std::ofstream(orphan) << "frames of a run that crashed";
    std::ofstream(recent) << "frames of a run going on";
    fs::last_write_time(orphan, fs::file_time_type::clock::now() - std::chrono::hours(2));
    const auto result = runCommand("cd " + shellQuote(directory.path().string()) +
                                   " && TMPDIR=" + shellQuote(directory.path().string()) + " " +
                                   brimbleWithStderr(command + " < /dev/null"));
    EXPECT_EQ(result.exitCode, 0) << command << ": " << result.output;
    EXPECT_NE(
        result.output.find("Brimble: swept 1 orphaned frame-store file(s) from a prior session\n"),
        std::string::npos)
        << command << ": " << result.output;
    EXPECT_FALSE(fs::exists(orphan)) << command;
    EXPECT_TRUE(fs::exists(recent)) << command;
  }
}

}  // namespace
}  // namespace brimble
