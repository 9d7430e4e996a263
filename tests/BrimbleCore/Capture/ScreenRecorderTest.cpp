#include "BrimbleCore/Capture/ScreenRecorder.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/GIFEncoder.h"
#include "BrimbleCore/Encoding/ImageCodec.h"
#include "BrimbleCore/Platform/X11/HeadlessDisplay.h"
#include "BrimbleCore/Platform/X11/X11ScreenSource.h"
#include "tests/Support/FakeClock.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/Images.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::FakeClock;
using testing::LogCapture;
using testing::solidImage;

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

ScreenDisplay displayWithID(std::uint32_t id) {
  ScreenDisplay display;
  display.displayID = id;
  return display;
}

/// One 1920x1080 display of id 66. Its streams hold the capture thread in its first grab until
/// `release`, so tests feed `ingestFrame` themselves while the fake clock stands still.
class FakeScreenSource final : public ScreenSource {
 public:
  bool failOpen = false;

  std::vector<ScreenDisplay> displays() override {
    return {{.displayID = 66, .name = "screen", .frame = {0, 0, 1920, 1080}}};
  }
  std::optional<ScreenWindow> window(std::uint32_t) override { return std::nullopt; }
  std::optional<std::pair<int, int>> pointerPosition() override { return std::nullopt; }
  std::unique_ptr<ScreenStream> openStream(const CaptureTarget&, bool) override {
    if (failOpen) {
      throw ScreenCaptureError::displayUnreachable(":fake");
    }
    return std::make_unique<Stream>(*this);
  }
  void release() {
    std::scoped_lock lock(mutex_);
    released_ = true;
    releasedChanged_.notify_all();
  }

 private:
  struct Stream final : ScreenStream {
    explicit Stream(FakeScreenSource& owner) : source(owner) {}
    std::optional<Image> grab() override {
      std::unique_lock lock(source.mutex_);
      source.releasedChanged_.wait(lock, [&] { return source.released_; });
      return std::nullopt;
    }
    FakeScreenSource& source;
  };

  std::mutex mutex_;  // guards released_
  std::condition_variable releasedChanged_;
  bool released_ = false;
};

struct RecorderFixture {
  FakeScreenSource source;
  FakeClock clock;
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

  void start() { recorder.start(displayWithID(66), 30, false); }
  std::unique_ptr<CompressedFrameStore> stop() {
    source.release();
    return recorder.stopAndCollectFrameStore();
  }
};

Image shade(int value) {
  return solidImage(64, 48, {static_cast<std::uint8_t>(value), 40, 200});
}

TEST(ScreenRecorder, CaptureDimensionsCapTheWidthAndKeepSizesEven) {
  // 1000 points on a 2x display: capped to 900 points, so 1800 pixels, height scaled alike.
  EXPECT_EQ(ScreenRecorder::captureDimensions({1000, 600}, 2, 900), (ImageSize{1800, 1080}));
  EXPECT_EQ(ScreenRecorder::captureDimensions({901, 301}, 1, 900), (ImageSize{900, 300}));
  EXPECT_EQ(ScreenRecorder::captureDimensions({641, 479}, 1, 900), (ImageSize{640, 478}));
  EXPECT_EQ(ScreenRecorder::captureDimensions({2560, 1440}, 1, 1920), (ImageSize{1920, 1080}));
  EXPECT_EQ(ScreenRecorder::captureDimensions({1920, 1200}, 1, 1920), (ImageSize{1920, 1200}));
}

/// The text of the RecordingError `start` throws; fails the test for anything else.
template <typename Start>
std::string recordingError(RecordingError::Code code, Start start) {
  try {
    start();
  } catch (const RecordingError& error) {
    EXPECT_EQ(error.code(), code);
    return error.what();
  }
  ADD_FAILURE() << "the recording started";
  return {};
}

TEST(ScreenRecorder, StartFailuresCarryTheDesignedTexts) {
  RecorderFixture fixture;
  LogCapture log;
  auto& recorder = fixture.recorder;
  EXPECT_EQ(recordingError(RecordingError::Code::noDisplay,
                           [&] { recorder.start(displayWithID(7), 30, true); }),
            "Couldn't find a display to record.");
  recordingError(RecordingError::Code::noDisplay, [&] {
    recorder.start(ScreenRect{2000, 0, 100, 100}, displayWithID(66), 30, true);
  });
  recorder.frameWriterFactory = []() -> std::unique_ptr<FrameWriting> {
    throw std::runtime_error("no space left on device");
  };
  EXPECT_EQ(recordingError(RecordingError::Code::frameStoreUnavailable,
                           [&] { recorder.start(displayWithID(66), 30, true); }),
            "Couldn't create the temporary file for this recording. Check that your disk has "
            "free space and try again.");
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{
                "Brimble: could not create the frame store (no space left on device)"});
}

