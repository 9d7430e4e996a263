#include "Brimble/Diagnostics/CrashNotice.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <QDateTime>
#include <QPushButton>
#include <gtest/gtest.h>

#include "tests/Support/Files.h"
#include "tests/Support/OffscreenApplication.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

void writeNoticeReport(const fs::path& file, const std::string& time) {
  testing::writeFile(file,
                     "Brimble crash report\nProgram: brimble-app\nVersion: 0.1.0\n"
                     "Command: brimble-app\nSignal: SIGSEGV (11)\nTime: " +
                         time +
                         "\nPid: 9\n\nBacktrace:\n#0 /opt/brimble-app+0x10\n"
                         "    brimble::AppShell::grab() at /src/AppShell.cpp:3\n");
}

TEST(CrashNotice, SaysHowOftenSinceWhenAndWhereAndDismissingMarksTheReportsSeen) {
  const testing::OffscreenApplication application;
  const testing::TempDirectory folder;
  const CrashReports reports(folder.path());
  EXPECT_FALSE(CrashNotice::showIfUnseen(reports));

  writeNoticeReport(folder / "first.crash", "2026-11-24T08:05:00Z");
  writeNoticeReport(folder / "second.crash", "2026-11-25T09:30:00Z");
  std::optional<fs::path> opened;
  std::unique_ptr<CrashNotice> notice =
      CrashNotice::showIfUnseen(reports, [&opened](const fs::path& path) { opened = path; });
  ASSERT_TRUE(notice);
  EXPECT_TRUE(notice->isVisible());
  EXPECT_FALSE(notice->isModal());
  const QString since = QDateTime::fromSecsSinceEpoch(1795507500)  // 2026-11-24T08:05:00Z
                            .toLocalTime()
                            .toString("d MMMM yyyy, hh:mm");
  EXPECT_EQ(notice->message().toStdString(),
            "Brimble quit unexpectedly 2 times since " + since.toStdString() +
                ". A report was saved: " + (folder / "second.crash").string() + ".");
  const fs::path screenshots = fs::path(BRIMBLE_ARTIFACT_DIR) / "crash-notice";
  fs::create_directories(screenshots);
  notice->grab().save(QString::fromStdString((screenshots / "notice.png").string()));

  notice->openFolderButton()->click();
  EXPECT_EQ(opened, folder.path());
  EXPECT_EQ(reports.unseen().size(), 2u);  // opening the folder is not dismissing
  notice->close();                         // nor is the app closing its windows as it quits
  EXPECT_EQ(reports.unseen().size(), 2u);
  notice->show();

  notice->dismissButton()->click();
  EXPECT_FALSE(notice->isVisible());
  EXPECT_TRUE(reports.unseen().empty());
  EXPECT_FALSE(CrashNotice::showIfUnseen(reports));

  writeNoticeReport(folder / "third.crash", "2026-11-26T10:00:00Z");
  notice = CrashNotice::showIfUnseen(reports, [](const fs::path&) {});
  ASSERT_TRUE(notice);
  EXPECT_NE(notice->message().indexOf("quit unexpectedly 1 time since"), -1);
  EXPECT_NE(notice->message().indexOf("third.crash"), -1);
}

}  // namespace
}  // namespace brimble
