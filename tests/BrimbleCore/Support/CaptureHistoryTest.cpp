#include "BrimbleCore/Support/CaptureHistory.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::HasSubstr;

void writeBytes(const fs::path& file, std::size_t count) {
  std::ofstream(file, std::ios::binary) << std::string(count, 'x');
}

TEST(CaptureHistory, KeepsNewestFirstInTheSharedFormat) {
  testing::TempDirectory folder;
  const CaptureHistory history(folder / "data" / "history.json");
  writeBytes(folder / "a.gif", 10);
  writeBytes(folder / "b.gif", 20);
  history.add(folder / "a.gif");
  history.add(folder / "b.gif");
  writeBytes(folder / "a.gif", 30);
  history.add(folder / "a.gif");  // again: moves to the top with its new size

  const auto entries = history.entries();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].path, folder / "a.gif");
  EXPECT_EQ(entries[0].fileSize, 30u);
  EXPECT_EQ(entries[1].filename, "b.gif");

  std::ifstream stream(history.file());
  const nlohmann::json document = nlohmann::json::parse(stream);
  EXPECT_EQ(document["version"], 1);
  const nlohmann::json& first = document["entries"][0];
  EXPECT_EQ(first["path"], (folder / "a.gif").string());
  EXPECT_EQ(first["filename"], "a.gif");
  EXPECT_EQ(first["fileSize"], 30);
  EXPECT_THAT(first["createdAt"].get<std::string>(),
              ::testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z"));

  history.remove(folder / "b.gif");
  ASSERT_EQ(history.entries().size(), 1u);
  EXPECT_TRUE(fs::exists(folder / "b.gif"));  // the index forgets; the file stays
}

std::string indexFileText(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

TEST(CaptureHistory, ADamagedIndexReadsAsEmptyAndIsKeptAsABackupBeforeTheNextCapture) {
  testing::TempDirectory folder;
  testing::LogCapture log;
  const std::string damaged = "{\"version\": 1, \"entries\": [";
  std::ofstream(folder / "history.json") << damaged;
  const CaptureHistory history(folder / "history.json");
  EXPECT_TRUE(history.entries().empty());
  EXPECT_THAT(log.lines(), Contains(HasSubstr("ignoring the unreadable library index")));
  writeBytes(folder / "c.gif", 5);
  history.add(folder / "c.gif");
  EXPECT_EQ(history.entries().size(), 1u);
  EXPECT_EQ(indexFileText(folder / "history.json.bak"), damaged);

  // A second damaged index never overwrites the first backup.
  std::ofstream(folder / "history.json") << "not json";
  history.add(folder / "c.gif");
  EXPECT_EQ(indexFileText(folder / "history.json.bak"), damaged);
  EXPECT_EQ(indexFileText(folder / "history.json.bak2"), "not json");
}

TEST(CaptureHistory, OneBadEntryIsRepairedAndNoEntryIsLostByTheNextCapture) {
  testing::TempDirectory folder;
  testing::LogCapture log;
  writeBytes(folder / "on-disk.gif", 77);
  const std::string original = nlohmann::json{
      {"version", 1},
      {"entries",
       {{{"path", "/captures/a.gif"},
         {"filename", "a.gif"},
         {"createdAt", "2026-01-02T03:04:05Z"},
         {"fileSize", "43226"}},
        {{"path", (folder / "on-disk.gif").string()},
         {"filename", 12},
         {"createdAt", "2026-01-01T00:00:00Z"},
         {"fileSize", -3}},
        {{"filename", "no-path.gif"}, {"fileSize", 9}},
        {{"path", "/captures/b.gif"},
         {"filename", "b.gif"},
         {"createdAt", "2025-12-31T23:59:59Z"},
         {"fileSize", 1000}}}}}.dump();
  std::ofstream(folder / "history.json") << original;
  const CaptureHistory history(folder / "history.json");

  const auto read = history.entries();
  ASSERT_EQ(read.size(), 3u);
  EXPECT_EQ(read[0],
            (CaptureHistory::Entry{"/captures/a.gif", "a.gif", "2026-01-02T03:04:05Z", 43226}));
  // A size that makes no sense is taken from the file itself, a name from the path.
  EXPECT_EQ(read[1], (CaptureHistory::Entry{folder / "on-disk.gif", "on-disk.gif",
                                            "2026-01-01T00:00:00Z", 77}));
  EXPECT_EQ(read[2].fileSize, 1000u);
  EXPECT_THAT(log.lines(), Contains(HasSubstr("2 entries with a bad field (repaired) and 1")));

  writeBytes(folder / "new.gif", 5);
  history.add(folder / "new.gif");
  const auto after = history.entries();
  ASSERT_EQ(after.size(), 4u);
  EXPECT_EQ(after[0].filename, "new.gif");
  EXPECT_EQ(std::vector(after.begin() + 1, after.end()), read);
  EXPECT_EQ(indexFileText(folder / "history.json.bak"), original);
  // The entry nobody can show is still in the file, as it was.
  const nlohmann::json document = nlohmann::json::parse(indexFileText(folder / "history.json"));
  ASSERT_EQ(document["entries"].size(), 5u);
  EXPECT_EQ(document["entries"][4], (nlohmann::json{{"filename", "no-path.gif"}, {"fileSize", 9}}));

  // Once repaired, the index needs no second backup.
  history.add(folder / "new.gif");
  EXPECT_FALSE(fs::exists(folder / "history.json.bak2"));
}

TEST(CaptureHistory, ACaptureNeverLeavesFewerEntriesThanItRead) {
  testing::TempDirectory folder;
  nlohmann::json items = nlohmann::json::array();
  for (std::size_t i = 0; i < CaptureHistory::kMaxEntries + 50; ++i) {
    items.push_back({{"path", "/captures/" + std::to_string(i) + ".gif"},
                     {"filename", std::to_string(i) + ".gif"},
                     {"createdAt", "2026-01-01T00:00:00Z"},
                     {"fileSize", i}});
  }
  std::ofstream(folder / "history.json") << nlohmann::json{{"version", 1}, {"entries", items}};
  const CaptureHistory history(folder / "history.json");
  writeBytes(folder / "new.gif", 5);
  history.add(folder / "new.gif");
  const auto entries = history.entries();
  ASSERT_EQ(entries.size(), CaptureHistory::kMaxEntries + 50);
  EXPECT_EQ(entries[0].filename, "new.gif");
  EXPECT_EQ(entries[1].filename, "0.gif");
}

TEST(CaptureHistory, DefaultPathFollowsTheEnvironment) {
  const auto keep = [](const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
  };
  const auto history = keep("BRIMBLE_HISTORY_FILE");
  const auto data = keep("XDG_DATA_HOME");
  setenv("BRIMBLE_HISTORY_FILE", "/tmp/h.json", 1);
  setenv("XDG_DATA_HOME", "/data", 1);
  EXPECT_EQ(CaptureHistory::defaultPath(), "/tmp/h.json");
  unsetenv("BRIMBLE_HISTORY_FILE");
  EXPECT_EQ(CaptureHistory::defaultPath(), "/data/brimble/history.json");
  setenv("XDG_DATA_HOME", "relative", 1);  // not absolute: ignored, as XDG says
  EXPECT_THAT(CaptureHistory::defaultPath().string(),
              HasSubstr(".local/share/brimble/history.json"));
  const auto restore = [](const char* name, const std::optional<std::string>& value) {
    value ? setenv(name, value->c_str(), 1) : unsetenv(name);
  };
  restore("BRIMBLE_HISTORY_FILE", history);
  restore("XDG_DATA_HOME", data);
}

}  // namespace
}  // namespace brimble
