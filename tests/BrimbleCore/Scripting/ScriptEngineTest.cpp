#include "BrimbleCore/Scripting/ScriptEngine.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <numeric>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "BrimbleCore/Automation/DemoDriverError.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptParser.h"
#include "BrimbleCore/Scripting/ScriptRenderSettings.h"
#include "BrimbleCore/Scripting/ScriptValidation.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/FakeAppLauncher.h"
#include "tests/Support/FakeClock.h"
#include "tests/Support/FakeInputBackend.h"
#include "tests/Support/FakeProcessRunner.h"
#include "tests/Support/FakeScreen.h"
#include "tests/Support/FakeWindowSystem.h"
#include "tests/Support/Files.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/Images.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::Pixel;

// Milliseconds of `clock` since `start`.
long long millisecondsSince(const Clock& clock, Clock::TimePoint start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(clock.now() - start).count();
}

/// What every fake recorder of a rig did, as "<ms> start <target> <fps>fps" and "<ms> stop".
struct RecorderLog {
  std::vector<std::string> lines;
  int made = 0;
};

/// A recorder that "captures" a solid frame of its own colour every 1/fps of the fake clock.
/// It can end on its own (a closed window) or run a hook at a time of its segment.
class FakeSegmentRecorder final : public SegmentRecorder {
 public:
  struct Behaviour {
    /// Ends on its own this long after its start.
    std::optional<Clock::Duration> endsAfter;
    /// The picture last changes this long after the start.
    Clock::Duration changesUntil{};
    bool capturesNothing = false;
    /// Runs once when asked whether it ended at or after `at`.
    std::optional<Clock::Duration> hookAt;
    std::function<void()> hook;
    /// Takes its first frame the moment it starts, as a screen recorder does.
    bool grabsAtStart = false;
    /// Hears the keys this backend presses while it runs, as the desktop's event capture does.
    const testing::FakeInputBackend* keys = nullptr;
  };

  FakeSegmentRecorder(const Clock& clock, Clock::TimePoint origin, RecorderLog& log,
                      Behaviour behaviour)
      : clock_(clock), origin_(origin), log_(log), behaviour_(std::move(behaviour)) {
    colour_ = kColours[log_.made++ % 3];
  }

  void start(const SegmentRequest& request) override {
    request_ = request;
    start_ = clock_.now();
    const std::string target =
        request.target.kind == CaptureTarget::Kind::window
            ? "window " + std::to_string(request.target.windowID)
            : fmt::format("area {},{} {}x{}", request.target.area.x, request.target.area.y,
                          request.target.area.width, request.target.area.height);
    log_.lines.push_back(
        fmt::format("{} start {} {}fps", millisecondsSince(clock_, origin_), target, request.fps));
  }
  bool hasEnded() const override {
    if (behaviour_.hook && behaviour_.hookAt && clock_.now() - start_ >= *behaviour_.hookAt) {
      std::exchange(behaviour_.hook, nullptr)();
    }
    return behaviour_.endsAfter && clock_.now() - start_ >= *behaviour_.endsAfter;
  }
  Clock::TimePoint lastChangeTime() const override {
    return std::min(clock_.now(), start_ + behaviour_.changesUntil);
  }
  int frameCount() const override { return framesFor(elapsed()); }
  void setPaused(bool) override { ADD_FAILURE() << "scripts never pause a segment"; }
  RecordedSegment stop() override {
    log_.lines.push_back(fmt::format("{} stop", millisecondsSince(clock_, origin_)));
    const double seconds = elapsed();
    RecordedSegment segment;
    auto store = std::make_unique<InMemoryFrameStore>();
    if (!behaviour_.capturesNothing) {
      const auto jpeg = encodeJPEG(testing::solidImage(64, 40, colour_), 90);
      store->frames.assign(static_cast<std::size_t>(framesFor(seconds)), jpeg);
    }
    segment.frames = std::move(store);
    segment.fps = request_.fps;
    segment.duration = seconds;
    segment.windowFrame = {0, 0, 64, 40};
    if (behaviour_.keys != nullptr) {
      segment.events = keysHeard();
    }
    return segment;
  }

  static constexpr Pixel kColours[3] = {{220, 30, 30}, {30, 30, 220}, {30, 200, 30}};

 private:
  double elapsed() const {
    Clock::Duration length = clock_.now() - start_;
    if (behaviour_.endsAfter) {
      length = std::min(length, *behaviour_.endsAfter);
    }
    return std::chrono::duration<double>(length).count();
  }
  int framesFor(double seconds) const {
    const int frames = static_cast<int>(std::lround(seconds * request_.fps));
    return behaviour_.grabsAtStart ? std::max(frames, 1) : frames;
  }
  // The backend's key lines ("<ms> key l down", from the rig's origin, as the backend counts)
  // since this recorder started, as events timed from its start.
  std::vector<InputEvent> keysHeard() const {
    const long long from =
        std::chrono::duration_cast<std::chrono::milliseconds>(start_ - origin_).count();
    std::vector<InputEvent> events;
    for (const std::string& line : behaviour_.keys->timedLines()) {
      char key[32] = {};
      char direction[8] = {};
      long long at = 0;
      if (std::sscanf(line.c_str(), "%lld key %31s %7s", &at, key, direction) != 3 || at < from) {
        continue;
      }
      InputEvent event;
      event.kind =
          std::string(direction) == "down" ? InputEvent::Kind::keyDown : InputEvent::Kind::keyUp;
      event.timestamp = static_cast<double>(at - from) / 1000;
      event.key = std::string(key) == "return" ? "Return" : key;
      event.synthetic = true;
      events.push_back(event);
    }
    return events;
  }

  const Clock& clock_;
  const Clock::TimePoint origin_;
  RecorderLog& log_;
  mutable Behaviour behaviour_;
  SegmentRequest request_;
  Clock::TimePoint start_;
  Pixel colour_;
};

/// A page whose elements sit where a table says; `text:Field` takes no value directly.
class FakePage final : public ElementDriver {
 public:
  std::optional<ScreenRect> find(const std::string& target) override {
    const auto found = rects.find(target);
    return found != rects.end() ? std::optional(found->second) : std::nullopt;
  }
  void press(const std::string& target) override { actions.push_back("press " + target); }
  void setValue(const std::string& target, const std::string& text) override {
    if (target == "text:Field") {
      throw DemoDriverError::unsupported("not a text field");
    }
    actions.push_back("set " + target + " = " + text);
  }
  void focus(const std::string& target) override { actions.push_back("focus " + target); }
  std::vector<DiscoveredElement> listElements(int) override { return {}; }

  std::map<std::string, ScreenRect> rects;
  std::vector<std::string> actions;
};

/// Browsers whose sessions share one page and report to the rig.
class FakeBrowsers final : public BrowserLauncher {
 public:
  explicit FakeBrowsers(testing::FakeWindowSystem& windows) : windows_(windows) {}

  std::unique_ptr<BrowserSession> launch(const std::string& url) override {
    struct Session final : BrowserSession {
      explicit Session(FakeBrowsers& owner) : browsers(owner) {}
      ~Session() override { browsers.log.push_back("end"); }
      int pid() const override { return 777; }
      ElementDriver& elements() override { return browsers.page; }
      void navigate(const std::string& url) override { browsers.log.push_back("go " + url); }
      void setRealZoom(double scale, const std::optional<std::string>&) override {
        browsers.log.push_back(fmt::format("zoom {}", scale));
      }
      FakeBrowsers& browsers;
    };
    log.push_back("launch " + url);
    windows_.add({90, "Page", "chromium", 777, {0, 0, 1280, 800}, {0, 30, 1280, 770}});
    return std::make_unique<Session>(*this);
  }

  FakePage page;
  std::vector<std::string> log;

 private:
  testing::FakeWindowSystem& windows_;
};

/// An engine over fakes of everything it drives, on a clock that only moves when it waits.
struct EngineRig {
  EngineRig() {
    launcher.onLaunch = [this] {
      system.add({2, "Terminal", "xterm", 4242, {0, 0, 660, 440}, {0, 30, 640, 400}});
    };
  }

  ScriptEngine engine(ScriptOptions options = {}) {
    options.print = [this](std::string_view line) { printed.emplace_back(line); };
    ScriptServices services{screen,
                            input,
                            windows,
                            processes,
                            clock,
                            texts,
                            [this] {
                              return std::make_unique<FakeSegmentRecorder>(clock, origin, recorders,
                                                                           behaviour);
                            },
                            &browsers};
    return ScriptEngine(std::move(services), std::move(options));
  }

