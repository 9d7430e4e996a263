#include "BrimbleCore/MCP/SessionContext.h"

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/DiskFrameWriter.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using State = SessionContext::RecordingStatus;

/// Frames in a real frame file, so that releasing a recording can be seen on disk.
class FileSegmentRecorder final : public SegmentRecorder {
 public:
  explicit FileSegmentRecorder(const fs::path& directory, int frames = 3)
      : writer_(directory), frames_(frames) {}

  void start(const SegmentRequest&) override {}
  bool hasEnded() const override { return false; }
  Clock::TimePoint lastChangeTime() const override { return {}; }
  int frameCount() const override { return paused_ ? 0 : frames_; }
  void setPaused(bool paused) override { paused_ = paused; }
  RecordedSegment stop() override {
    const std::uint8_t jpegLike[] = {0xFF, 0xD8, 0xFF, 0xD9};
    for (int i = 0; i < frames_; ++i) {
      writer_.append(jpegLike);
    }
    RecordedSegment segment;
    segment.frames = writer_.finalize();
    segment.duration = 1.5;
    return segment;
  }

 private:
  DiskFrameWriter writer_;
  int frames_;
  bool paused_ = false;
};

long framesOnDisk(const fs::path& directory) {
  long count = 0;
  for (const auto& entry : fs::directory_iterator(directory)) {
    count += entry.path().filename().string().starts_with("brimble-frames-") ? 1 : 0;
  }
  return count;
}

/// Starts and stops a recording under a fresh id; returns the id.
std::string completeOne(SessionContext& context, const fs::path& directory) {
  const std::string id = context.generateID();
  ActiveRecording recording;
  recording.recorder = std::make_unique<FileSegmentRecorder>(directory);
  context.addActiveRecording(id, std::move(recording));
  EXPECT_TRUE(context.stopRecording(id));
  return id;
}

TEST(SessionContext, IdsAreRecAndEightLowerCaseHexCharactersNeverRepeated) {
  SessionContext context;
  std::set<std::string> seen;
  for (int i = 0; i < 2000; ++i) {
    const std::string id = context.generateID();
    ASSERT_EQ(id.size(), 12u);
    ASSERT_EQ(id.substr(0, 4), "rec-");
    ASSERT_EQ(id.find_first_not_of("0123456789abcdef", 4), std::string::npos) << id;
    ASSERT_TRUE(seen.insert(id).second) << id;
  }
}

TEST(SessionContext, StoppingMovesARecordingToCompletedWithItsFrames) {
  testing::TempDirectory directory;
  SessionContext context;
  const std::string id = context.generateID();
  ActiveRecording recording;
  recording.recorder = std::make_unique<FileSegmentRecorder>(directory.path(), 5);
  context.addActiveRecording(id, std::move(recording));
  EXPECT_EQ(context.state(id), State::active);
  EXPECT_EQ(context.activeIDs(), std::vector<std::string>{id});
  EXPECT_EQ(context.setPaused(id, true), 0);
  EXPECT_EQ(context.setPaused(id, false), 5);

  const auto summary = context.stopRecording(id);
  ASSERT_TRUE(summary);
  EXPECT_EQ(summary->frames, 5);
  EXPECT_EQ(summary->elapsed, 1.5);
  EXPECT_EQ(context.state(id), State::completed);
  EXPECT_FALSE(context.stopRecording(id));
  EXPECT_FALSE(context.setPaused(id, true));
  EXPECT_EQ(context.getCompletedRecording(id)->segment->frames->count(), 5);
}

TEST(SessionContext, TheFourthCompletedRecordingReleasesTheLeastRecentlyUsed) {
  testing::TempDirectory directory;
  SessionContext context;
  const std::string first = completeOne(context, directory.path());
  const std::string second = completeOne(context, directory.path());
  const std::string third = completeOne(context, directory.path());
  // Rendering the first makes the second the least recently used.
  ASSERT_TRUE(context.getCompletedRecording(first));
  const std::string fourth = completeOne(context, directory.path());

  EXPECT_EQ(context.completedIDs(), (std::vector<std::string>{third, first, fourth}));
  EXPECT_EQ(context.state(second), State::released);
  EXPECT_TRUE(context.wasReleased(second));
  EXPECT_FALSE(context.getCompletedRecording(second));
  EXPECT_EQ(framesOnDisk(directory.path()), 3);
}

TEST(SessionContext, ARenderKeepsItsFramesAliveThroughAnEviction) {
  testing::TempDirectory directory;
  SessionContext context;
  const std::string first = completeOne(context, directory.path());
  const auto rendering = context.getCompletedRecording(first);
  for (int i = 0; i < 3; ++i) {
    completeOne(context, directory.path());
  }
  EXPECT_EQ(context.state(first), State::released);
  EXPECT_EQ(rendering->segment->frames->data(0).size(), 4u);
  EXPECT_EQ(framesOnDisk(directory.path()), 4);
}

TEST(SessionContext, RemovingFreesTheFramesOnceAndRemembersTheId) {
  testing::TempDirectory directory;
  SessionContext context;
  const std::string id = completeOne(context, directory.path());
  EXPECT_TRUE(context.removeCompletedRecording(id));
  EXPECT_FALSE(context.removeCompletedRecording(id));
  EXPECT_EQ(context.state(id), State::released);
  EXPECT_EQ(context.state("rec-00000000"), State::unknown);
  EXPECT_EQ(framesOnDisk(directory.path()), 0);
}

TEST(SessionContext, KeepsTheNewestFiftyOutputs) {
  SessionContext context;
  for (int i = 0; i < 51; ++i) {
    context.addRecentOutput({"out-" + std::to_string(i) + ".gif", 1, "1x1", "now"});
  }
  const auto outputs = context.recentOutputs();
  ASSERT_EQ(outputs.size(), 50u);
  EXPECT_EQ(outputs.front().path, "out-1.gif");
  EXPECT_EQ(outputs.back().path, "out-50.gif");
}

TEST(SessionContext, ARecordingWithADeadlineStopsItself) {
  testing::TempDirectory directory;
  SessionContext context;
  const std::string id = context.generateID();
  ActiveRecording recording;
  recording.recorder = std::make_unique<FileSegmentRecorder>(directory.path());
  recording.stopAt = std::chrono::steady_clock::now() + 100ms;
  context.addActiveRecording(id, std::move(recording));
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  while (context.state(id) != State::completed && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(10ms);
  }
  EXPECT_EQ(context.state(id), State::completed);
  EXPECT_EQ(context.activeIDs(), std::vector<std::string>{});
}

TEST(SessionContext, EndingStopsRunningRecordingsAndDeletesEveryFrameFile) {
  testing::TempDirectory directory;
  {
    SessionContext context;
    completeOne(context, directory.path());
    ActiveRecording recording;
    recording.recorder = std::make_unique<FileSegmentRecorder>(directory.path());
    context.addActiveRecording(context.generateID(), std::move(recording));
    EXPECT_EQ(framesOnDisk(directory.path()), 2);
  }
  EXPECT_EQ(framesOnDisk(directory.path()), 0);
}

}  // namespace
}  // namespace brimble
