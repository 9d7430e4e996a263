#include "Brimble/Recording/ClipHandover.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/FakeSessionServices.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

TEST(ClipHandover, ASegmentForAnAppendSessionTakesItsClipsFormatAndNoSizeBudget) {
  testing::TempDirectory folder;
  testing::FakeRecordingView view;
  testing::FakeClipDelivery delivery;
  CaptureHistory history(folder / "history.json");
  AppSettings settings;
  settings.outputFormat = OutputFormat::webp;
  settings.qualityPreset = QualityPreset::small;  // a 2 MB budget
  ClipHandover handover(view, delivery, history, [&] { return settings; });
  ASSERT_EQ(handover.encodingSettings().maxFileSizeKB, 2048);

  // A segment reduced to fit a budget would no longer match the clip it joins.
  int cancelled = 0;
  handover.beginAppend(
      {OutputFormat::apng, [](const std::filesystem::path&) {}, [&] { ++cancelled; }});
  const EncodingSettings segment = handover.encodingSettings();
  EXPECT_EQ(segment.format, OutputFormat::apng);
  EXPECT_EQ(segment.maxFileSizeKB, 0);
  EXPECT_EQ(segment.frameRate, settings.frameRate);

  // A failed encode ends the session: the next clip is an ordinary one again.
  handover.reportFailure(ClipHandover::Delivery::copy, segment.format, "disk gone");
  EXPECT_EQ(cancelled, 1);
  EXPECT_EQ(handover.encodingSettings().format, OutputFormat::webp);
  EXPECT_EQ(handover.encodingSettings().maxFileSizeKB, 2048);
  handover.cancelAppend();
  EXPECT_EQ(cancelled, 1);
}

}  // namespace
}  // namespace brimble