  // Runs `source` with the output in the rig's directory.
  ScriptOutcome run(const std::string& source, ScriptOptions options = {}) {
    options.output = directory / "out.gif";
    return engine(std::move(options)).execute(source);
  }

  // The lines of `source` one by one, leaving the engine as they left it.
  void step(ScriptEngine& engine, const std::string& source) {
    for (const LocatedInstruction& instruction : ScriptParser::parse(source)) {
      engine.executeInstruction(instruction);
    }
  }

  testing::TempDirectory directory;
  testing::FakeClock clock;
  const Clock::TimePoint origin = clock.now();
  testing::FakeWindowSystem system{clock};
  testing::FakeAppLauncher launcher{{"xterm"}};
  WindowManager windows{system, launcher, clock};
  testing::FakeInputBackend backend{clock};
  InputSimulator input{backend, clock};
  testing::FakeScreen screen;
  testing::FakeProcessRunner processes;
  FakeBrowsers browsers{system};
  // The platform's wording reaches the script's errors as given.
  const PlatformTexts texts = [] {
    PlatformTexts made;
    made.screenRecordingRequired =
        "Screen Recording permission required. The test's screen is blind.";
    return made;
  }();
  RecorderLog recorders;
  FakeSegmentRecorder::Behaviour behaviour;
  std::vector<std::string> printed;
};

// The moments keys went down, in milliseconds of the rig's clock.
std::vector<long long> keyDownTimes(const testing::FakeInputBackend& backend) {
  std::vector<long long> times;
  for (const std::string& line : backend.timedLines()) {
    if (line.ends_with(" down") && line.find(" key ") != std::string::npos &&
        line.find("shift") == std::string::npos) {
      times.push_back(std::stoll(line));
    }
  }
  return times;
}

int totalCentiseconds(const testing::DecodedGIF& gif) {
  return std::accumulate(gif.delaysCentiseconds.begin(), gif.delaysCentiseconds.end(), 0);
}

TEST(ScriptEngine, ABlockingRecordHoldsItsLineAndAContinuedOneRunsBesideTheNextUntilRemain) {
  EngineRig rig;
  const ScriptOutcome outcome = rig.run(R"(set fps 12
set transition 0
open "Terminal"
capture-window app "Terminal" as $term
record $term duration 2
type "ab"
record $term duration 3 continue
type "cdefgh"
remain
)");

  // The first segment ran its 2 s before "ab" was typed; the second started after it and the rest
  // were typed while it ran; `remain` waited out its 3 s.
  ASSERT_EQ(rig.recorders.lines.size(), 4u);
  const auto at = [&](int i) { return std::stoll(rig.recorders.lines[i]); };
  EXPECT_THAT(rig.recorders.lines[0], HasSubstr("start window 2 12fps"));
  EXPECT_EQ(at(1) - at(0), 2000);
  EXPECT_EQ(at(3) - at(2), 3000);
  const std::vector<long long> keys = keyDownTimes(rig.backend);
  ASSERT_EQ(keys.size(), 8u);
  EXPECT_GE(keys[0], at(1));
  EXPECT_LT(keys[1], at(2));
  EXPECT_GE(keys[2], at(2));
  EXPECT_LT(keys[7], at(3));
  // Six keys of about 50 ms each have gone by.
  EXPECT_THAT(rig.printed, Contains(::testing::MatchesRegex("Remaining: 2\\.[5-8]")));

  // Without `render` the segments are rendered at the end: 2 s of the first colour, then 3 s of
  // the second, and the window the script opened is closed.
  EXPECT_EQ(outcome.segments, 2);
  EXPECT_DOUBLE_EQ(outcome.recordedSeconds, 5);
  EXPECT_FALSE(outcome.interrupted);
  const auto gif = testing::decodeGIFFile(rig.directory / "out.gif");
  ASSERT_TRUE(gif);
  EXPECT_EQ(totalCentiseconds(*gif), 500);
  EXPECT_DOUBLE_EQ(outcome.summary.duration, 5);
  EXPECT_GT(testing::pixelAt(gif->frames.front(), 32, 20).r, 180);
  EXPECT_GT(testing::pixelAt(gif->frames.back(), 32, 20).b, 180);
  EXPECT_THAT(rig.system.lines(), Contains("close 2"));
  EXPECT_EQ(rig.processes.backgroundStops, 1);
  EXPECT_THAT(rig.printed, Contains("Cleaning up..."));
}

TEST(ScriptEngine, TheEndOfAScriptAndItsFailures) {
  struct Case {
    std::string source;
    std::string error;
  };
  const std::string open = "open \"Terminal\"\ncapture-window app \"Terminal\" as $t\n";
  const std::vector<Case> cases = {
      {"wait 1\n", "No segments recorded"},
      {"render\n", "Line 1: No segments to render"},
      {"resize 800 600\n", "Line 1: 'resize' requires a captured or recording window"},
      {"record simulator duration 2\n",
       "Line 1: Simulator capture is not available on this platform."},
      {"tap 10 20\n", "Line 1: Simulator capture is not available on this platform."},
      {"browser safari \"https://example.com\"\n",
       "Line 1: Safari is not available on this platform; use 'browser chrome'"},
      {open + "record $nope duration 1\n", "Line 3: Undefined variable '$nope'"},
      // A key written out is refused by the check; one a variable holds, when its line runs.
      {open + "record $t duration 1\nrun \"printf ctrl+nokey\" as $k\nkey $k\n",
       "Line 5: Unknown key 'nokey' in 'ctrl+nokey'"},
      {"capture-window app \"Gimp\" as $g\n", "Window not found: app 'Gimp'"},
      {open + "record $t duration 1\nclick text:Save\n",
       "Line 4: Permission denied: element targets in Terminal go through the accessibility "
       "service (AT-SPI), which is not available"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.source);
    EngineRig rig;
    rig.processes.answers["printf ctrl+nokey"] = {"ctrl+nokey", "", 0};
    EXPECT_THAT(testing::errorText<ScriptError>([&] { rig.run(c.source); }), HasSubstr(c.error));
    // Whatever failed, nothing is written and the script's windows and jobs are ended.
    EXPECT_FALSE(std::filesystem::exists(rig.directory / "out.gif"));
    EXPECT_EQ(rig.processes.backgroundStops, 1);
    EXPECT_EQ(rig.recorders.lines.size() % 2, 0u) << "a recorder left running";
  }

  // The screen cannot be recorded at all.
  EngineRig blind;
  blind.screen.capturable = false;
  EXPECT_THAT(testing::errorText<ScriptError>([&] { blind.run(open + "record $t duration 1\n"); }),
              HasSubstr("Line 3: Screen Recording permission required. The test's screen is "
                        "blind."));

  // `cleanup false` leaves the windows open.
  EngineRig kept;
  kept.run("set cleanup false\n" + open + "record $t duration 1\n");
  EXPECT_THAT(kept.system.lines(), ::testing::Not(Contains("close 2")));
  EXPECT_EQ(kept.processes.backgroundStops, 0);
}

