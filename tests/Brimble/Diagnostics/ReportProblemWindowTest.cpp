#include "Brimble/Diagnostics/ReportProblemWindow.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include <QApplication>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Support/OffscreenApplication.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::HasSubstr;

/// Runs the event loop until `done` or five seconds pass.
template <typename Done>
bool processEventsUntil(Done done) {
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  while (!done() && std::chrono::steady_clock::now() < deadline) {
    QApplication::processEvents(QEventLoop::AllEvents, 20);
    std::this_thread::sleep_for(5ms);
  }
  return done();
}

TEST(ReportProblemWindow, ShowsEachFileBeforeSavingAndSavesOneArchiveThatNeverReplacesAFile) {
  const testing::OffscreenApplication qt;
  const testing::TempDirectory home;
  fs::create_directories(home / "state" / "logs");
  std::ofstream(home / "state" / "logs" / "brimble-app.log")
      << "Brimble: saved " << (home / "Pictures" / "clip.gif").string() << "\n";
  ReportProblemWindow window([&home] {
    return ProblemReport::gather(
        {"ok         Display server\n", "{}", home / "state", home.path(), "1.2.3"});
  });
  window.show();
  ASSERT_TRUE(processEventsUntil([&] { return window.report().has_value(); }));

  ASSERT_EQ(window.fileList().count(), 4);
  EXPECT_EQ(window.fileList().item(3)->text().toStdString(), "logs/brimble-app.log");
  window.fileList().setCurrentRow(3);
  EXPECT_EQ(window.contents().toPlainText().toStdString(), "Brimble: saved ~/Pictures/clip.gif\n");
  fs::create_directories(fs::path(BRIMBLE_ARTIFACT_DIR) / "report-problem");
  window.grab().save(QString::fromStdString(
      (fs::path(BRIMBLE_ARTIFACT_DIR) / "report-problem" / "window.png").string()));

  ASSERT_TRUE(window.saveTo(home / "report.tar.gz"));
  EXPECT_THAT(window.status().text().toStdString(), HasSubstr(kIssueTracker));
  const testing::CommandResult listing =
      testing::runCommand("tar -tzf " + testing::shellQuote((home / "report.tar.gz").string()));
  EXPECT_EQ(listing.output, "doctor.txt\ndoctor.json\nsystem.txt\nlogs/brimble-app.log\n");

  const auto size = fs::file_size(home / "report.tar.gz");
  EXPECT_FALSE(window.saveTo(home / "report.tar.gz"));
  EXPECT_THAT(window.status().text().toStdString(), HasSubstr("already exists"));
  EXPECT_EQ(fs::file_size(home / "report.tar.gz"), size);
}

TEST(ReportProblemWindow, AWindowClosedWhileTheReportIsGatheredIsNotTouchedAfterwards) {
  const testing::OffscreenApplication qt;
  auto window = std::make_unique<ReportProblemWindow>([] {
    std::this_thread::sleep_for(200ms);
    return ProblemReport::gather({"", "{}", "/nonexistent", "/nonexistent", "1"});
  });
  window.reset();
  // The gathering thread answers into the event loop after the window is gone.
  const auto until = std::chrono::steady_clock::now() + 500ms;
  processEventsUntil([&] { return std::chrono::steady_clock::now() > until; });
}

}  // namespace
}  // namespace brimble
