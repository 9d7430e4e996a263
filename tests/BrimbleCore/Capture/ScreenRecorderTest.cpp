#include "BrimbleCore/Capture/ScreenRecorder.h"

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/FakeClock.h"
#include "tests/Support/Images.h"
#include "tests/Support/LogCapture.h"

namespace brimble {
namespace {

using testing::LogCapture;

/// Remembers what was appended; fails appends or finalizing on request.
class FakeFrameWriter final : public FrameWriting {
 public:
  struct Record {
    std::vector<std::vector<std::uint8_t>> frames;
    bool failAppends = false;
    bool failFinalize = false;
    bool discarded = false;
  };
  explicit FakeFrameWriter(Record& record) : record_(record) {}

  int count() const override { return static_cast<int>(record_.frames.size()); }
  void append(std::span<const std::uint8_t> data) override {
    if (record_.failAppends) {
      throw std::runtime_error("disk full");
    }
    record_.frames.emplace_back(data.begin(), data.end());
  }
  std::unique_ptr<CompressedFrameStore> finalize() override {
    if (record_.failFinalize) {
      throw std::runtime_error("cannot close");
    }
    return std::make_unique<InMemoryFrameStore>(record_.frames);
  }
  void discard() noexcept override { record_.discarded = true; }

 private:
  Record& record_;
};

/// One 1920x1080 display of id 66. Its streams hold the capture thread in its first grab until
/// `release`, so tests feed `ingestFrame` themselves while the fake clock stands still.
class FakeScreenSource final : public ScreenSource {
 public:
  bool failOpen = false;

  std::vector<ScreenDisplay> displays() override {
    return {{.displayID = 66, .frame = {0, 0, 1920, 1080}}};
  }
  std::optional<ScreenWindow> window(std::uint32_t) override { return std::nullopt; }
  std::optional<std::pair<int, int>> pointerPosition() override { return std::nullopt; }
  std::unique_ptr<ScreenStream> openStream(const CaptureTarget&, bool) override {
    if (failOpen) {
      throw ScreenCaptureError::displayUnreachable(":fake");
    }
    return std::make_unique<Stream>(released_);
  }
  void release() {
    std::call_once(releasedOnce_, [&] { release_.set_value(); });
  }

 private:
  struct Stream final : ScreenStream {
    explicit Stream(std::shared_future<void> whenReleased) : released(std::move(whenReleased)) {}
    std::optional<Image> grab() override {
      released.wait();
      return std::nullopt;
    }
    std::shared_future<void> released;
  };

  std::promise<void> release_;
  std::shared_future<void> released_ = release_.get_future().share();
  std::once_flag releasedOnce_;
};

struct RecorderFixture {
  FakeScreenSource source;
  testing::FakeClock clock;
  FakeFrameWriter::Record written;
  std::vector<std::uint64_t> diskAnswers;  // the provider's answers, the last one repeated
  int diskQueries = 0;
  ScreenRecorder recorder{source, clock};

  RecorderFixture() {
    recorder.availableDiskSpaceProvider = [this]() -> std::optional<std::uint64_t> {
      ++diskQueries;
      if (diskAnswers.empty()) {
        return std::nullopt;
      }
      return diskAnswers[std::min<std::size_t>(diskQueries, diskAnswers.size()) - 1];
    };
    recorder.frameWriterFactory = [this] { return std::make_unique<FakeFrameWriter>(written); };
  }
  ~RecorderFixture() { source.release(); }

