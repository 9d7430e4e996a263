// The log file kept beside standard error: rotation by size while several writers append at
// once (each LogFile opens its own descriptors, so they lock each other out exactly as separate
// processes do), and what `brimble` itself writes there.

#include "BrimbleCore/Diagnostics/LogFile.h"

#include <filesystem>
#include <fstream>
#include <latch>
#include <map>
#include <regex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/Files.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using testing::shellQuote;

std::vector<std::string> logLinesOf(const fs::path& file) {
  std::vector<std::string> lines;
  std::ifstream input(file);
  for (std::string line; std::getline(input, line);) {
    lines.push_back(line);
  }
  return lines;
}

TEST(LogFile, WritersAppendingAtOnceRotateBySizeWithoutTearingOrLosingLines) {
  const testing::TempDirectory folder;
  constexpr int kWriters = 4;
  constexpr int kLines = 1500;
  constexpr std::uint64_t kMaxBytes = 32 * 1024;
  const std::string padding(60, 'x');
  {
    std::latch start(kWriters);
    std::vector<std::jthread> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
      writers.emplace_back([&, writer] {
        LogFile log(folder.path(), "brimble", {kMaxBytes, 2});
        start.arrive_and_wait();
        for (int line = 0; line < kLines; ++line) {
          log.append("writer " + std::to_string(writer) + " line " + std::to_string(line) + " " +
                     padding);
        }
      });
    }
  }
  EXPECT_TRUE(fs::exists(folder / "brimble.log.2"));
  EXPECT_FALSE(fs::exists(folder / "brimble.log.3"));
  // Oldest file first: each writer's lines that are kept are its last ones, in order, none
  // missing and none cut (a writer that finished early may have none left).
  const std::regex whole("writer ([0-9]) line ([0-9]+) " + padding);
  std::map<int, std::vector<int>> kept;
  for (const char* name : {"brimble.log.2", "brimble.log.1", "brimble.log"}) {
    EXPECT_LE(fs::file_size(folder / name), kMaxBytes) << name;
    if (name != std::string("brimble.log")) {
      EXPECT_GT(fs::file_size(folder / name), kMaxBytes - 200) << name;  // rotated when full
    }
    for (const std::string& line : logLinesOf(folder / name)) {
      std::smatch match;
      ASSERT_TRUE(std::regex_match(line, match, whole)) << name << ": " << line;
      kept[std::stoi(match[1])].push_back(std::stoi(match[2]));
    }
  }
  ASSERT_FALSE(kept.empty());
  for (const auto& [writer, lines] : kept) {
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), kLines - 1) << "writer " << writer;
    for (std::size_t i = 1; i < lines.size(); ++i) {
      ASSERT_EQ(lines[i], lines[i - 1] + 1) << "writer " << writer;
    }
  }
}

TEST(LogFile, AFolderThatCannotBeMadeIsAnErrorNamingIt) {
  const testing::TempDirectory folder;
  testing::writeFile(folder / "state", "a file where the folder should be");
  LogFile log(folder / "state/logs", "brimble", {});
  try {
    log.append("line");
    FAIL() << "appended under a file";
  } catch (const std::system_error& error) {
    EXPECT_NE(std::string(error.what()).find((folder / "state/logs").string()), std::string::npos)
        << error.what();
  }
}

// `brimble mcp-server` answering `requests` (none: an input that ends at once), its standard
// error alone in the output.
testing::CommandResult serverWithState(const fs::path& state, const std::string& options = "",
                                       const std::string& requests = "") {
  return testing::runCommand("printf '%s' " + shellQuote(requests) +
                             " | env XDG_STATE_HOME=" + shellQuote(state.string()) + " " +
                             shellQuote(BRIMBLE_BINARY) + options + " mcp-server 2>&1 >/dev/null");
}

