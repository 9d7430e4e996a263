// `brimble run` as a user runs it: whole scripts in the embedded display, driving a real xterm
// and a real Chromium, checked with independent decoders.

#include "tests/Support/RunCommand.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Support/ProcessTable.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/Files.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/Images.h"
#include "tests/Support/TempDirectory.h"
#include "tests/Support/X11Helpers.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using testing::brimbleWithStderr;
using testing::runCommand;
using testing::shellQuote;
using testing::TempDirectory;

fs::path writeScript(const TempDirectory& directory, const std::string& text) {
  const fs::path script = directory / "script.brim";
  std::ofstream(script) << text;
  return script;
}

// The frame of `gif` shown at `seconds` into its playback.
const Image& frameAt(const testing::DecodedGIF& gif, double seconds) {
  int elapsed = 0;
  for (std::size_t i = 0; i < gif.frames.size(); ++i) {
    elapsed += gif.delaysCentiseconds[i];
    if (elapsed > seconds * 100) {
      return gif.frames[i];
    }
  }
  return gif.frames.back();
}

// Where `middle` lies between `a` and `b`, 0 at `a` and 1 at `b`: the median over the pixels
// where they differ clearly, with the share of such pixels.
struct Blend {
  double position = 0;
  double differing = 0;
};
Blend blendBetween(const Image& a, const Image& b, const Image& middle) {
  std::vector<double> positions;
  for (int y = 0; y < a.height(); ++y) {
    for (int x = 0; x < a.width(); ++x) {
      const testing::Pixel p = testing::pixelAt(a, x, y);
      const testing::Pixel q = testing::pixelAt(b, x, y);
      const testing::Pixel m = testing::pixelAt(middle, x, y);
      const double d[3] = {double(q.r - p.r), double(q.g - p.g), double(q.b - p.b)};
      const double length = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
      if (length < 100.0 * 100.0) {
        continue;
      }
      positions.push_back(((m.r - p.r) * d[0] + (m.g - p.g) * d[1] + (m.b - p.b) * d[2]) / length);
    }
  }
  if (positions.empty()) {
    return {};
  }
  std::nth_element(positions.begin(), positions.begin() + positions.size() / 2, positions.end());
  return {positions[positions.size() / 2],
          static_cast<double>(positions.size()) / (a.width() * a.height())};
}

// The seconds the progress lines report for each recorded segment.
std::vector<double> segmentSeconds(const std::string& output) {
  std::vector<double> seconds;
  const std::regex line(R"(segment \d+: \d+ frames in ([0-9.]+) s)");
  for (auto it = std::sregex_iterator(output.begin(), output.end(), line);
       it != std::sregex_iterator(); ++it) {
    seconds.push_back(std::stod((*it)[1]));
  }
  return seconds;
}