  void start() { recorder.start(ScreenDisplay{.displayID = 66}, 30, false); }
  std::unique_ptr<CompressedFrameStore> stop() {
    source.release();
    return recorder.stopAndCollectFrameStore();
  }
};

Image shade(int value) {
  return testing::solidImage(64, 48, {static_cast<std::uint8_t>(value), 40, 200});
}

TEST(ScreenRecorder, CaptureDimensionsCapTheWidthAndKeepSizesEven) {
  // 1000 points on a 2x display: capped to 900 points, so 1800 pixels, height scaled alike.
  EXPECT_EQ(ScreenRecorder::captureDimensions({1000, 600}, 2, 900), (ImageSize{1800, 1080}));
  EXPECT_EQ(ScreenRecorder::captureDimensions({901, 301}, 1, 900), (ImageSize{900, 300}));
  EXPECT_EQ(ScreenRecorder::captureDimensions({641, 479}, 1, 900), (ImageSize{640, 478}));
  EXPECT_EQ(ScreenRecorder::captureDimensions({2560, 1440}, 1, 1920), (ImageSize{1920, 1080}));
}

TEST(ScreenRecorder, FailedStartsSayWhyAndKeepNoFrameWriter) {
  RecorderFixture fixture;
  LogCapture log;
  const std::string noDisplay = "Couldn't find a display to record.";
  EXPECT_EQ(
      testing::errorText([&] { fixture.recorder.start(ScreenDisplay{.displayID = 7}, 30, true); }),
      noDisplay);
  EXPECT_EQ(testing::errorText([&] {
              fixture.recorder.start(ScreenRect{2000, 0, 100, 100}, {.displayID = 66}, 30, true);
            }),
            noDisplay)
      << "a region outside the display";
  fixture.source.failOpen = true;
  EXPECT_EQ(testing::errorText([&] { fixture.start(); }),
            "Couldn't connect to the X display \":fake\" to record it.");
  EXPECT_TRUE(fixture.written.discarded);
  EXPECT_EQ(fixture.recorder.stopAndCollectFrameStore(), nullptr);
  fixture.recorder.frameWriterFactory = []() -> std::unique_ptr<FrameWriting> {
    throw std::runtime_error("no space left on device");
  };
  EXPECT_EQ(testing::errorText([&] { fixture.start(); }),
            "Couldn't create the temporary file for this recording. Check that your disk has "
            "free space and try again.");
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{
                "Brimble: could not create the frame store (no space left on device)"});
}

TEST(ScreenRecorder, UnderDiskPressureEveryOtherFrameIsWrittenAndCriticalSpaceStops) {
  RecorderFixture fixture;
  // Plenty at frame 0, 512 MiB at frame 60, 100 MiB at frame 120.
  fixture.diskAnswers = {5ull << 30, 512ull << 20, 100ull << 20};
  LogCapture log;
  fixture.start();
  for (int i = 0; i < 61; ++i) {
    fixture.recorder.ingestFrame(shade(i));
  }
  EXPECT_EQ(fixture.written.frames.size(), 61u);
  EXPECT_TRUE(fixture.recorder.isDiskConstrained());
  EXPECT_FALSE(fixture.recorder.isDiskCritical());
  for (int i = 61; i < 69; ++i) {
    fixture.recorder.ingestFrame(shade(i));
  }
  EXPECT_EQ(fixture.written.frames.size(), 61u + 4u) << "of eight frames, four are written";
  for (int i = 69; i < 121; ++i) {
    fixture.recorder.ingestFrame(shade(i));
  }
  EXPECT_TRUE(fixture.recorder.isDiskCritical());
  EXPECT_EQ(fixture.diskQueries, 3) << "checked at frames 0, 60 and 120 only";
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "Brimble: Disk pressure detected (512 MB free), dropping every other frame",
                "Brimble: Disk critically low (100 MB free), stopping the recording"}));
  EXPECT_EQ(fixture.stop()->count(), 61 + 30);
  EXPECT_EQ(fixture.recorder.ingestedFrameCount(), 121);
}