// The contents of a file, whole.
std::string fileText(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

TEST(ScriptEngine, AFailingLineKeepsWhatWasRecordedInAPartialFileThatReplacesNothing) {
  const std::string recorded =
      "set fps 12\nset transition 0\nopen \"Terminal\"\n"
      "capture-window app \"Terminal\" as $t\nrecord $t duration 2\n";
  EngineRig rig;
  rig.processes.answers["false"] = {"", "", 1};
  // A partial file of an earlier run is the user's now: it stays as it is.
  const std::filesystem::path earlier = rig.directory / "out.partial.gif";
  std::ofstream(earlier) << "kept from before";
  ScriptOptions options;
  options.output = rig.directory / "out.gif";
  ScriptEngine engine = rig.engine(options);
  EXPECT_THAT(testing::errorText<ScriptError>([&] {
                engine.execute(recorded + "record $t continue\nwait 1\nrun \"false\"\n");
              }),
              HasSubstr("Line 8: Command 'false' failed (exit 1)"));
  EXPECT_FALSE(std::filesystem::exists(rig.directory / "out.gif"));
  EXPECT_EQ(fileText(earlier), "kept from before");
  ASSERT_TRUE(engine.keptPartial());
  const std::filesystem::path kept = rig.directory / "out.partial-2.gif";
  EXPECT_EQ(engine.keptPartial()->output, kept);
  // Both segments, the one still running at the failure too, then the script's clean-up.
  const auto gif = testing::decodeGIFFile(kept);
  ASSERT_TRUE(gif);
  EXPECT_EQ(totalCentiseconds(*gif), 300);
  EXPECT_THAT(rig.system.lines(), Contains("close 2"));
  EXPECT_EQ(rig.processes.backgroundStops, 1);

  // An element that never shows up fails its line the same way.
  EngineRig waiting;
  ScriptOptions waitingOptions;
  waitingOptions.output = waiting.directory / "page.gif";
  ScriptEngine waitsInVain = waiting.engine(waitingOptions);
  EXPECT_THAT(testing::errorText<ScriptError>([&] {
                waitsInVain.execute(
                    "set fps 12\nbrowser chrome \"https://example.com\" as $page\n"
                    "record $page continue\nwait-for css:#late timeout 2\n");
              }),
              HasSubstr("Line 4: Element not found: css:#late (waited 2 s)"));
  ASSERT_TRUE(waitsInVain.keptPartial());
  const auto page = testing::decodeGIFFile(waiting.directory / "page.partial.gif");
  ASSERT_TRUE(page);
  EXPECT_NEAR(totalCentiseconds(*page), 200, 10);

  // A line that fails before anything was recorded leaves nothing behind.
  EngineRig early;
  early.processes.answers["false"] = {"", "", 1};
  ScriptOptions earlyOptions;
  earlyOptions.output = early.directory / "out.gif";
  ScriptEngine failsFirst = early.engine(earlyOptions);
  EXPECT_THROW(failsFirst.execute("run \"false\"\n" + recorded), ScriptError);
  EXPECT_FALSE(failsFirst.keptPartial());
  EXPECT_TRUE(std::filesystem::is_empty(early.directory.path()));
}

TEST(ScriptEngine,
     AnOutputFolderDeletedMidRunIsNamedWithWhyAndTheRecordingGoesToTheTemporaryFolder) {
  EngineRig rig;
  const std::filesystem::path folder = rig.directory / "clips";
  const std::filesystem::path temporary = rig.directory / "tmp";
  std::filesystem::create_directory(folder);
  std::filesystem::create_directory(temporary);
  const char* const before = std::getenv("TMPDIR");
  const std::string saved = before != nullptr ? before : "";
  ::setenv("TMPDIR", temporary.c_str(), 1);
  rig.behaviour.hookAt = 500ms;
  rig.behaviour.hook = [&] { std::filesystem::remove_all(folder); };
  ScriptOptions options;
  options.output = folder / "demo.webp";
  ScriptEngine engine = rig.engine(options);
  const std::string error = testing::errorText<ScriptError>([&] {
    engine.execute(
        "open \"Terminal\"\ncapture-window app \"Terminal\" as $t\n"
        "record $t duration 1\n");
  });
  if (before != nullptr) {
    ::setenv("TMPDIR", saved.c_str(), 1);
  } else {
    ::unsetenv("TMPDIR");
  }
  EXPECT_EQ(error,
            "Cannot write '" + (folder / "demo.webp").string() + "': No such file or directory");
  ASSERT_TRUE(engine.keptPartial());
  EXPECT_EQ(engine.keptPartial()->output, temporary / "demo.partial.webp");
  EXPECT_GT(std::filesystem::file_size(temporary / "demo.partial.webp"), 0u);
  EXPECT_NEAR(engine.keptPartial()->summary.duration, 1, 0.01);
}

TEST(ScriptEngine, SoundIntoAFileThatCannotCarryItIsRefusedAsSoonAsTheOutputIsKnown) {
  const std::string refused =
      "'audio' records sound for MP4 output; GIF, WebP and APNG carry no sound, so set the output "
      "to a .mp4 file or leave 'audio' out";
  // The check learned the output from its `set output`: nothing runs.
  EngineRig rig;
  const ParsedScript script =
      validate("wait 1\nset output \"clip.gif\"\nrecord region 0 0 64 40 duration 1 audio\n");
  ASSERT_EQ(script.output, "clip.gif");
  ScriptEngine engine = rig.engine();
  EXPECT_EQ(testing::errorText<ScriptError>([&] { engine.execute(script); }), "Line 3: " + refused);
  EXPECT_EQ(millisecondsSince(rig.clock, rig.origin), 0);
  EXPECT_TRUE(rig.recorders.lines.empty());

  // So does an output given by the caller, whatever the script sets.
  EngineRig given;
  ScriptOptions options;
  options.output = given.directory / "clip.webp";
  ScriptEngine withOutput = given.engine(options);
  EXPECT_EQ(testing::errorText<ScriptError>([&] {
              withOutput.execute("set output \"clip.mp4\"\nrecord region 0 0 64 40 audio\n");
            }),
            "Line 2: " + refused);
  EXPECT_TRUE(given.recorders.lines.empty());

  // An output the script names only as it runs is checked at the line, after what came before.
  EngineRig later;
  ScriptEngine unknown = later.engine();
  EXPECT_EQ(testing::errorText<ScriptError>([&] {
              unknown.execute(
                  "run \"true\" as $name\nset output \"$name.gif\"\nwait 1\n"
                  "record region 0 0 64 40 duration 1 audio\n");
            }),
            "Line 4: " + refused);
  EXPECT_EQ(millisecondsSince(later.clock, later.origin), 1000);
  EXPECT_TRUE(later.recorders.lines.empty());
}

TEST(ScriptEngine, TheRenderWritesWhereTheOutputWasLastSetBeforeIt) {
  EngineRig rig;
  const std::filesystem::path first = rig.directory / "first.gif";
  const std::filesystem::path second = rig.directory / "second.webp";
  ScriptEngine engine = rig.engine();
  const ScriptOutcome outcome = engine.execute(
      fmt::format("set output \"{}\"\nrecord region 0 0 64 40 duration 1\nset output \"{}\"\n"
                  "render\nset output \"{}\"\n",
                  first.string(), second.string(), (rig.directory / "never.gif").string()));
  EXPECT_EQ(outcome.output, second);
  EXPECT_TRUE(std::filesystem::exists(second));
  EXPECT_FALSE(std::filesystem::exists(first));
  EXPECT_THAT(rig.printed, Contains("Rendering 1 segment(s) into " + second.string()));

  // A name no encoder writes is refused at the render, not when it is set.
  EngineRig refused;
  const std::filesystem::path text = refused.directory / "clip.txt";
  ScriptEngine wrong = refused.engine();
  EXPECT_EQ(
      testing::errorText<ScriptError>([&] {
        wrong.execute(fmt::format("set output \"{}\"\nrecord region 0 0 64 40 duration 1\nrender\n",
                                  text.string()));
      }),
      "Line 3: Cannot write '" + text.string() +
          "': the name must end in .gif, .webp, .png (animated PNG) or .mp4, or in / for a "
          "folder of PNG frames");
  EXPECT_EQ(refused.recorders.lines.size(), 2u);
}

TEST(ScriptEngine, RenderEndsTheScriptAndSegmentsWithoutFramesAreLeftOut) {
  EngineRig rig;
  testing::LogCapture log;
  rig.behaviour.capturesNothing = true;
  EXPECT_EQ(testing::errorText<ScriptError>([&] {
              rig.run(
                  "open \"Terminal\"\ncapture-window app \"Terminal\" as $t\n"
                  "record $t duration 1\n");
            }),
            "No segments recorded");
  EXPECT_THAT(log.lines(), Contains("Warning: segment captured 0 frames"));

  // A running segment is stopped by `render`; nothing after it runs.
  EngineRig rendered;
  const ScriptOutcome outcome = rendered.run(R"(set fps 12
open "Terminal"
capture-window app "Terminal" as $t
record $t continue
wait 1.5
render
type "never"
record $t duration 5
)");
  EXPECT_EQ(outcome.segments, 1);
  EXPECT_EQ(rendered.recorders.lines.size(), 2u);
  EXPECT_THAT(rendered.backend.lines(), IsEmpty());
  const auto gif = testing::decodeGIFFile(rendered.directory / "out.gif");
  ASSERT_TRUE(gif);
  EXPECT_EQ(totalCentiseconds(*gif), 150);
}

TEST(ScriptEngine, AnInterruptEndsABlockingRecordAndRendersWhatWasRecorded) {
  EngineRig rig;
  std::stop_source interrupt;
  rig.behaviour.hookAt = 1500ms;
  rig.behaviour.hook = [&] { interrupt.request_stop(); };
  ScriptOptions options;
  options.interrupt = interrupt.get_token();
  const ScriptOutcome outcome = rig.run(R"(set fps 12
set transition 0
open "Terminal"
capture-window app "Terminal" as $t
record $t duration 10
type "never"
)",
                                        options);
  EXPECT_TRUE(outcome.interrupted);
  EXPECT_EQ(outcome.segments, 1);
  EXPECT_THAT(rig.backend.lines(), IsEmpty());
  EXPECT_THAT(rig.system.lines(), Contains("close 2"));
  const auto gif = testing::decodeGIFFile(rig.directory / "out.gif");
  ASSERT_TRUE(gif);
  EXPECT_NEAR(totalCentiseconds(*gif), 150, 10);

  // A window that closes during the recording ends the segment; the script goes on.
  EngineRig closed;
  testing::LogCapture log;
  closed.behaviour.endsAfter = 700ms;
  closed.run(R"(set fps 12
open "Terminal"
capture-window app "Terminal" as $t
record $t duration 3
type "a"
)");
  ASSERT_EQ(closed.recorders.lines.size(), 2u);
  EXPECT_LT(std::stoll(closed.recorders.lines[1]) - std::stoll(closed.recorders.lines[0]), 800);
  EXPECT_THAT(closed.backend.lines(), Contains("key a down"));
  EXPECT_THAT(log.lines(), Contains(HasSubstr("the recording ended on its own")));
}

