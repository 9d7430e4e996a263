// The app's usage counts and update check: the schedule, the notice at start, and the two
// settings pages, against files in a temporary folder and a feed on 127.0.0.1.

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <gtest/gtest.h>

#include "Brimble/Settings/SettingsStore.h"
#include "Brimble/Settings/StatisticsPage.h"
#include "Brimble/Settings/UpdateNotifier.h"
#include "Brimble/Settings/UpdateSchedule.h"
#include "Brimble/Settings/UpdatesPage.h"
#include "BrimbleCore/Diagnostics/UsageStatistics.h"
#include "tests/Support/Files.h"
#include "tests/Support/LocalHTTPServer.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

/// Qt's offscreen platform for the widgets of one test.
class OffscreenPages {
 public:
  OffscreenPages() {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    application_ = std::make_unique<QApplication>(argc_, argv_);
  }

 private:
  int argc_ = 1;
  char name_[16] = "BrimbleAppTests";
  char* argv_[2] = {name_, nullptr};
  std::unique_ptr<QApplication> application_;
};

// Runs the event loop until `done` or 15 s.
bool processEventsUntil(const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + 15s;
  while (!done() && std::chrono::steady_clock::now() < deadline) {
    QApplication::processEvents(QEventLoop::AllEvents, 20);
  }
  return done();
}

void keepScreenshot(QWidget& widget, const std::string& name) {
  const fs::path folder = fs::path(BRIMBLE_ARTIFACT_DIR) / "updates";
  fs::create_directories(folder);
  widget.grab().save(QString::fromStdString((folder / (name + ".png")).string()));
}

const std::string kNewer =
    R"({"version": "1.1.0", "date": "2026-11-20", "notes": "Sharper WebP.",
        "download": "https://example.org/brimble"})";

TEST(UpdateSchedule, DueOnceADayAndEachReleaseToldOfOnce) {
  testing::TempDirectory folder;
  const UpdateSchedule schedule(folder / "state" / "update-check.json");
  const auto now = std::chrono::system_clock::now();
  EXPECT_TRUE(schedule.due(now));
  schedule.checked(now);
  EXPECT_FALSE(schedule.due(now + 23h));
  EXPECT_TRUE(schedule.due(now + 25h));
  EXPECT_TRUE(schedule.due(now - 25h));  // a clock set back a day does not stop checks for good

  EXPECT_TRUE(schedule.firstNoticeOf("1.1.0"));
  EXPECT_FALSE(schedule.firstNoticeOf("1.1.0"));
  EXPECT_FALSE(schedule.due(now + 1h));  // telling of a release keeps the time of the check
  EXPECT_TRUE(schedule.firstNoticeOf("1.2.0"));

  testing::writeFile(folder / "state" / "update-check.json", "{\"lastCheck\": ");
  EXPECT_TRUE(schedule.due(now));
}

TEST(UpdateNotifier, AtStartTellsOfANewerReleaseOnceADayOnlyWhenSwitchedOn) {
  OffscreenPages qt;
  testing::TempDirectory folder;
  testing::writeFile(folder / "feed.json", kNewer);
  testing::LocalHTTPServer server(folder.path());
  const fs::path scheduleFile = folder / "state" / "update-check.json";

  UpdateNotifier off(server.url("feed.json"), "1.0.0", UpdateSchedule(scheduleFile));
  EXPECT_FALSE(off.checkAtStart(false));
  EXPECT_FALSE(fs::exists(scheduleFile));  // off means not even a note of a check

  UpdateNotifier first(server.url("feed.json"), "1.0.0", UpdateSchedule(scheduleFile));
  ASSERT_TRUE(first.checkAtStart(true));
  ASSERT_TRUE(processEventsUntil([&] { return first.notice() != nullptr; }));
  EXPECT_TRUE(first.notice()->isVisible());
  EXPECT_FALSE(first.notice()->isModal());
  const auto* text = first.notice()->findChild<QLabel*>();
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(text->text().toStdString(),
            "Brimble 1.1.0 is available (you have 1.0.0), released 2026-11-20:\n"
            "Sharper WebP.\nGet it from https://example.org/brimble");
  keepScreenshot(*first.notice(), "notice");

  // The next start the same day asks nothing.
  UpdateNotifier sameDay(server.url("feed.json"), "1.0.0", UpdateSchedule(scheduleFile));
  EXPECT_FALSE(sameDay.checkAtStart(true));

  // A day later it asks again, but a release already told of is not told again.
  testing::writeFile(scheduleFile, R"({"lastCheck": 0, "announced": "1.1.0"})");
  UpdateNotifier nextDay(server.url("feed.json"), "1.0.0", UpdateSchedule(scheduleFile));
  ASSERT_TRUE(nextDay.checkAtStart(true));
  ASSERT_TRUE(processEventsUntil([&] { return !nextDay.checking(); }));
  QApplication::processEvents();
  EXPECT_EQ(nextDay.notice(), nullptr);
}