TEST(BrimbleRun, TwoTerminalSegmentsCrossfadeIntoAnAnimationOfWhatWasOnScreen) {
  TempDirectory directory;
  const fs::path out = directory / "two.gif";
  const fs::path still = directory / "still.png";
  const fs::path script = writeScript(directory, R"(set fps 12
set transition 0.5
set max-width 1200
set include-title-bar false
open "Terminal"
wait 0.5
capture-window app "Terminal" as $term
record $term continue
type "echo ONE" enter
wait 1
stop
key "ctrl+l"
type "printf 'TWO %.0s' 1 2 3 4 5 6" enter
wait 0.5
run ")" + testing::brimbleCommand("still --window $term -o " + shellQuote(still.string())) +
                                                     R"("
record $term duration 1.5
)");
  const auto result = runCommand(brimbleWithStderr("run --headless -o " + shellQuote(out.string()) +
                                                   " " + shellQuote(script.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_NE(result.output.find(out.string() + ": "), std::string::npos) << result.output;
  std::smatch summary;
  ASSERT_TRUE(std::regex_search(result.output, summary,
                                std::regex(R"(plays ([0-9.]+) s \(encoded in ([0-9.]+) s\))")))
      << result.output;
  const std::vector<double> seconds = segmentSeconds(result.output);
  ASSERT_EQ(seconds.size(), 2u) << result.output;
  EXPECT_NEAR(seconds[1], 1.5, 0.1);

  // ffprobe, an independent decoder, agrees on the timeline: both segments, less the fade. Each
  // segment's last frame, taken as it stopped, still shows for a frame time (1/12 s), and the
  // whole is a whole number of frames.
  const auto probed = runCommand("ffprobe -v error -show_entries format=duration -of csv=p=0 " +
                                 shellQuote(out.string()));
  ASSERT_EQ(probed.exitCode, 0);
  EXPECT_NEAR(std::stod(summary[1]), std::stod(probed.output), 0.02) << result.output;
  const double expected = seconds[0] + seconds[1] - 0.5;
  EXPECT_GE(std::stod(probed.output), expected - 0.06) << result.output;
  EXPECT_LE(std::stod(probed.output), expected + 3 / 12.0 + 0.06) << result.output;

  const auto gif = testing::decodeGIFFile(out);
  ASSERT_TRUE(gif);
  const Image screen = *decodeImage(readFileBytes(still));
  ASSERT_EQ(gif->width, screen.width());
  ASSERT_EQ(gif->height, screen.height());
  // The end of the animation is what the screen showed (a still taken by the script itself),
  // typed text and its output included.
  EXPECT_GT(testing::psnr(gif->frames.back(), screen), 28);
  // The fade ends as the first segment does (a frame time after its last frame): before it the
  // first screen, after it the second, and halfway through both show through.
  const double fadeEnd = seconds[0] + 1 / 12.0;
  const Image& first = frameAt(*gif, fadeEnd - 0.75);
  const Image& second = frameAt(*gif, fadeEnd + 0.2);
  const Blend middle = blendBetween(first, second, frameAt(*gif, fadeEnd - 0.25));
  EXPECT_GT(middle.differing, 0.005) << "the segments show different screens";
  EXPECT_NEAR(middle.position, 0.5, 0.25);
}

TEST(BrimbleRun, HiddenSetupStepsLeaveNoFramesAndOneRenderGoesToEveryOutput) {
  TempDirectory directory;
  const fs::path gif = directory / "demo.gif";
  const fs::path mp4 = directory / "demo.mp4";
  const fs::path frames = directory / "frames";
  const fs::path shown = directory / "shown.png";
  const fs::path greeting = directory / "greeting.txt";
  std::ofstream(directory / "setup.brim")
      << "open \"Terminal\"\nwait 0.5\ncapture-window app \"Terminal\" as $term\n";
  const fs::path script = writeScript(
      directory,
      "set fps 12\nset transition 0\nset max-width 1200\nset include-title-bar false\n"
      "output \"" +
          gif.string() + "\"\noutput \"" + mp4.string() + "\"\noutput \"" + frames.string() +
          "/\"\nrequire \"sh\"\n"
          "env GREETING \"hello from env\"\ninclude \"setup.brim\"\n"
          "record $term continue\nwait 1\nhide\n"
          "type \"printf 'SETUP %.0s' 1 2 3 4 5 6 7 8\" enter\nwait 2\n"
          "run \"printf '%s' \\\"$GREETING\\\" > " +
          greeting.string() +
          "\"\n"
          "key ctrl+l\nwait 1\nshow\nscreenshot \"" +
          shown.string() +
          "\"\n"
          "wait 1\nstop\n");
  const auto result =
      runCommand(brimbleWithStderr("run --headless " + shellQuote(script.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  // The summary names each output.
  for (const std::string& name : {gif.string(), mp4.string(), frames.string() + "/"}) {
    EXPECT_NE(result.output.find(name + ": "), std::string::npos) << name << "\n" << result.output;
  }
  EXPECT_FALSE(fs::exists(directory / "output.gif"));
  std::ifstream greetingFile(greeting);
  const std::string greetingText{std::istreambuf_iterator<char>(greetingFile),
                                 std::istreambuf_iterator<char>()};
  EXPECT_EQ(greetingText, "hello from env");

  // The 3 s hidden are in none of the outputs: they play the two visible seconds, give or take
  // the last frame of each part.
  const std::vector<double> seconds = segmentSeconds(result.output);
  ASSERT_EQ(seconds.size(), 2u) << result.output;
  EXPECT_NEAR(seconds[0], 1, 0.15);
  EXPECT_NEAR(seconds[1], 1, 0.3);
  const auto probed = [&](const fs::path& file) {
    const auto duration = runCommand("ffprobe -v error -show_entries format=duration -of csv=p=0 " +
                                     shellQuote(file.string()));
    EXPECT_EQ(duration.exitCode, 0) << file;
    return std::stod(duration.output);
  };
  const double gifSeconds = probed(gif);
  EXPECT_NEAR(gifSeconds, seconds[0] + seconds[1], 0.25);
  EXPECT_NEAR(probed(mp4), gifSeconds, 0.15);
  const long frameFiles = std::distance(fs::directory_iterator(frames), fs::directory_iterator());
  EXPECT_NEAR(frameFiles / 12.0, gifSeconds, 0.15);

  // What the viewer sees after the hidden part is the screen at `show` (which the script took),
  // the setup's output cleared away, not anything typed while hidden.
  const auto decoded = testing::decodeGIFFile(gif);
  ASSERT_TRUE(decoded);
  const Image screen = *decodeImage(readFileBytes(shown));
  ASSERT_EQ(decoded->width, screen.width());
  ASSERT_EQ(decoded->height, screen.height());
  const Image& afterShow = frameAt(*decoded, seconds[0] + 0.3);
  EXPECT_GT(testing::psnr(afterShow, screen), 28);
  const Image firstPNG = *decodeImage(readFileBytes(frames / "frame-00001.png"));
  EXPECT_GT(testing::psnr(firstPNG, decoded->frames.front()), 28);
}

TEST(BrimbleRun, EnvReachesTheShellOfATerminalTheScriptOpens) {
  TempDirectory directory;
  const fs::path plain = directory / "plain.txt";
  const fs::path dressed = directory / "dressed.txt";
  // One terminal as the system has it, one dressed by the script's settings; each shell writes
  // what it sees of the variable into a file.
  const fs::path script =
      writeScript(directory,
                  "set fps 12\nenv DEMO_GREETING \"hello from env\"\nopen \"Terminal\"\n"
                  "capture-window app \"Terminal\" as $term\nrecord $term continue\n"
                  "type \"echo \\\"\\$DEMO_GREETING\\\" > " +
                      plain.string() +
                      "\" enter\nwait 0.5\nstop\n"
                      "set terminal-font-size 15\nopen \"Terminal\"\n"
                      "type \"echo \\\"\\$DEMO_GREETING\\\" > " +
                      dressed.string() + "\" enter\nwait 0.5\n");
  const auto result = runCommand(brimbleWithStderr("run --headless -q -o " +
                                                   shellQuote((directory / "out.gif").string()) +
                                                   " " + shellQuote(script.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(testing::readFile(plain), "hello from env\n");
  EXPECT_EQ(testing::readFile(dressed), "hello from env\n");
}

TEST(BrimbleRun, ElementTargetsAndDialogsOfANativeAppGoThroughTheAccessibilityBus) {
  TempDirectory directory;
  const fs::path name = directory / "name.txt";
  const fs::path answer = directory / "answer.txt";
  const fs::path script = writeScript(directory, R"(set fps 12
run "zenity --entry --title Greeter --text 'Your name:' > )" +
                                                     name.string() + R"( &"
capture-window app "zenity" as $dialog
record $dialog continue
wait-for role:text timeout 10
fill role:text "Ada Lovelace"
click text:OK
wait 0.5
run "(zenity --question --text 'Ship it?' --ok-label Ship --cancel-label Wait; echo $? > )" +
                                                     answer.string() + R"() &"
capture-window app "zenity" as $question
wait-for text:Ship timeout 10
click-button-in-dialog app "zenity" button "Ship"
)");
  const auto result = runCommand(brimbleWithStderr("run --headless -o " +
                                                   shellQuote((directory / "out.gif").string()) +
                                                   " " + shellQuote(script.string())));
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_NE(result.output.find("Clicked 'Ship' in zenity dialog"), std::string::npos)
      << result.output;
  // The applications' own answers: the name typed into the entry, and the button pressed.
  EXPECT_TRUE(testing::eventually([&] { return fs::file_size(answer) > 0; }));
  std::string typed;
  std::getline(std::ifstream(name), typed);
  EXPECT_EQ(typed, "Ada Lovelace");
  std::string pressed;
  std::getline(std::ifstream(answer), pressed);
  EXPECT_EQ(pressed, "0");
}

TEST(BrimbleRun, ChromiumOpenedAsAnAppShowsItsElements) {
  TempDirectory directory;
  const fs::path script = writeScript(directory, R"(open "Chromium"
wait-for "role:push button/Reload" timeout 20
click "role:AXTextField/Address and search bar"
)");
  const auto result =
      runCommand(brimbleWithStderr("run --headless " + shellQuote(script.string())));
  EXPECT_EQ(result.exitCode, 1) << result.output;  // nothing recorded, everything found
  EXPECT_NE(result.output.find("No segments recorded"), std::string::npos) << result.output;
}

TEST(BrimbleRun, APageThatIsNotThereFailsItsLineAndABrowserSegmentShowsThePageUnderOneBar) {
  TempDirectory directory;
  const fs::path out = directory / "out.gif";
  const auto run = [&](const std::string& text) {
    return runCommand("cd " + shellQuote(directory.path().string()) + " && " +
                      brimbleWithStderr("run --headless -q -o " + shellQuote(out.string()) + " " +
                                        shellQuote(writeScript(directory, text).string())));
  };
  // A page file that is not there is refused before the script does anything.
  auto result = runCommand(
      "cd " + shellQuote(directory.path().string()) + " && " +
      brimbleWithStderr("run --headless " + shellQuote(writeScript(directory,
                                                                   "open \"xterm\"\nbrowser chrome "
                                                                   "\"nofile.html\"\nwait 1\n")
                                                           .string())));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("Line 2: page not found: no file 'nofile.html' in the working "
                               "directory ("),
            std::string::npos)
      << result.output;
  EXPECT_EQ(result.output.find("opened xterm"), std::string::npos) << result.output;
  EXPECT_FALSE(fs::exists(out));
  // After a shell command, which may write the page, its line is where it is looked for.
  result = run("run \"touch ran\"\nbrowser chrome \"nofile.html\"\nwait 1\n");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("Line 2: page not found: no file 'nofile.html'"), std::string::npos)
      << result.output;
  EXPECT_TRUE(fs::exists(directory / "ran"));
  // A page the browser cannot load fails its line rather than recording the browser's error.
  result = run("browser chrome \"file:///nonexistent-brimble/page.html\"\nrecord region 0 0 9 9\n");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("Line 1: Action failed: page not found: "
                               "file:///nonexistent-brimble/page.html could not be loaded ("),
            std::string::npos)
      << result.output;
  EXPECT_FALSE(fs::exists(out));

  // A green page: above it, the rendered frame holds the address bar Brimble draws (40 pixels
  // at this width), and neither Chromium's own tabs and toolbar nor the window manager's title
  // bar, unless the script asks for that.
  std::ofstream(directory / "page.html")
      << "<body style=\"margin: 0; background: rgb(0, 200, 80)\"></body>";
  const auto barsAbovePage = [&](const std::string& settings) {
    const auto recorded =
        run(settings + "browser chrome \"page.html\" as $page\nrecord $page duration 1\n");
    EXPECT_EQ(recorded.exitCode, 0) << recorded.output;
    const auto gif = testing::decodeGIFFile(out);
    if (!gif) {
      ADD_FAILURE() << "no GIF";
      return -1;
    }
    const Image& frame = gif->frames.back();
    int rows = 0;
    while (rows < frame.height()) {
      const testing::Pixel p = testing::pixelAt(frame, frame.width() * 3 / 4, rows);
      if (p.r < 40 && p.g > 160 && p.b > 40 && p.b < 120) {
        break;
      }
      ++rows;
    }
    for (int y = rows; y < frame.height(); y += 7) {
      const testing::Pixel p = testing::pixelAt(frame, frame.width() / 2, y);
      EXPECT_TRUE(p.r < 40 && p.g > 160) << "not the page at row " << y;
    }
    return rows;
  };
  const int bare = barsAbovePage("");
  EXPECT_GE(bare, 38);
  EXPECT_LE(bare, 42);
  const int titled = barsAbovePage("set include-title-bar true\n");
  EXPECT_GE(titled, bare + 8) << "the window manager's title bar, when asked for";
}

TEST(BrimbleRun, AResizeTheWindowDoesNotTakeFailsItsLineAndOneCutShortSaysSo) {
  TempDirectory directory;
  // A window with a largest size of its own; its input stays open while the script runs.
  const auto script = [&](const std::string& largest, const std::string& rest) {
    return writeScript(directory, "run \"sleep 60 | " BRIMBLE_X11_TEST_CLIENT
                                  " --class Sized --size 300x200 --max-size " +
                                      largest + " > /dev/null &\"\n" +
                                      "capture-window app \"Sized\" as $w\nresize 500 400\n" +
                                      rest);
  };
  auto result = runCommand(
      brimbleWithStderr("run --headless -o " + shellQuote((directory / "out.gif").string()) + " " +
                        shellQuote(script("300x200", "record $w duration 0.5\n").string())));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(std::regex_search(result.output,
                                std::regex("Line 3: Cannot resize window 0x[0-9a-f]+ to 500x400: "
                                           "it stayed 300x200 \\(")))
      << result.output;
  EXPECT_FALSE(fs::exists(directory / "out.gif"));

  result = runCommand(
      brimbleWithStderr("run --headless -o " + shellQuote((directory / "out.gif").string()) + " " +
                        shellQuote(script("400x300", "record $w duration 0.5\n").string())));
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_TRUE(std::regex_search(
      result.output, std::regex("Warning: window 0x[0-9a-f]+ is 400x300, not the 500x400 asked "
                                "for")))
      << result.output;
  EXPECT_NE(result.output.find("Resized Sized to 400x300"), std::string::npos) << result.output;
}

class BrimbleRunExample : public ::testing::TestWithParam<std::string> {};

TEST_P(BrimbleRunExample, RunsHeadlessIntoAValidAnimation) {
  TempDirectory directory;
  const fs::path script = fs::path(BRIMBLE_SOURCE_DIR) / "examples" / GetParam();
  const fs::path out = directory / script.stem().replace_extension(".gif");
  const auto result =
      runCommand("cd " + shellQuote(directory.path().string()) + " && " +
                 brimbleWithStderr("run --headless -q " + shellQuote(script.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  // The script's own output setting, in the working directory.
  ASSERT_TRUE(fs::exists(out)) << result.output;
  const auto identified =
      runCommand("identify -format '%w %h\\n' " + shellQuote(out.string()) + " | head -n 1");
  ASSERT_EQ(identified.exitCode, 0);
  int width = 0;
  int height = 0;
  ASSERT_EQ(std::sscanf(identified.output.c_str(), "%d %d", &width, &height), 2);
  EXPECT_GT(width, 300);
  EXPECT_LE(width, 800);
  EXPECT_GT(height, 200);
  const auto gif = testing::decodeGIFFile(out);
  ASSERT_TRUE(gif);
  EXPECT_GE(gif->frames.size(), 5u);
}

INSTANTIATE_TEST_SUITE_P(Examples, BrimbleRunExample,
                         ::testing::Values("hello.brim", "git-workflow.brim", "multi-window.brim",
                                           "spotlight-demo.brim", "polish-demo.brim",
                                           "browser-demo.brim", "terminal-looks.brim",
                                           "gtk-form.brim", "demo.tape"),
                         [](const ::testing::TestParamInfo<std::string>& example) {
                           std::string name = example.param;
                           std::erase_if(name, [](char c) { return c == '-' || c == '.'; });
                           return name;
                         });

// Every process `root` started, however deep, and the ones that run on its display `display`
// (started detached, as applications and background jobs are).
std::vector<pid_t> helpersOf(pid_t root, const std::string& display) {
  std::vector<pid_t> found{root};
  const std::vector<ProcessInfo> processes = liveProcesses();
  for (std::size_t i = 0; i < found.size(); ++i) {
    for (const ProcessInfo& process : processes) {
      if (process.parent == found[i]) {
        found.push_back(process.pid);
      }
    }
  }
  const std::string entry = "DISPLAY=" + display;
  for (const ProcessInfo& process : processes) {
    std::ifstream file("/proc/" + std::to_string(process.pid) + "/environ");
    for (std::string variable; std::getline(file, variable, '\0');) {
      if (variable == entry && std::find(found.begin(), found.end(), process.pid) == found.end()) {
        found.push_back(process.pid);
      }
    }
  }
  found.erase(found.begin());
  return found;
}

TEST(BrimbleRun, CtrlCDuringARecordingRendersWhatWasRecordedAndLeavesNothingBehind) {
  TempDirectory directory;
  const fs::path out = directory / "cut.gif";
  const fs::path script = writeScript(directory, R"(set fps 12
open "Terminal"
wait 0.5
capture-window app "Terminal" as $term
run "sleep 300 &"
record $term duration 60
type "never typed"
)");
  testing::ChildProcess run({"env", "TMPDIR=" + directory.path().string(), BRIMBLE_BINARY, "run",
                             "--headless", "-o", out.string(), script.string()});
  bool recording = false;
  for (int i = 0; i < 1000 && !recording; ++i) {
    recording = run.errorOutput().find("recording") != std::string::npos;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_TRUE(recording) << run.errorOutput();
  std::smatch display;
  const std::string errors = run.errorOutput();
  ASSERT_TRUE(std::regex_search(errors, display, std::regex(R"(embedded display \((:[0-9]+)\))")));
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  const std::vector<pid_t> helpers = helpersOf(run.pid(), display[1]);
  std::set<std::string> names;
  for (const pid_t pid : helpers) {
    std::string name;
    std::ifstream("/proc/" + std::to_string(pid) + "/comm") >> name;
    names.insert(name);
  }
  for (const char* expected : {"Xvfb", "openbox", "dbus-daemon", "xterm", "sleep"}) {
    EXPECT_TRUE(names.count(expected)) << expected << " is not running";
  }
  run.signal(SIGINT);
  const auto exitCode = run.wait(std::chrono::seconds(60));
  ASSERT_TRUE(exitCode) << run.errorOutput();
  EXPECT_EQ(*exitCode, 130) << run.errorOutput();
  const auto gif = testing::decodeGIFFile(out);
  ASSERT_TRUE(gif) << run.errorOutput();
  int centiseconds = 0;
  for (const int delay : gif->delaysCentiseconds) {
    centiseconds += delay;
  }
  EXPECT_GE(centiseconds, 100);
  EXPECT_LT(centiseconds, 1000);
  for (const pid_t pid : helpers) {
    EXPECT_FALSE(processAlive(pid)) << pid << " was left running";
  }
  for (const auto& entry : fs::directory_iterator(directory.path())) {
    EXPECT_TRUE(entry.path() == out || entry.path() == script) << entry.path() << " left behind";
  }
}

TEST(BrimbleRun, AFailingLineOrAVanishedOutputFolderKeepsWhatWasRecorded) {
  TempDirectory directory;
  const fs::path clips = directory / "clips";
  const fs::path temporary = directory / "tmp";
  fs::create_directory(clips);
  fs::create_directory(temporary);
  const auto run = [&](const std::string& text) {
    return runCommand("TMPDIR=" + shellQuote(temporary.string()) + " " +
                      brimbleWithStderr("run --headless -q -o " +
                                        shellQuote((clips / "demo.gif").string()) + " " +
                                        shellQuote(writeScript(directory, text).string())));
  };
  const std::string recording = R"(set fps 12
open "Terminal"
wait 0.5
capture-window app "Terminal" as $term
record $term continue
type "echo kept" enter
wait 1.5
)";

  // The failing line's error, then where the recording went: beside the output, named partial.
  auto result = run(recording + "run \"exit 3\"\n");
  EXPECT_EQ(result.exitCode, 1) << result.output;
  EXPECT_NE(result.output.find("Line 8: Command 'exit 3' failed (exit 3)"), std::string::npos)
      << result.output;
  const fs::path partial = clips / "demo.partial.gif";
  EXPECT_NE(result.output.find("kept in " + partial.string() + "\n"), std::string::npos)
      << result.output;
  EXPECT_FALSE(fs::exists(clips / "demo.gif"));
  auto gif = testing::decodeGIFFile(partial);
  ASSERT_TRUE(gif) << result.output;
  const int centiseconds =
      std::accumulate(gif->delaysCentiseconds.begin(), gif->delaysCentiseconds.end(), 0);
  EXPECT_GE(centiseconds, 150);
  EXPECT_LT(centiseconds, 400);

  // Endless output fails its line at the cap; the partial file of the run before stays as it is.
  const auto earlier = fs::file_size(partial);
  result = run(recording + "run \"yes\" as $v\n");
  EXPECT_EQ(result.exitCode, 1) << result.output;
  EXPECT_NE(result.output.find("Line 8: Command 'yes' printed more than 8 MiB"), std::string::npos)
      << result.output;
  EXPECT_NE(result.output.find("kept in " + (clips / "demo.partial-2.gif").string() + "\n"),
            std::string::npos)
      << result.output;
  EXPECT_EQ(fs::file_size(partial), earlier);
  EXPECT_TRUE(testing::decodeGIFFile(clips / "demo.partial-2.gif")) << result.output;

  // The output's folder deleted while the script runs: the error says why the file could not be
  // written, and the recording goes to the temporary folder.
  result = run(recording + "run \"rm -r " + clips.string() + "\"\n");
  EXPECT_EQ(result.exitCode, 1) << result.output;
  EXPECT_NE(result.output.find("Cannot write '" + (clips / "demo.gif").string() +
                               "': No such file or directory"),
            std::string::npos)
      << result.output;
  EXPECT_NE(result.output.find("kept in " + (temporary / "demo.partial.gif").string()),
            std::string::npos)
      << result.output;
  gif = testing::decodeGIFFile(temporary / "demo.partial.gif");
  ASSERT_TRUE(gif) << result.output;
  EXPECT_GE(gif->frames.size(), 2u);
}

// The seconds between the first and the last of `count` bytes typed into a real xterm, as a
// program reading its terminal raw saw them arrive.
constexpr const char* kKeyStamper = R"(import os, sys, termios, time, tty
count, out = int(sys.argv[1]), sys.argv[2]
old = termios.tcgetattr(0)
tty.setraw(0, termios.TCSANOW)
stamps = []
try:
    while len(stamps) < count:
        got = os.read(0, 64)
        stamps.extend([time.monotonic()] * len(got))
finally:
    termios.tcsetattr(0, termios.TCSANOW, old)
open(out, "w").write("%f\n" % (stamps[count - 1] - stamps[0]))
)";

TEST(BrimbleRun, TypingKeepsThePaceAskedAndANewLineWaitsForThePrompt) {
  TempDirectory directory;
  const fs::path stamper = directory / "stamper.py";
  std::ofstream(stamper) << kKeyStamper;
  const fs::path paced = directory / "paced.txt";
  const fs::path session = directory / "session.log";
  std::string text;
  for (int i = 0; i < 120; ++i) {
    text += i % 6 == 5 ? ' ' : static_cast<char>('a' + i % 26);
  }
  const fs::path script = writeScript(directory, R"(set fps 12
set typing-delay 0.05
open "Terminal"
wait 0.5
capture-window app "Terminal" as $term
record $term continue
type "/usr/bin/python3 )" + stamper.string() + " 120 " +
                                                     paced.string() +
                                                     R"(" enter
wait 1.5
type ")" + text + R"("
wait 1
type "script -q -f -c 'env PS1=READY: bash --norc --noprofile -i' )" +
                                                     session.string() + R"(" enter
wait 1.5
type "sleep 0.1; echo ON''E" enter
type "echo TW''O" enter
wait 1
stop
)");
  const auto result = runCommand(brimbleWithStderr("run --headless -q -o " +
                                                   shellQuote((directory / "out.gif").string()) +
                                                   " " + shellQuote(script.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;

  // 119 steps of 0.05 s from the first key to the last, within 10 %.
  double seconds = 0;
  std::ifstream(paced) >> seconds;
  EXPECT_NEAR(seconds, 119 * 0.05, 119 * 0.05 * 0.1);

  // The terminal showed the first command's output, then the prompt, and only then the next
  // line's keys.
  std::ifstream log(session, std::ios::binary);
  const std::string raw{std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>()};
  // Without the terminal's control sequences (bash switches bracketed paste on and off).
  std::string shown =
      std::regex_replace(raw, std::regex("\x1b(\\[[0-9;?]*[a-zA-Z]|\\][^\x07]*\x07|[=>])"), "");
  std::erase(shown, '\r');
  EXPECT_NE(shown.find("\nONE\nREADY:echo TW''O\nTWO\n"), std::string::npos) << shown;
}

TEST(BrimbleRun, BadInputFailsClearlyAndWhatWasRecordedIsKept) {
  TempDirectory directory;
  const auto runScript = [&](const std::string& text, const std::string& prefix = "") {
    const fs::path script = writeScript(directory, text);
    return runCommand(prefix + brimbleWithStderr("run --headless -q -o " +
                                                 shellQuote((directory / "out.gif").string()) +
                                                 " " + shellQuote(script.string())));
  };

  // An output that cannot be written is refused before anything runs.
  auto result =
      runCommand(brimbleWithStderr("run --headless -o /nonexistent/folder/out.gif " +
                                   shellQuote(writeScript(directory, "wait 30\n").string())));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("/nonexistent/folder"), std::string::npos) << result.output;
  EXPECT_EQ(result.output.find("embedded"), std::string::npos) << result.output;

  // A typo in a setting or a key is refused before anything opens, with what was meant.
  for (const auto& [text, meant] : {std::pair{"set outptu \"x.gif\"\n", "did you mean 'output'?"},
                                    std::pair{"set fps 25\n", "(expected: 12, 24, 30, 60)"},
                                    std::pair{"key ctrl+shfit+t\n", "did you mean 'shift'?"}}) {
    result = runCommand(brimbleWithStderr(
        "run --headless " +
        shellQuote(
            writeScript(directory, std::string(text) + "open \"Terminal\"\nwait 30\n").string())));
    EXPECT_EQ(result.exitCode, 1) << text;
    EXPECT_NE(result.output.find("Line 1, Col "), std::string::npos) << result.output;
    EXPECT_NE(result.output.find(meant), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("embedded"), std::string::npos) << result.output;
  }

  // Endless output fails its line at the documented size, long before the time-out.
  result = runScript("set run-timeout 60\nrun \"yes\" as $v\n");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("Line 2: Command 'yes' printed more than 8 MiB"), std::string::npos)
      << result.output;

  result = runScript("open \"NoSuchApp\"\n");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("Line 1: "), std::string::npos) << result.output;
  EXPECT_NE(result.output.find("nosuchapp"), std::string::npos) << result.output;

  // A terminal that closes mid-recording ends its segment; the render goes on.
  result = runScript(R"(set fps 12
open "Terminal"
wait 0.5
capture-window app "Terminal" as $term
record $term continue
wait 1
type "exit" enter
wait 1.5
stop
)");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_NE(result.output.find("the recording ended on its own"), std::string::npos)
      << result.output;
  EXPECT_TRUE(testing::decodeGIFFile(directory / "out.gif"));

  // A command that hangs is stopped at the time-out, with everything it started.
  result = runScript("set run-timeout 1\nrun \"sleep 61.25 & sleep 61.5\"\n");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("Line 2: "), std::string::npos) << result.output;
  EXPECT_NE(runCommand("pgrep -f 'sleep 61.(25|5)'").exitCode, 0) << "a sleep was left running";

  // Without a browser on the PATH, `browser chrome` says so.
  const fs::path bin = directory / "bin";
  fs::create_directory(bin);
  for (const auto& entry : fs::directory_iterator("/usr/bin")) {
    if (entry.path().filename().string().find("chrom") == std::string::npos) {
      fs::create_symlink(entry.path(), bin / entry.path().filename());
    }
  }
  result = runScript("browser chrome \"about:blank\"\n", "PATH=" + shellQuote(bin.string()) + " ");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("Line 1: "), std::string::npos) << result.output;
  EXPECT_NE(result.output.find("not installed"), std::string::npos) << result.output;
}

TEST(BrimbleRun, TheTimelineSaysWhenThingsHappenInTheOutputNotInTheRecording) {
  TempDirectory directory;
  // Nothing moves on the embedded display: `cut` leaves half a second of the four still ones.
  const fs::path script = writeScript(directory, R"(set fps 12
set idle-strategy cut
chapter "Start"
record region 0 0 160 120 continue
caption "Hello" duration 1
wait 4
chapter "Later"
wait 0.5
stop
)");
  const std::string scriptText = testing::readFile(script);
  const fs::path gif = directory / "out.gif";
  const fs::path timeline = directory / "out.json";
  auto result = runCommand(brimbleWithStderr("run --headless -q -o " + shellQuote(gif.string()) +
                                             " --timeline " + shellQuote(timeline.string()) + " " +
                                             shellQuote(script.string())));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const auto decoded = testing::decodeGIFFile(gif);
  ASSERT_TRUE(decoded);
  const double plays =
      std::accumulate(decoded->delaysCentiseconds.begin(), decoded->delaysCentiseconds.end(), 0) /
      100.0;
  const nlohmann::json document = nlohmann::json::parse(testing::readFile(timeline));
  EXPECT_NEAR(document["duration"].get<double>(), plays, 0.1) << document.dump(2);
  EXPECT_LT(plays, 2.0);
  ASSERT_EQ(document["chapters"].size(), 2u);
  EXPECT_EQ(document["chapters"][0]["time"], 0);
  EXPECT_EQ(document["chapters"][1]["name"], "Later");
  EXPECT_LT(document["chapters"][1]["time"].get<double>(), plays) << "an output time";
  ASSERT_EQ(document["captions"].size(), 1u);
  EXPECT_EQ(document["captions"][0]["text"], "Hello");
  ASSERT_EQ(document["instructions"].size(), 9u);
  EXPECT_EQ(document["instructions"][5]["source"], "wait 4");

  // A timeline that would take the script's place is refused before anything runs.
  result = runCommand(brimbleWithStderr("run --headless -q -o " + shellQuote(gif.string()) +
                                        " --timeline " + shellQuote(script.string()) + " " +
                                        shellQuote(script.string())));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("is the script's or an output's own file"), std::string::npos)
      << result.output;
  EXPECT_EQ(testing::readFile(script), scriptText);
}

}  // namespace
}  // namespace brimble