TEST(ScriptEngine, PacingTypingAndWaitingForTheScreenToSettle) {
  EngineRig rig;
  testing::LogCapture log;
  ScriptEngine engine = rig.engine();
  rig.step(engine, R"(set typing-delay 0.1
set pace nonsense
type "abc"
set auto-pace true
set auto-pace-delay 0.5
key "enter"
)");
  const std::vector<long long> keys = keyDownTimes(rig.backend);
  ASSERT_EQ(keys.size(), 4u);
  // Each key waits the delay, give or take the 30% that keeps typing from ticking, after its
  // own press.
  for (const std::size_t i : {1u, 2u}) {
    EXPECT_GE(keys[i] - keys[i - 1], 70);
    EXPECT_LE(keys[i] - keys[i - 1], 150);
  }
  EXPECT_THAT(log.lines(), Contains("Warning: line 2: unknown pace preset 'nonsense' (expected: "
                                    "tutorial, demo, cinematic)"));
  // The action after `auto-pace` is followed by its pause.
  const long long beforePause = millisecondsSince(rig.clock, rig.origin);
  EXPECT_GE(beforePause - keys[3], 500);

  rig.step(engine, "set pace demo\n");
  EXPECT_THAT(rig.printed, Contains("Applied 'demo' timing preset"));

  // Outside a recording the screen itself is watched: it changes on its first 12 grabs (0.1 s
  // apart), then holds still for the second asked.
  EngineRig idle;
  ScriptEngine watcher = idle.engine();
  idle.screen.changingGrabs = 12;
  idle.step(watcher, "wait-for-idle 1\n");
  EXPECT_NEAR(millisecondsSince(idle.clock, idle.origin), 2200, 120);

  // While recording, the recorder's last change counts; a screen that never settles is given
  // up on 10 s after the quiet time asked for.
  EngineRig recording;
  recording.behaviour.changesUntil = 2s;
  ScriptEngine recorder = recording.engine();
  recording.step(recorder,
                 "open \"Terminal\"\ncapture-window app \"Terminal\" as $t\n"
                 "record $t continue\n");
  const auto started = recording.clock.now();
  recording.step(recorder, "wait-for-idle 1\n");
  EXPECT_NEAR(std::chrono::duration<double>(recording.clock.now() - started).count(), 3, 0.15);
  recording.behaviour.changesUntil = 1h;
  ScriptEngine busy = recording.engine();
  recording.step(busy,
                 "open \"Terminal\"\ncapture-window app \"Terminal\" as $t\n"
                 "record $t continue\n");
  const auto busyStart = recording.clock.now();
  recording.step(busy, "wait-for-idle 1\n");
  EXPECT_NEAR(std::chrono::duration<double>(recording.clock.now() - busyStart).count(), 11, 0.15);
  EXPECT_THAT(log.lines(), Contains(HasSubstr("the screen kept changing for 11 s; going on")));
}

TEST(ScriptEngine, ALineTypedAfterEnterWaitsForTheScreenToSettle) {
  EngineRig rig;
  ScriptEngine engine = rig.engine();
  rig.step(engine, "type \"ls\" enter\n");
  // The shell answers: the screen changes on the next 10 looks (30 ms apart), then holds.
  rig.screen.changingGrabs = rig.screen.grabs + 10;
  rig.step(engine, "type \"pwd\" enter\n");
  std::vector<long long> keys = keyDownTimes(rig.backend);
  ASSERT_EQ(keys.size(), 7u);
  // "p" waits for the changes (about 0.3 s) and for 0.3 s of stillness after them.
  EXPECT_GE(keys[3] - keys[2], 550);
  EXPECT_LE(keys[3] - keys[2], 750);

  // Typing on the same line, or long after Enter, does not wait.
  rig.step(engine, "wait 5\ntype \"a\"\n");
  rig.screen.changingGrabs = rig.screen.grabs + 1000;
  rig.step(engine, "type \"b\"\n");
  keys = keyDownTimes(rig.backend);
  ASSERT_EQ(keys.size(), 9u);
  EXPECT_LE(keys[8] - keys[7], 70);
  EXPECT_GE(keys[7] - keys[6], 5000);
  EXPECT_LE(keys[7] - keys[6], 5100);

  // A screen that never settles holds the next line 3 s after Enter at most.
  rig.step(engine, "type \"c\" enter\ntype \"d\"\n");
  keys = keyDownTimes(rig.backend);
  ASSERT_EQ(keys.size(), 12u);
  EXPECT_NEAR(keys[11] - keys[10], 3000, 100);

  // Where watching the screen would ask the user to share it, a short pause stands in.
  EngineRig asking;
  asking.screen.picksWindows = true;
  ScriptEngine polite = asking.engine();
  asking.step(polite, "type \"ls\" enter\ntype \"pwd\"\n");
  keys = keyDownTimes(asking.backend);
  ASSERT_EQ(keys.size(), 6u);
  EXPECT_NEAR(keys[3] - keys[2], 300, 20);
  EXPECT_EQ(asking.screen.grabs, 0);
}

TEST(ScriptEngine, AutoPacePausesAfterWhatAPersonDoesAndNotAfterTheScriptsOwnSteps) {
  EngineRig rig;
  ScriptEngine engine = rig.engine();
  rig.step(engine, "open \"Terminal\"\nset auto-pace true\nset auto-pace-delay 2\n");
  const auto millisecondsFor = [&](const std::string& line) {
    const Clock::TimePoint start = rig.clock.now();
    rig.step(engine, line);
    return millisecondsSince(rig.clock, start);
  };
  // Each of these takes well under the pause by itself.
  for (const std::string action : {"click 10 20", "click", "scroll down 1", "key \"x\"", "clear",
                                   "focus \"Terminal\"", "move 5 5 duration 0.1"}) {
    EXPECT_GE(millisecondsFor(action), 2000) << action;
  }
  for (const std::string step : {"cursor 10 20", "set fps 24", "wait 0.1", "run \"true\"",
                                 "spotlight region 0 0 9 9", "capture-window app \"Terminal\""}) {
    EXPECT_LT(millisecondsFor(step), 2000) << step;
  }
}

TEST(ScriptEngine, AScriptDrivingAppsByElementIsWarnedOfWithoutTheAccessibilityBus) {
  const std::string warning =
      "Warning: This script drives apps by element. Enable the AT-SPI accessibility bus "
      "(package at-spi2-core) for the apps it drives, then re-run.";
  const std::string recorded =
      "open \"Terminal\"\ncapture-window app \"Terminal\" as $t\nrecord $t duration 1\n";
  const struct {
    std::string lines;
    bool warned;
  } cases[] = {
      {"click 10 20\n", false},
      {"click text:Save\n", true},
      {"wait 1\nmove-to text:Save\n", true},
      {"wait-for text:Done timeout 0\n", true},
      {"dismiss-dialog button OK\n", true},
      // A browser page's elements are reached without the bus.
      {"browser chrome \"about:blank\"\nclick text:Save\n", false},
  };
  for (const auto& [lines, warned] : cases) {
    SCOPED_TRACE(lines);
    EngineRig rig;
    testing::LogCapture log;
    try {
      rig.run(recorded + lines);
    } catch (const ScriptError&) {
      // Without the bus the element line fails; the warning came before the recording.
    }
    const std::vector<std::string> logged = log.lines();
    EXPECT_EQ(std::count(logged.begin(), logged.end(), warning), warned ? 1 : 0);
  }
}

