#include "Brimble/Recording/EncodingJob.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Encoding/ImageCodec.h"
#include "tests/Support/FakeSessionServices.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/Images.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

/// `count` frames of their own grey, half a second apart.
FinishedRecording recording(int count) {
  auto store = std::make_shared<InMemoryFrameStore>();
  FinishedRecording finished;
  for (int i = 0; i < count; ++i) {
    const auto shade = static_cast<std::uint8_t>(i * 40);
    store->frames.push_back(encodeJPEG(testing::solidImage(16, 16, {shade, shade, shade}), 90));
    finished.frameTimes.push_back(i * 0.5);
  }
  finished.frames = std::move(store);
  finished.seconds = count * 0.5;
  return finished;
}

TEST(EncodingJob, ACancelledEncodeThatEndsAfterTheNextOneStartedIsDroppedWithItsFile) {
  testing::TempDirectory folder;
  testing::FakeSessionScheduler scheduler;
  EncodingJob job(scheduler, folder / "captures",
                  [](int count, const FrameSupplier& frameAt, const fs::path& output,
                     const SequenceOptions& options, std::uint64_t budget,
                     const SizeBudgetEncoder::PassStarted& passStarted) {
                    return SizeBudgetEncoder::encode(count, frameAt, output, options, budget,
                                                     passStarted);
                  });
  std::vector<std::string> first;
  std::vector<std::string> second;
  const auto listen = [](std::vector<std::string>& heard) {
    return std::pair{EncodingJob::Progress([&heard](double fraction, int pass) {
                       heard.push_back(fmt::format("{:.0f}% of pass {}", fraction * 100, pass));
                     }),
                     EncodingJob::Finished([&heard](const EncodedClip& clip) {
                       heard.push_back(fmt::format("{} frames in {}", clip.frames,
                                                   clip.file.extension().string()));
                     })};
  };
  // The first encode is cancelled, and the next one started, before the worker gets to either.
  auto [firstProgress, firstFinished] = listen(first);
  job.start(recording(6), EncodingSettings{}, firstProgress, firstFinished);
  job.cancel();
  EncodingSettings webp;
  webp.format = OutputFormat::webp;
  auto [secondProgress, secondFinished] = listen(second);
  job.start(recording(4), webp, secondProgress, secondFinished);
  scheduler.runBackground();

  EXPECT_TRUE(first.empty());
  ASSERT_GE(second.size(), 2u);
  EXPECT_EQ(second.back(), "4 frames in .webp");
  EXPECT_EQ(second[second.size() - 2], "100% of pass 1");
  std::vector<fs::path> kept;
  for (const auto& entry : fs::directory_iterator(folder / "captures")) {
    kept.push_back(entry.path().extension());
  }
  EXPECT_EQ(kept, std::vector<fs::path>{".webp"});
}

}  // namespace
}  // namespace brimble
