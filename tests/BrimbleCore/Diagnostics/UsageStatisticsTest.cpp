#include "BrimbleCore/Diagnostics/UsageStatistics.h"

#include <chrono>
#include <fstream>
#include <string>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/Support/Files.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

std::string todayInUTC() {
  return fmt::format("{:%Y-%m-%d}",
                     std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
}

UsageEvent renderEvent(std::vector<std::string> formats) {
  UsageEvent event;
  event.renders = std::move(formats);
  return event;
}

TEST(UsageStatistics, EventsAddUpByKindFormatAndFailingCommand) {
  testing::TempDirectory folder;
  const UsageStatistics statistics(folder.path());
  EXPECT_EQ(statistics.counts(), UsageCounts{});

  statistics.record({.runs = 1, .recordings = 0, .renders = {"gif", "mp4"}, .failure = {}});
  statistics.record({.runs = 1, .recordings = 0, .renders = {}, .failure = "run"});
  statistics.record({.runs = 0, .recordings = 1, .renders = {"gif"}, .failure = {}});
  statistics.record(UsageEvent{});  // nothing to count: nothing changes

  UsageCounts expected;
  expected.since = todayInUTC();
  expected.runs = 2;
  expected.recordings = 1;
  expected.renders = 3;
  expected.formats = {{"gif", 2}, {"mp4", 1}};
  expected.failures = {{"run", 1}};
  EXPECT_EQ(statistics.counts(), expected);
  // Another reader of the same folder (another process) sees the same counts.
  EXPECT_EQ(UsageStatistics(folder.path()).counts(), expected);

  // Names beyond the bound share one entry, so the file cannot grow without end.
  for (std::size_t kind = 0; kind < UsageStatistics::kMaxNamedKinds + 5; ++kind) {
    statistics.record(
        {.runs = 0, .recordings = 0, .renders = {}, .failure = fmt::format("x{}", kind)});
  }
  const UsageCounts many = statistics.counts();
  EXPECT_EQ(many.failures.size(), UsageStatistics::kMaxNamedKinds + 1);
  EXPECT_EQ(many.failures.at("other"), 6u);  // the last six names, once each
  EXPECT_EQ(many.failures.at("run"), 1u);

  statistics.reset();
  EXPECT_EQ(statistics.counts(), UsageCounts{});
  statistics.record(renderEvent({"webp"}));
  EXPECT_EQ(statistics.counts().formats, (std::map<std::string, std::uint64_t>{{"webp", 1}}));
}

TEST(UsageStatistics, AnUnreadableFileIsSetAsideWithOneLineAndCountingStartsAgain) {
  for (const std::string& damage :
       {std::string("{\"version\": 1, \"since\": \"2026-01-01\", \"runs\": -4}"),
        std::string("{\"runs\": 3"), std::string("[1, 2]"), std::string(2 << 20, ' ')}) {
    testing::TempDirectory folder;
    const UsageStatistics statistics(folder.path());
    testing::writeFile(statistics.file(), damage);
    EXPECT_EQ(statistics.counts(), UsageCounts{});  // reading alone changes nothing
    EXPECT_EQ(testing::readFile(statistics.file()), damage);

    testing::LogCapture log;
    statistics.record(renderEvent({"apng"}));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_NE(log.lines()[0].find("set aside as " + statistics.file().string() + ".corrupt"),
              std::string::npos)
        << log.lines()[0];
    EXPECT_EQ(testing::readFile(statistics.file().string() + ".corrupt"), damage);
    EXPECT_EQ(statistics.counts().renders, 1u);
    EXPECT_EQ(statistics.counts().formats.at("apng"), 1u);
  }
}

TEST(UsageStatistics, SwitchedOffNothingIsCountedOrWritten) {
  testing::TempDirectory folder;
  const UsageStatistics statistics(folder / "state");
  statistics.setEnabled(false);
  EXPECT_FALSE(UsageStatistics(folder / "state").enabled());
  statistics.record({.runs = 1, .recordings = 1, .renders = {"gif"}, .failure = "run"});
  statistics.reset();
  EXPECT_FALSE(fs::exists(statistics.file()));
  EXPECT_FALSE(fs::exists(folder / "state" / "statistics.json.lock"));

  statistics.setEnabled(true);
  statistics.record({.runs = 1, .recordings = 0, .renders = {}, .failure = {}});
  EXPECT_EQ(statistics.counts().runs, 1u);
}

TEST(UsageStatistics, ProcessesCountingAtOnceLoseNoCount) {
  testing::TempDirectory folder;
  constexpr int kProcesses = 4;
  constexpr int kEach = 150;
  std::vector<pid_t> children;
  for (int child = 0; child < kProcesses; ++child) {
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      const UsageStatistics statistics(folder.path());
      for (int event = 0; event < kEach; ++event) {
        statistics.record({.runs = 1, .recordings = 0, .renders = {"gif"}, .failure = {}});
      }
      ::_exit(0);
    }
    children.push_back(pid);
  }
  for (const pid_t pid : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  const UsageCounts counts = UsageStatistics(folder.path()).counts();
  EXPECT_EQ(counts.runs, std::uint64_t{kProcesses * kEach});
  EXPECT_EQ(counts.formats.at("gif"), std::uint64_t{kProcesses * kEach});
}

}  // namespace
}  // namespace brimble