TEST(ScriptEngine, EffectsAreNotedAtTheirTimeInTheSegmentTheyBelongTo) {
  EngineRig rig;
  testing::LogCapture log;
  rig.processes.answers["ls"] = ShellResult{"alpha\nbeta\ngamma", "", 0};
  ScriptEngine engine = rig.engine();
  rig.step(engine, R"(open "Terminal"
capture-window app "Terminal" as $t
run "ls" as $files
spotlight region 10 20 300 40 duration 2
record $t continue
wait 1.5
spotlight stdout $files[1] duration 2
wait 0.5
spotlight-shift region 0 0 100 100 duration 1
clear-fx
stop
intro "Hello" subtitle "A subtitle" duration 2
set-background color "#ABC"
)");
  ASSERT_EQ(engine.segments().size(), 1u);
  const RenderSegment& segment = engine.segments()[0];
  ASSERT_EQ(segment.effects.size(), 2u);
  EXPECT_EQ(segment.effects[0].kind, EffectAnnotation::Kind::spotlight);
  EXPECT_NEAR(segment.effects[0].startTime, 1.5, 1e-9);
  EXPECT_EQ(segment.effects[0].text, "beta");
  EXPECT_TRUE(segment.effects[0].rect.empty());
  EXPECT_EQ(segment.effects[1].kind, EffectAnnotation::Kind::spotlightShift);
  EXPECT_NEAR(segment.effects[1].startTime, 2.0, 1e-9);
  EXPECT_EQ(segment.effects[1].rect, (ScreenRect{0, 0, 100, 100}));
  ASSERT_EQ(segment.demoEvents.size(), 1u);
  EXPECT_EQ(segment.demoEvents[0].kind, DemoEvent::Kind::clearEffects);
  // The spotlight before the recording had nothing to fall on.
  EXPECT_THAT(log.lines(), Contains("Warning: line 4: 'spotlight' outside a recording shows "
                                    "nothing"));

  EXPECT_THAT(
      testing::errorText<ScriptError>([&] { rig.step(engine, "set-background color \"navy\""); }),
      HasSubstr("Line 1: Invalid value 'navy' for 'set-background'"));
}

TEST(ScriptEngine, BrowserPagesAreDrivenByElementAndEndWithTheScript) {
  EngineRig rig;
  rig.browsers.page.rects = {{"css:#go", {100, 200, 40, 20}},
                             {"text:Field", {10, 10, 50, 20}},
                             {"css:#name", {10, 40, 50, 20}}};
  std::ofstream(rig.directory / "page.html") << "<p>hi</p>";
  ScriptOptions options;
  options.scriptDirectory = rig.directory.path();
  rig.run(R"(set fps 12
browser chrome "page.html" as $page
record $page continue
click css:#go
fill css:#name "Ada"
fill text:Field "Bo"
navigate "https://example.com/next" show-typing
zoom css:#go scale 2 duration 1
wait 1
zoom-out duration 0.5
)",
          options);
  const std::string page =
      "file://" +
      std::filesystem::absolute(rig.directory / "page.html").lexically_normal().string();
  // The page's zoom eases in over the second asked for, slowly at first and last, as the
  // digital zoom does, and back out over half a second.
  std::vector<double> zooms;
  for (const std::string& entry : rig.browsers.log) {
    if (entry.starts_with("zoom ")) {
      zooms.push_back(std::stod(entry.substr(5)));
    }
  }
  ASSERT_GE(zooms.size(), 40u);
  const auto peak = std::max_element(zooms.begin(), zooms.end());
  EXPECT_EQ(*peak, 2);
  EXPECT_GE(peak - zooms.begin(), 29);
  EXPECT_LT(zooms.front(), 1.01);
  EXPECT_TRUE(std::is_sorted(zooms.begin(), peak + 1));
  EXPECT_LT(zooms[15] - zooms[14], 0.2);  // fastest in the middle, still a small step
  EXPECT_GT(zooms[15] - zooms[14], zooms[1] - zooms[0]);
  EXPECT_EQ(zooms.back(), 1);
  EXPECT_EQ(rig.browsers.log.front(), "launch " + page);
  EXPECT_EQ(rig.browsers.log[1], "go https://example.com/next");
  EXPECT_EQ(rig.browsers.log.back(), "end");
  EXPECT_THAT(rig.browsers.page.actions, ElementsAre("set css:#name = Ada", "focus text:Field"));
  // The click glides to the element's centre and presses there; the field that takes no value
  // is typed into.
  const auto& lines = rig.backend.lines();
  const auto press = std::find(lines.begin(), lines.end(), "button 1 down");
  ASSERT_NE(press, lines.end());
  EXPECT_EQ(*std::prev(press), "move 120,210");
  EXPECT_THAT(lines, Contains("key b down"));
  EXPECT_THAT(rig.recorders.lines[0], HasSubstr("start window 90"));

  EngineRig missing;
  EXPECT_EQ(testing::errorText<ScriptError>(
                [&] { missing.run("browser chrome \"https://example.com\"\nclick css:#nope\n"); }),
            "Line 2: Element not found: css:#nope");
  EXPECT_THAT(missing.browsers.log, ElementsAre("launch https://example.com", "end"));
}

TEST(ScriptEngine, SettingsBecomeTheRenderAndAPreviewRecordsAtItsOwnRate) {
  ScriptContext context;
  context.setSetting("fps", "25");  // not a rate the table accepts: the default stays
  context.setSetting("max-width", "640");
  context.setSetting("idle-strategy", "cut");
  context.setSetting("keystroke-badges", "true");
  RenderSettings settings = scriptRenderSettings(context, false);
  EXPECT_EQ(settings.fps, 30);
  EXPECT_EQ(settings.maxWidth, 640);
  EXPECT_EQ(settings.idleStrategy, IdleStrategy::cut);
  EXPECT_TRUE(settings.keystrokeBadges);
  EXPECT_FALSE(settings.clickIndicators);
  settings = scriptRenderSettings(context, true);
  EXPECT_EQ(settings.fps, kPreviewFPS);
  EXPECT_EQ(settings.maxWidth, kPreviewMaxWidth);

  // A preview records at its own rate too.
  EngineRig rig;
  ScriptOptions preview;
  preview.preview = true;
  ScriptEngine engine = rig.engine(preview);
  rig.step(engine,
           "open \"Terminal\"\ncapture-window app \"Terminal\" as $t\n"
           "record $t duration 1\n");
  EXPECT_THAT(rig.recorders.lines[0], HasSubstr("10fps"));
}