TEST(SettingsPages, StatisticsShowTheCountsAndTheSwitchAndResetActAtOnce) {
  OffscreenPages qt;
  testing::TempDirectory folder;
  const UsageStatistics statistics(folder.path());
  statistics.record({.runs = 2, .recordings = 1, .renders = {"gif", "gif", "mp4"}, .failure = {}});
  statistics.record({.runs = 0, .recordings = 0, .renders = {}, .failure = "run"});
  StatisticsPage page(statistics);
  page.resize(420, 300);
  page.show();
  const std::string shown = page.countsLabel()->text().toStdString();
  EXPECT_NE(shown.find("Runs: 2\nRecordings: 1\nRenders: 3 (gif 2, mp4 1)\nFailures: 1 (run 1)"),
            std::string::npos)
      << shown;
  keepScreenshot(page, "statistics");

  auto* counting = page.findChild<QCheckBox*>();
  ASSERT_NE(counting, nullptr);
  EXPECT_TRUE(counting->isChecked());
  counting->click();
  EXPECT_FALSE(statistics.enabled());
  counting->click();
  EXPECT_TRUE(statistics.enabled());

  QPushButton* reset = nullptr;
  for (auto* button : page.findChildren<QPushButton*>()) {
    reset = button->text() == "Reset" ? button : reset;
  }
  ASSERT_NE(reset, nullptr);
  reset->click();
  EXPECT_EQ(statistics.counts(), UsageCounts{});
  EXPECT_EQ(page.countsLabel()->text().toStdString(), "Nothing counted yet.");
}

TEST(SettingsPages, UpdatesStoresTheOptInAtOnceAndCheckNowShowsWhatItFound) {
  OffscreenPages qt;
  testing::TempDirectory folder;
  testing::writeFile(folder / "feed.json", kNewer);
  testing::LocalHTTPServer server(folder.path());
  const SettingsStore store(folder / "brimble.conf");
  EXPECT_FALSE(store.load().checkForUpdates);  // off until the user turns it on

  UpdatesPage page(store, server.url("feed.json"), "1.0.0");
  page.resize(460, 260);
  page.show();
  EXPECT_FALSE(page.checkForUpdates()->isChecked());
  page.checkForUpdates()->click();
  EXPECT_TRUE(SettingsStore(folder / "brimble.conf").load().checkForUpdates);

  page.checkNow()->click();
  EXPECT_FALSE(page.checkNow()->isEnabled());
  ASSERT_TRUE(processEventsUntil([&] { return page.checkNow()->isEnabled(); }));
  EXPECT_TRUE(page.result()->text().startsWith(
      "Brimble 1.1.0 is available (you have 1.0.0), released 2026-11-20:"))
      << page.result()->text().toStdString();
  keepScreenshot(page, "updates");

  UpdatesPage unreachable(store, testing::closedPortURL(), "1.0.0");
  EXPECT_TRUE(unreachable.checkForUpdates()->isChecked());
  unreachable.checkNow()->click();
  ASSERT_TRUE(processEventsUntil([&] { return unreachable.checkNow()->isEnabled(); }));
  EXPECT_TRUE(unreachable.result()->text().startsWith("Cannot reach the release feed"))
      << unreachable.result()->text().toStdString();
}

}  // namespace
}  // namespace brimble