TEST(ScreenRecorder, WritesEveryFrameButPausedOnesAndKeepsTheFirstDateOfAPicture) {
  RecorderFixture fixture;
  fixture.start();
  fixture.clock.advance(std::chrono::seconds(1));
  const auto firstChange = fixture.clock.now();
  fixture.recorder.ingestFrame(shade(10));
  for (int i = 0; i < 3; ++i) {
    fixture.clock.advance(std::chrono::seconds(1));
    fixture.recorder.ingestFrame(shade(10));
  }
  EXPECT_EQ(fixture.recorder.lastChangeTime(), firstChange);
  fixture.recorder.pause();
  fixture.recorder.ingestFrame(shade(100));
  fixture.recorder.resume();
  fixture.clock.advance(std::chrono::seconds(1));
  fixture.recorder.ingestFrame(shade(200));
  EXPECT_EQ(fixture.recorder.lastChangeTime(), firstChange + std::chrono::seconds(4));
  EXPECT_EQ(fixture.recorder.ingestedFrameCount(), 5);
  ASSERT_EQ(fixture.written.frames.size(), 5u);
  // Each written frame keeps the time it was taken at; the paused one has none.
  EXPECT_EQ(fixture.recorder.frameTimes(), (std::vector<double>{1, 2, 3, 4, 5}));
  EXPECT_EQ(fixture.written.frames[0], fixture.written.frames[3]);
  // What is written is the JPEG of the frame at quality 85.
  EXPECT_EQ(fixture.written.frames[0], encodeJPEG(shade(10), 85));
  EXPECT_EQ(fixture.written.frames[4], encodeJPEG(shade(200), 85));
}

TEST(ScreenRecorder, FailedWritesAreCountedAndLoggedAndAFailedFinalizeKeepsNothing) {
  for (const bool failFinalize : {false, true}) {
    RecorderFixture fixture;
    LogCapture log;
    fixture.start();
    fixture.recorder.ingestFrame(shade(1));
    fixture.written.failAppends = true;
    fixture.recorder.ingestFrame(shade(2));
    fixture.recorder.ingestFrame(shade(3));
    fixture.written.failAppends = false;
    fixture.recorder.ingestFrame(shade(4));
    fixture.written.failFinalize = failFinalize;
    const auto store = fixture.stop();
    std::vector<std::string> expected = {
        "Brimble: frame write failed (disk full); further failures are only counted",
        "Brimble: 2 frame(s) were lost to frame-store write failures"};
    if (failFinalize) {
      expected.push_back(
          "Brimble: frame store finalize failed (cannot close), discarding temp file");
      EXPECT_EQ(store, nullptr);
      EXPECT_TRUE(fixture.written.discarded);
    } else {
      EXPECT_EQ(store->count(), 2);
    }
    EXPECT_EQ(fixture.recorder.lostFrameCount(), 2);
    EXPECT_EQ(log.lines(), expected);
  }
}

TEST(ScreenRecorder, ThreeSecondsOfARealScreenAreAboutFpsTimesThreeFrames) {
  const auto display = x11::HeadlessDisplay::start({.sessionBus = false, .windowManager = false});
  x11::X11ScreenSource source(display->displayName());
  ScreenRecorder recorder(source, steadyClock());
  recorder.start(ScreenRect{10, 20, 321, 241}, source.displays().front(), 30, true);
  EXPECT_EQ(recorder.outputSize(), (ImageSize{320, 240}));
  std::this_thread::sleep_for(std::chrono::seconds(3));
  const auto store = recorder.stopAndCollectFrameStore();
  ASSERT_NE(store, nullptr);
  EXPECT_GE(store->count(), 75);
  EXPECT_LE(store->count(), 92);
  EXPECT_FALSE(recorder.hasStreamEnded());
  // Frames sit on the recording's clock, about 1/30 s apart (more where a tick was skipped).
  const std::vector<double> times = recorder.frameTimes();
  ASSERT_EQ(times.size(), static_cast<std::size_t>(store->count()));
  EXPECT_LT(times.front(), 0.1);
  EXPECT_GT(times.back(), 2.8);
  EXPECT_LT(times.back(), 3.1);
  for (std::size_t i = 1; i < times.size(); ++i) {
    EXPECT_GE(times[i] - times[i - 1], 0.02) << i;
  }
  const auto last = decodeImage(store->data(store->count() - 1));
  ASSERT_TRUE(last);
  EXPECT_EQ(last->width(), 320);
  EXPECT_EQ(last->height(), 240);
}

}  // namespace
}  // namespace brimble