TEST(ScriptEngine, HiddenStepsRunButLeaveNoFramesAndShowStartsFromTheScreenAsItIsThen) {
  const std::string open =
      "set fps 12\nset transition 0\nopen \"Terminal\"\ncapture-window app \"Terminal\" as $t\n";

  // Hidden in the middle of a recording: 1 s shown, 3 s hidden while the setup runs, 1 s shown.
  EngineRig rig;
  const ScriptOutcome outcome = rig.run(open + R"(record $t continue
wait 1
hide
run "make setup"
type "clear" enter
wait 3
show
wait 1
stop
)");
  EXPECT_THAT(rig.processes.commands, ElementsAre("make setup"));
  EXPECT_EQ(keyDownTimes(rig.backend).size(), 6u);
  // The segment ended at `hide` and recording started anew at `show`: the 3 s between are not
  // recorded, so the file plays 2 s.
  ASSERT_EQ(rig.recorders.lines.size(), 4u);
  const auto at = [&](const RecorderLog& recorded, int i) { return std::stoll(recorded.lines[i]); };
  EXPECT_EQ(at(rig.recorders, 1) - at(rig.recorders, 0), 1000);
  EXPECT_GE(at(rig.recorders, 2) - at(rig.recorders, 1), 3000);
  EXPECT_EQ(at(rig.recorders, 3) - at(rig.recorders, 2), 1000);
  EXPECT_THAT(rig.recorders.lines[2], HasSubstr("start window 2 12fps"));
  const auto gif = testing::decodeGIFFile(rig.directory / "out.gif");
  ASSERT_TRUE(gif);
  EXPECT_EQ(totalCentiseconds(*gif), 200);
  EXPECT_DOUBLE_EQ(outcome.recordedSeconds, 2);
  // What the viewer sees after the hidden part is what the second recording captured.
  EXPECT_GT(testing::pixelAt(gif->frames.front(), 32, 20).r, 180);
  EXPECT_GT(testing::pixelAt(gif->frames.back(), 32, 20).b, 180);

  // A `record` while hidden waits for `show`: its first frame is the screen after the setup, and
  // a duration counts from there.
  EngineRig setup;
  setup.run(open + R"(hide
record $t duration 2 continue
type "cd demo" enter
wait 5
show
remain
)");
  ASSERT_EQ(setup.recorders.lines.size(), 2u);
  const std::vector<long long> keys = keyDownTimes(setup.backend);
  ASSERT_FALSE(keys.empty());
  EXPECT_GT(at(setup.recorders, 0), keys.back() + 5000 - 1);
  EXPECT_EQ(at(setup.recorders, 1) - at(setup.recorders, 0), 2000);
  const auto shown = testing::decodeGIFFile(setup.directory / "out.gif");
  ASSERT_TRUE(shown);
  EXPECT_EQ(totalCentiseconds(*shown), 200);

  // A script hidden to its end records nothing of the hidden part; `show` without `hide` and a
  // second `hide` only warn.
  EngineRig never;
  EXPECT_THAT(testing::errorText<ScriptError>(
                  [&] { never.run(open + "hide\nrecord $t duration 2\nwait 1\n"); }),
              HasSubstr("No segments recorded"));
  EXPECT_TRUE(never.recorders.lines.empty());
  testing::LogCapture log;
  EngineRig twice;
  twice.run(open + "show\nrecord $t continue\nhide\nhide\nwait 1\nshow\nwait 1\n");
  EXPECT_THAT(log.lines(), Contains("Warning: line 5: 'show' without a 'hide' before it"));
  EXPECT_THAT(log.lines(), Contains("Warning: line 8: 'hide' while already hidden"));
  const auto resumed = testing::decodeGIFFile(twice.directory / "out.gif");
  ASSERT_TRUE(resumed);
  EXPECT_EQ(totalCentiseconds(*resumed), 100);
}

TEST(ScriptEngine, TheTimelinePlacesHiddenStepsWhereTheOutputGoesOnAndListsNothingOfThem) {
  // Hidden before the first `record`, in the middle, and from a `show` right before the end,
  // with recorders that take a frame as they start and hear the keys pressed while they run.
  EngineRig rig;
  rig.behaviour.grabsAtStart = true;
  rig.behaviour.keys = &rig.backend;
  const ScriptOutcome outcome = rig.run(R"(set fps 12
set transition 0
open "Terminal"
capture-window app "Terminal" as $t
hide
record $t continue
type "cd demo" enter
wait 2
show
type "ls" enter
wait 1
hide
chapter "Cleaned"
type "rm x" enter
wait 2
show
wait 1
hide
type "clear" enter
show
)");
  const auto timeline = nlohmann::json::parse(outcome.timeline);
  const auto gif = testing::decodeGIFFile(rig.directory / "out.gif");
  ASSERT_TRUE(gif);
  // Two segments, one after the other, and the file plays them and nothing else: the frame the
  // last `show` took, with the hidden `clear` on it, is not in it.
  const double duration = timeline["duration"].get<double>();
  EXPECT_NEAR(totalCentiseconds(*gif) / 100.0, duration, 0.011);
  const auto& segments = timeline["segments"];
  ASSERT_EQ(segments.size(), 2u) << timeline.dump(2);
  const double resumed = segments[1]["start"].get<double>();
  const double last = segments[1]["end"].get<double>();
  EXPECT_EQ(segments[0]["start"], 0);
  EXPECT_EQ(segments[0]["end"].get<double>(), resumed);
  EXPECT_DOUBLE_EQ(last - resumed, 1);
  EXPECT_DOUBLE_EQ(segments[1]["recorded"].get<double>(), 1);
  // The file ends with the last frame time begun.
  EXPECT_NEAR(last, duration, 0.1);
  for (const Image& frame : gif->frames) {
    EXPECT_LT(testing::pixelAt(frame, 32, 20).g, 100) << "a frame of the third recording";
  }
  EXPECT_GT(testing::pixelAt(gif->frames.front(), 32, 20).r, 180);
  EXPECT_GT(testing::pixelAt(gif->frames.back(), 32, 20).b, 180);

  // What ran hidden is placed where the output goes on, takes no time there and says so; `hide`
  // and `show` are where the output leaves off and goes on.
  std::map<int, nlohmann::json> byLine;
  for (const auto& instruction : timeline["instructions"]) {
    byLine[instruction["line"].get<int>()] = instruction;
  }
  ASSERT_EQ(byLine.size(), 20u);
  const auto placed = [&](int line) {
    const nlohmann::json& entry = byLine[line];
    return std::make_tuple(entry["time"].get<double>(), entry["end"].get<double>(),
                           entry.value("hidden", false));
  };
  for (int line : {6, 7, 8}) {
    EXPECT_EQ(placed(line), std::make_tuple(0.0, 0.0, true)) << line;
  }
  for (int line : {13, 14, 15}) {
    EXPECT_EQ(placed(line), std::make_tuple(resumed, resumed, true)) << line;
  }
  for (int line : {19, 20}) {
    EXPECT_EQ(placed(line), std::make_tuple(last, last, line == 19)) << line;
  }
  EXPECT_EQ(placed(5), std::make_tuple(0.0, 0.0, false));
  EXPECT_EQ(placed(9), std::make_tuple(0.0, 0.0, false));
  EXPECT_EQ(std::get<0>(placed(12)), resumed);
  EXPECT_EQ(placed(16), std::make_tuple(resumed, resumed, false));
  EXPECT_EQ(placed(17), std::make_tuple(resumed, last, false));
  EXPECT_EQ(timeline["chapters"],
            nlohmann::json::parse(
                fmt::format(R"([{{"name": "Cleaned", "time": {}, "line": 13}}])", resumed)));
  // Only the keys pressed while shown are listed.
  std::vector<std::string> keys;
  for (const auto& keystroke : timeline["keystrokes"]) {
    keys.push_back(keystroke.value("text", keystroke.value("keys", "")));
    EXPECT_LT(keystroke["time"].get<double>(), resumed);
  }
  EXPECT_THAT(keys, ElementsAre("ls", "Enter"));
}

TEST(ScriptEngine, PlaybackSpeedDividesEveryTimeOfTheOutputAndTheTimelineAgrees) {
  // Four seconds recorded, a caption from 1 s to 3 s of them and a chapter at 2 s.
  const auto script = [](double speed) {
    return fmt::format(R"(set fps 12
set transition 0
set playback-speed {}
record region 0 0 64 40 continue
wait 1
caption "Halfway" duration 2
wait 1
chapter "Two"
wait 2
stop
)",
                       speed);
  };
  for (const double speed : {2.0, 0.5}) {
    SCOPED_TRACE(speed);
    EngineRig rig;
    const ScriptOutcome outcome = rig.run(script(speed));
    const auto gif = testing::decodeGIFFile(rig.directory / "out.gif");
    ASSERT_TRUE(gif);
    EXPECT_EQ(totalCentiseconds(*gif), std::lround(400 / speed));
    EXPECT_NEAR(outcome.summary.duration, 4 / speed, 0.01);
    const auto timeline = nlohmann::json::parse(outcome.timeline);
    EXPECT_DOUBLE_EQ(timeline["duration"].get<double>(), 4 / speed);
    EXPECT_EQ(timeline["segments"],
              nlohmann::json::parse(fmt::format(
                  R"([{{"segment": 1, "start": 0, "end": {}, "recorded": 4}}])", 4 / speed)));
    EXPECT_EQ(timeline["captions"][0]["start"].get<double>(), 1 / speed);
    EXPECT_EQ(timeline["captions"][0]["end"].get<double>(), 3 / speed);
    EXPECT_EQ(timeline["chapters"][0]["time"].get<double>(), 2 / speed);
    EXPECT_EQ(timeline["instructions"][8]["source"], "wait 2");
    EXPECT_EQ(timeline["instructions"][8]["time"].get<double>(), 2 / speed);
    EXPECT_EQ(timeline["instructions"][8]["end"].get<double>(), 4 / speed);
  }

  // At 4 times the pace one output frame stands for four recorded ones: the others are
  // dropped, so a folder of frames holds a quarter of them.
  EngineRig fast;
  const std::filesystem::path frames = fast.directory / "frames";
  ScriptEngine engine = fast.engine();
  const ScriptOutcome outcome = engine.execute(fmt::format(
      "set fps 12\nset playback-speed 4\noutput \"{}/\"\nrecord region 0 0 64 40 duration 4\n",
      frames.string()));
  EXPECT_EQ(outcome.summary.frames, 12);
  EXPECT_EQ(testing::entriesIn(frames), 12);

  // Beyond what a viewer can follow, a factor is refused before the script runs.
  for (const std::string factor : {"5", "0.2", "fast"}) {
    EXPECT_THAT(testing::errorText<ScriptError>([&] { validate("set playback-speed " + factor); }),
                HasSubstr("Invalid value '" + factor +
                          "' for setting 'playback-speed' (expected a factor from 0.25 to 4)"));
  }
}

