#include "BrimbleCore/Support/CaptureHistory.h"

#include <cstdlib>
#include <fstream>
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

TEST(CaptureHistory, ADamagedIndexReadsAsEmptyAndIsRewrittenOnTheNextCapture) {
  testing::TempDirectory folder;
  testing::LogCapture log;
  std::ofstream(folder / "history.json") << "{\"version\": 1, \"entries\": [";
  const CaptureHistory history(folder / "history.json");
  EXPECT_TRUE(history.entries().empty());
  EXPECT_THAT(log.lines(), Contains(HasSubstr("ignoring the unreadable library index")));
  writeBytes(folder / "c.gif", 5);
  history.add(folder / "c.gif");
  EXPECT_EQ(history.entries().size(), 1u);
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