TEST(ScreenRecorder, AStreamThatCannotOpenFailsStartAndDiscardsTheWriter) {
  RecorderFixture fixture;
  fixture.source.failOpen = true;
  EXPECT_THROW(fixture.start(), ScreenCaptureError);
  EXPECT_TRUE(fixture.written.discarded);
  EXPECT_EQ(fixture.recorder.stopAndCollectFrameStore(), nullptr);
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
  const auto store = fixture.stop();
  ASSERT_NE(store, nullptr);
  EXPECT_EQ(store->count(), 61 + 30);
  EXPECT_EQ(fixture.recorder.ingestedFrameCount(), 121);
}

TEST(ScreenRecorder, IdenticalFramesAreAllWrittenButKeepTheFirstChangeDate) {
  RecorderFixture fixture;
  fixture.start();
  fixture.clock.advance(std::chrono::seconds(1));
  const auto firstChange = fixture.clock.now();
  fixture.recorder.ingestFrame(shade(10));
  for (int i = 0; i < 3; ++i) {
    fixture.clock.advance(std::chrono::seconds(1));
    fixture.recorder.ingestFrame(shade(10));
  }
  EXPECT_EQ(fixture.recorder.lastChangeDate(), firstChange);
  fixture.clock.advance(std::chrono::seconds(1));
  fixture.recorder.ingestFrame(shade(200));
  EXPECT_EQ(fixture.recorder.lastChangeDate(), firstChange + std::chrono::seconds(4));
  ASSERT_EQ(fixture.written.frames.size(), 5u);
  EXPECT_EQ(fixture.written.frames[0], fixture.written.frames[3]);
  EXPECT_NE(fixture.written.frames[3], fixture.written.frames[4]);
  // What is written is the JPEG of the frame at quality 85.
  EXPECT_EQ(fixture.written.frames[0], encodeJPEG(shade(10), 85));
}

TEST(ScreenRecorder, PausedFramesAreNeitherCountedNorWritten) {
  RecorderFixture fixture;
  fixture.start();
  fixture.recorder.ingestFrame(shade(1));
  fixture.recorder.pause();
  fixture.recorder.ingestFrame(shade(2));
  fixture.recorder.ingestFrame(shade(3));
  fixture.recorder.resume();
  fixture.recorder.ingestFrame(shade(4));
  EXPECT_EQ(fixture.recorder.ingestedFrameCount(), 2);
  EXPECT_EQ(fixture.written.frames.size(), 2u);
}

TEST(ScreenRecorder, FailedWritesAreCountedLoggedOnceAndReportedAtStop) {
  RecorderFixture fixture;
  LogCapture log;
  fixture.start();
  fixture.recorder.ingestFrame(shade(1));
  fixture.written.failAppends = true;
  fixture.recorder.ingestFrame(shade(2));
  fixture.recorder.ingestFrame(shade(3));
  fixture.written.failAppends = false;
  fixture.recorder.ingestFrame(shade(4));
  EXPECT_EQ(fixture.recorder.lostFrameCount(), 2);
  const auto store = fixture.stop();
  ASSERT_NE(store, nullptr);
  EXPECT_EQ(store->count(), 2);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "Brimble: frame write failed (disk full); further failures are only counted",
                "Brimble: 2 frame(s) were lost to frame-store write failures"}));
}

TEST(ScreenRecorder, AFailedFinalizeDiscardsTheFramesAndReturnsNothing) {
  RecorderFixture fixture;
  LogCapture log;
  fixture.start();
  fixture.recorder.ingestFrame(shade(1));
  fixture.written.failFinalize = true;
  EXPECT_EQ(fixture.stop(), nullptr);
  EXPECT_TRUE(fixture.written.discarded);
  EXPECT_EQ(log.lines(), std::vector<std::string>{
                             "Brimble: frame store finalize failed (cannot close), discarding "
                             "temp file"});
}

TEST(ScreenRecorder, ThreeSecondsOfARealScreenAreAboutFpsTimesThreeFramesAndAGIF) {
  const auto display = x11::HeadlessDisplay::start({.sessionBus = false, .windowManager = false});
  x11::X11ScreenSource source(display->displayName());
  ScreenRecorder recorder(source, steadyClock());
  const auto screen = source.displays().front();
  recorder.start(ScreenRect{10, 20, 321, 241}, screen, 30, true);
  EXPECT_EQ(recorder.outputSize(), (ImageSize{320, 240}));
  std::this_thread::sleep_for(std::chrono::seconds(3));
  const auto store = recorder.stopAndCollectFrameStore();
  ASSERT_NE(store, nullptr);
  EXPECT_GE(store->count(), 75);
  EXPECT_LE(store->count(), 92);
  EXPECT_FALSE(recorder.hasStreamEnded());

  testing::TempDirectory directory;
  const auto gif = directory / "screen.gif";
  const EncodeSummary summary =
      GIFEncoder::encodeCompressed(*store, 30, 0, true, false, OutputFormat::gif, gif);
  EXPECT_EQ(summary.frames, store->count());
  const auto decoded = testing::decodeGIFFile(gif);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->width, 320);
  EXPECT_EQ(static_cast<int>(decoded->frames.size()), store->count());
}

}  // namespace
}  // namespace brimble