TEST(ScriptEngine, ALoopOffsetStartsEveryOutputAtThatFrameWithTheFramesBeforeItAtTheEnd) {
  // Red, blue and green recordings of a second each: 36 frames, 12 of each colour.
  struct Case {
    std::string offset;
    std::vector<char> colours;  // of the GIF's frames, in order
    std::vector<int> centiseconds;
    double loopStart;
  };
  const std::vector<Case> cases = {
      {"0", {'r', 'b', 'g'}, {100, 100, 100}, 0},
      {"50%", {'b', 'g', 'r', 'b'}, {50, 100, 100, 50}, 1.5},
      {"11", {'r', 'b', 'g', 'r'}, {8, 100, 100, 92}, 0.917},
      {"40", {'r', 'b', 'g', 'r'}, {67, 100, 100, 33}, 0.333},
  };
  const auto colourOf = [](const Image& frame) {
    const Pixel p = testing::pixelAt(frame, 32, 20);
    return p.r > 180 ? 'r' : p.b > 180 ? 'b' : p.g > 180 ? 'g' : '?';
  };
  for (const Case& expected : cases) {
    SCOPED_TRACE(expected.offset);
    testing::LogCapture log;
    EngineRig rig;
    const std::filesystem::path gif = rig.directory / "loop.gif";
    const std::filesystem::path frames = rig.directory / "frames";
    ScriptEngine engine = rig.engine();
    const ScriptOutcome outcome = engine.execute(fmt::format(
        "set fps 12\nset transition 0\nset loop-offset {}\noutput \"{}\"\noutput \"{}/\"\n"
        "record region 0 0 64 40 duration 1\nrecord region 0 0 64 40 duration 1\n"
        "record region 0 0 64 40 duration 1\n",
        expected.offset, gif.string(), frames.string()));
    const auto decoded = testing::decodeGIFFile(gif);
    ASSERT_TRUE(decoded);
    std::vector<char> colours;
    for (const Image& frame : decoded->frames) {
      colours.push_back(colourOf(frame));
    }
    EXPECT_EQ(colours, expected.colours);
    // Delays are whole centiseconds: each frame's share of 1/12 s is rounded where it falls.
    ASSERT_EQ(decoded->delaysCentiseconds.size(), expected.centiseconds.size());
    for (std::size_t i = 0; i < expected.centiseconds.size(); ++i) {
      EXPECT_NEAR(decoded->delaysCentiseconds[i], expected.centiseconds[i], 1) << i;
    }
    EXPECT_EQ(totalCentiseconds(*decoded), 300);
    // The frame folder starts at the same frame.
    EXPECT_EQ(testing::entriesIn(frames), 36);
    const auto first = decodeImage(readFileBytes(frames / "frame-00001.png"));
    ASSERT_TRUE(first);
    EXPECT_EQ(colourOf(*first), expected.colours.front());
    // The timeline keeps the script's order and says where the file begins in it.
    const auto timeline = nlohmann::json::parse(outcome.timeline);
    EXPECT_EQ(timeline["loopStart"].get<double>(), expected.loopStart);
    EXPECT_EQ(timeline["segments"][1]["start"].get<double>(), 1.0);
    EXPECT_EQ(log.lines().size(), expected.offset == "40" ? 1u : 0u);
    if (expected.offset == "40") {
      EXPECT_THAT(log.lines(), Contains("Warning: loop-offset 40 is past the last frame (35); "
                                        "the loop starts at frame 4"));
    }
  }

  for (const std::string offset : {"150%", "-3", "half", "2.5"}) {
    EXPECT_THAT(testing::errorText<ScriptError>([&] { validate("set loop-offset " + offset); }),
                HasSubstr("Invalid value '" + offset +
                          "' for setting 'loop-offset' (expected a frame number (0 or more) or "
                          "a percentage such as 50%)"));
  }
}

TEST(ScriptEngine, EnvReachesLaterShellCommandsAndRequireStopsBeforeAnythingOpens) {
  EngineRig rig;
  rig.run(R"(set fps 12
run "echo before"
env GREETING "hello world"
env LANG C.UTF-8
env GREETING "hi $who"
run "echo $GREETING"
open "Terminal"
capture-window app "Terminal" as $t
record $t duration 1
)");
  ASSERT_EQ(rig.processes.environments.size(), 2u);
  EXPECT_THAT(rig.processes.environments[0], IsEmpty());
  // The later `env` of a name replaces the earlier; text in it is the script's, expanded then.
  EXPECT_THAT(rig.processes.environments[1], ElementsAre("LANG=C.UTF-8", "GREETING=hi $who"));
  // The programs `open` starts get it too, dressed terminals and others alike.
  EngineRig opened;
  opened.run(R"(set fps 12
open "Terminal"
env DEMO_USER "ada"
open "Terminal"
set terminal-font-size 14
open "Terminal"
capture-window app "Terminal" as $t
record $t duration 1
)");
  ASSERT_EQ(opened.launcher.environments().size(), 3u);
  EXPECT_THAT(opened.launcher.environments()[0], IsEmpty());
  EXPECT_THAT(opened.launcher.environments()[1], ElementsAre("DEMO_USER=ada"));
  EXPECT_THAT(opened.launcher.environments()[2], ElementsAre("DEMO_USER=ada"));
  EXPECT_THAT(opened.launcher.launches()[2], HasSubstr("faceSize: 14"));

  // A script variable the command names is the command's, above an `env` of the same name.
  EngineRig named;
  named.processes.answers["printf x"] = {"from run", "", 0};
  named.run(R"(set fps 12
env OUT "from env"
run "printf x" as $OUT
run "echo $OUT"
open "Terminal"
capture-window app "Terminal" as $t
record $t duration 1
)");
  ASSERT_EQ(named.processes.environments.size(), 2u);
  EXPECT_THAT(named.processes.environments[1], ElementsAre("OUT=from run"));

  // A program that is not on PATH stops the script at its `require` line before any line runs.
  EngineRig missing;
  EXPECT_THAT(testing::errorText<ScriptError>([&] {
                missing.run(
                    "open \"Terminal\"\nrequire \"sh\"\nrequire \"brimble-no-such-program\"\n"
                    "capture-window app \"Terminal\" as $t\nrecord $t duration 1\n");
              }),
              HasSubstr("Line 3: 'brimble-no-such-program' is required but is not on PATH"));
  EXPECT_THAT(missing.launcher.launches(), IsEmpty());
  EXPECT_TRUE(missing.recorders.lines.empty());
  // A program a variable names is looked for when its line runs.
  EngineRig late;
  late.processes.answers["printf nope"] = {"brimble-no-such-program", "", 0};
  EXPECT_THAT(
      testing::errorText<ScriptError>([&] { late.run("run \"printf nope\" as $p\nrequire $p\n"); }),
      HasSubstr("Line 2: 'brimble-no-such-program' is required but is not on PATH"));
  EXPECT_THAT(late.processes.commands, ElementsAre("printf nope"));
}