TEST(BrimbleLog, StandardErrorIsUnchangedAndTheLogHasEachLineStampedWithThePid) {
  const testing::TempDirectory home;
  const std::string version = testing::brimbleVersion();
  const std::string expected = "[Brimble MCP] Server starting (brimble v" + version +
                               ")\n[Brimble MCP] EOF on stdin, shutting down\n";
  const auto result = serverWithState(home / "state");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output, expected);

  // What a user's programs log is theirs alone, from the first folder made.
  for (const char* folder : {"state", "state/brimble", "state/brimble/logs"}) {
    EXPECT_EQ(std::filesystem::status(home / folder).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_all)
        << folder;
  }
  const std::vector<std::string> lines = logLinesOf(home / "state/brimble/logs/brimble.log");
  ASSERT_EQ(lines.size(), 2u);
  const std::regex stamp(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \[\d+\] )");
  std::smatch match;
  ASSERT_TRUE(std::regex_search(lines[0], match, stamp, std::regex_constants::match_continuous))
      << lines[0];
  EXPECT_EQ(lines[0].substr(match.length()),
            "[Brimble MCP] Server starting (brimble v" + version + ")");
  EXPECT_NE(lines[1].find("EOF on stdin"), std::string::npos);

  // Each request's method and time: in the log always, on standard error with --verbose.
  const std::string ping = R"({"jsonrpc":"2.0","id":1,"method":"ping"})"
                           "\n";
  EXPECT_EQ(serverWithState(home / "state", "", ping).output, expected);
  const std::regex timed(R"(\[Brimble MCP\] ping took \d+\.\d+ s)");
  const std::vector<std::string> logged = logLinesOf(home / "state/brimble/logs/brimble.log");
  ASSERT_EQ(logged.size(), 5u);
  EXPECT_TRUE(std::regex_search(logged[3], timed)) << logged[3];
  const std::string verbose = serverWithState(home / "state", " --verbose", ping).output;
  EXPECT_TRUE(std::regex_search(verbose, timed)) << verbose;
  EXPECT_TRUE(verbose.starts_with("[Brimble MCP] Server starting")) << verbose;
}

TEST(BrimbleLog, VerboseShowsTheSessionAndEachLinesCommandButTheLogNeverHoldsTypedText) {
  const testing::TempDirectory home;
  testing::writeFile(home / "typing.brim", "wait 0.1\ntype \"hunter2-typed\"\n");
  const auto run = [&home](const std::string& options) {
    return testing::runCommand("env -i HOME=" + shellQuote(home.path().string()) +
                               " XDG_STATE_HOME=" + shellQuote((home / "state").string()) +
                               " PATH=/usr/bin:/bin " + shellQuote(BRIMBLE_BINARY) + options +
                               " run --headless -q " + shellQuote((home / "typing.brim").string()) +
                               " 2>&1");
  };
  const std::string plain = run("").output;
  EXPECT_EQ(plain.find("Line 2: type"), std::string::npos) << plain;
  const std::string verbose = run(" --verbose").output;
  EXPECT_NE(verbose.find("Using the x11 session :"), std::string::npos) << verbose;
  EXPECT_NE(verbose.find("--headless was given\n"), std::string::npos) << verbose;
  EXPECT_NE(verbose.find("Line 1: wait\nLine 2: type\n"), std::string::npos) << verbose;

  const std::string log = testing::readFile(home / "state/brimble/logs/brimble.log");
  EXPECT_EQ(log.find("hunter2"), std::string::npos) << log;
  // Both runs' lines are in the log, verbose or not.
  const std::regex typed(R"(\[\d+\] Line 2: type\n)");
  EXPECT_EQ(
      std::distance(std::sregex_iterator(log.begin(), log.end(), typed), std::sregex_iterator()), 2)
      << log;
}

TEST(BrimbleLog, AStateFolderThatCannotBeWrittenCostsOneLineAndNothingElse) {
  const testing::TempDirectory home;
  testing::writeFile(home / "state", "a file where the folder should be");
  const auto result = serverWithState(home / "state");
  EXPECT_EQ(result.exitCode, 0);
  const std::string version = testing::brimbleVersion();
  EXPECT_EQ(result.output, "brimble: the log is not kept (create the log folder " +
                               (home / "state/brimble/logs").string() +
                               ": Not a directory); going on without it\n"
                               "[Brimble MCP] Server starting (brimble v" +
                               version + ")\n[Brimble MCP] EOF on stdin, shutting down\n");
}

}  // namespace
}  // namespace brimble