TEST(ScriptEngine, AScreenshotIsThePictureBeingRecordedWrittenAsPNGWhereOutputsMayGo) {
  EngineRig rig;
  rig.screen.changingGrabs = 10;
  const std::filesystem::path before = rig.directory / "before.png";
  const std::filesystem::path during = rig.directory / "during.png";
  rig.run(fmt::format(R"(set fps 12
screenshot "{}"
open "Terminal"
capture-window app "Terminal" as $t
record $t continue
wait 1
screenshot "{}"
stop
)",
                      before.string(), during.string()));
  // Outside a recording the screen is taken; during one, what it records.
  ASSERT_EQ(rig.screen.opened.size(), 2u);
  EXPECT_EQ(rig.screen.opened[0].kind, CaptureTarget::Kind::screenArea);
  EXPECT_EQ(rig.screen.opened[0].area.width, 1280);
  EXPECT_EQ(rig.screen.opened[1].kind, CaptureTarget::Kind::window);
  EXPECT_EQ(rig.screen.opened[1].windowID, 2u);
  int shade = 0;
  for (const std::filesystem::path& file : {before, during}) {
    SCOPED_TRACE(file.string());
    const auto image = decodeImage(readFileBytes(file));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width(), 8);
    EXPECT_EQ(testing::pixelAt(*image, 4, 4).g, shade++);
  }

  // A file that is no PNG, or in a folder that is not there, stops the script before it starts.
  EngineRig refused;
  for (const std::filesystem::path& file :
       {refused.directory / "shot.gif", refused.directory / "no-such-folder" / "x.png"}) {
    EXPECT_THAT(testing::errorText<ScriptError>([&] {
                  refused.run("open \"Terminal\"\nscreenshot \"" + file.string() + "\"\n");
                }),
                ::testing::StartsWith("Line 2: screenshot: "));
    EXPECT_THAT(refused.launcher.launches(), IsEmpty());
  }
}

TEST(ScriptEngine, AFailingLineOfAnIncludedScriptIsReportedInThatScript) {
  EngineRig rig;
  const std::filesystem::path setup = rig.directory / "setup.brim";
  std::ofstream(setup) << "wait 1\nresize 800 600\n";
  ScriptOptions options;
  options.output = rig.directory / "out.gif";
  ScriptEngine engine = rig.engine(options);
  EXPECT_EQ(testing::errorText<ScriptError>([&] {
              engine.execute(validate("set fps 12\ninclude \"" + setup.string() + "\"\n"));
            }),
            setup.string() + ": Line 2: 'resize' requires a captured or recording window");
}

TEST(ScriptEngine, OneRenderIsWrittenToEveryOutputTheScriptNames) {
  const std::string record = "set fps 12\nset transition 0\nrecord region 0 0 64 40 duration 1\n";
  EngineRig rig;
  const std::filesystem::path gif = rig.directory / "demo.gif";
  const std::filesystem::path webp = rig.directory / "demo.webp";
  ScriptEngine several = rig.engine();
  const ScriptOutcome outcome = several.execute(
      fmt::format("set output \"{}\" \"{}\"\n{}", gif.string(), webp.string(), record));
  ASSERT_EQ(outcome.outputs.size(), 2u);
  EXPECT_EQ(outcome.outputs[0].path, gif);
  EXPECT_EQ(outcome.outputs[1].path, webp);
  EXPECT_THAT(rig.printed,
              Contains("Rendering 1 segment(s) into " + gif.string() + ", " + webp.string()));
  const auto decoded = testing::decodeGIFFile(gif);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(totalCentiseconds(*decoded), 100);
  EXPECT_EQ(fileText(webp).substr(8, 4), "WEBP");
  EXPECT_EQ(outcome.outputs[1].summary.width, 64);
  EXPECT_NEAR(outcome.outputs[1].summary.duration, 1, 0.02);
  // The recording went once into both.
  EXPECT_EQ(rig.recorders.lines.size(), 2u);

  // `output` lines add to each other: the first one replaces the default output, and a name
  // ending in "/" is a folder of PNG frames, 1/fps apart.
  EngineRig lines;
  const std::filesystem::path clip = lines.directory / "clip.gif";
  const std::filesystem::path frames = lines.directory / "frames";
  std::filesystem::create_directory(frames);
  // Frames an earlier, longer render left go; a new render's take their names.
  std::ofstream(frames / "frame-00099.png") << "old";
  ScriptEngine added = lines.engine();
  const ScriptOutcome both = added.execute(
      fmt::format("output \"{}\"\noutput \"{}/\"\n{}", clip.string(), frames.string(), record));
  ASSERT_EQ(both.outputs.size(), 2u);
  EXPECT_TRUE(std::filesystem::exists(clip));
  EXPECT_EQ(both.outputs[1].summary.frames, 12);
  EXPECT_EQ(testing::entriesIn(frames), 12);
  const auto first = decodeImage(readFileBytes(frames / "frame-00001.png"));
  ASSERT_TRUE(first);
  EXPECT_EQ(first->width(), 64);
  EXPECT_GT(testing::pixelAt(*first, 32, 20).r, 180);
  EXPECT_TRUE(std::filesystem::exists(frames / "frame-00012.png"));
  EXPECT_FALSE(std::filesystem::exists(lines.directory / "output.gif"));

  // A folder that holds a file of the user's is not written into, and the file stays.
  EngineRig mine;
  const std::filesystem::path kept = mine.directory / "shots";
  std::filesystem::create_directory(kept);
  std::ofstream(kept / "notes.txt") << "mine";
  ScriptEngine refused = mine.engine();
  EXPECT_THAT(testing::errorText<ScriptError>([&] {
                refused.execute(fmt::format("output \"{}/\"\n{}", kept.string(), record));
              }),
              HasSubstr("notes.txt: it exists and is not an image or video, so it is not "
                        "replaced"));
  EXPECT_EQ(fileText(kept / "notes.txt"), "mine");
  EXPECT_EQ(testing::entriesIn(kept), 1);
}

TEST(ScriptEngine, CaptionsChaptersAndInstructionsLandInTheTimelineAtOutputTimes) {
  EngineRig rig;
  testing::LogCapture log;
  const ScriptOutcome outcome = rig.run(R"(intro "Hi" duration 2
chapter "Setup"
caption "Before we start"
open "Terminal"
capture-window app "Terminal" as $t
record $t continue
wait 1
chapter "Middle"
caption "Up top" duration 0.5 position top
wait 1
stop
record $t duration 2
)");
  // The card plays 2 s and fades for 0.5 s into the first segment (1.5 s to 3.5 s), which
  // crossfades for 0.3 s into the second (3.2 s to 5.2 s).
  const auto timeline = nlohmann::json::parse(outcome.timeline);
  EXPECT_EQ(timeline["output"], (rig.directory / "out.gif").string());
  EXPECT_DOUBLE_EQ(timeline["duration"].get<double>(), 5.2);
  EXPECT_EQ(timeline["segments"], nlohmann::json::parse(R"([
      {"segment": 1, "start": 1.5, "end": 3.5, "recorded": 2.0},
      {"segment": 2, "start": 3.2, "end": 5.2, "recorded": 2.0}])"));
  EXPECT_EQ(timeline["chapters"], nlohmann::json::parse(R"([
      {"name": "Setup", "time": 1.5, "line": 2},
      {"name": "Middle", "time": 2.5, "line": 8}])"));
  // A caption placed before the recording starts with it, and holds until the segment ends.
  EXPECT_EQ(timeline["captions"], nlohmann::json::parse(R"([
      {"text": "Before we start", "start": 1.5, "end": 3.5, "position": "bottom"},
      {"text": "Up top", "start": 2.5, "end": 3.0, "position": "top"}])"));
  std::map<int, std::pair<double, double>> times;
  for (const auto& instruction : timeline["instructions"]) {
    times[instruction["line"].get<int>()] = {instruction["time"].get<double>(),
                                             instruction["end"].get<double>()};
  }
  ASSERT_EQ(times.size(), 12u);
  EXPECT_EQ(timeline["instructions"][6]["command"], "wait");
  EXPECT_EQ(timeline["instructions"][6]["source"], "wait 1");
  EXPECT_EQ(times[6], std::make_pair(1.5, 1.5));
  EXPECT_EQ(times[7], std::make_pair(1.5, 2.5));
  EXPECT_EQ(times[10], std::make_pair(2.5, 3.5));
  EXPECT_EQ(times[12], std::make_pair(3.2, 5.2));
  EXPECT_THAT(log.lines(), IsEmpty());

  EXPECT_EQ(testing::errorText<ScriptError>([&] {
              EngineRig other;
              other.run("caption \"x\" duration 0\n");
            }),
            "Line 1: caption duration must be more than 0 seconds, not 0");
}

}  // namespace
}  // namespace brimble
