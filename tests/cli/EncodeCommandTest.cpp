// The `brimble` binary run the way a user runs it.

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/Support/GifReader.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::runCommand;
using testing::shellQuote;
using testing::TempDirectory;

std::string brimble(const std::string& arguments) {
  return shellQuote(BRIMBLE_BINARY) + " " + arguments;
}

TEST(BrimbleEncode, TestPatternBecomesAGIFAndASummaryLine) {
  TempDirectory directory;
  const auto out = directory / "demo.gif";
  const auto result = runCommand(
      brimble("encode --test-pattern --no-dedup --frames 12 --size 160x100 --fps 20 -o " +
              shellQuote(out.string()) + " 2>&1"));
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const std::string expectedStart = out.string() + ": " +
                                    std::to_string(std::filesystem::file_size(out)) +
                                    " bytes, 12 frames, 160x100, ";
  EXPECT_EQ(result.output.substr(0, expectedStart.size()), expectedStart) << result.output;

  const auto decoded = testing::decodeGIFFile(out);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->frames.size(), 12u);
  EXPECT_EQ(decoded->delaysCentiseconds.front(), 5);
  EXPECT_EQ(decoded->plays, 0);
  // Only the finished file is left behind.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()),
                          std::filesystem::directory_iterator()),
            1);
}

TEST(BrimbleEncode, BadArgumentsAreUsageErrorsThatWriteNothing) {
  TempDirectory directory;
  const auto out = directory / "keep.gif";
  std::ofstream(out) << "the user's file";
  for (const std::string arguments : {"--test-pattern --size 0x10", "--test-pattern --size wide",
                                      "--test-pattern --frames 0", "--test-pattern --fps 0", ""}) {
    const auto result =
        runCommand(brimble("encode " + arguments + " -o " + shellQuote(out.string()) + " 2>&1"));
    EXPECT_EQ(result.exitCode, 2) << arguments << ": " << result.output;
    EXPECT_FALSE(result.output.empty()) << arguments;
  }
  std::ifstream in(out);
  std::string contents;
  std::getline(in, contents);
  EXPECT_EQ(contents, "the user's file");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()),
                          std::filesystem::directory_iterator()),
            1);
}

TEST(BrimbleEncode, AnUnwritableDestinationFailsWithTheReason) {
  TempDirectory directory;
  const auto out = directory / "missing" / "demo.gif";
  const auto result = runCommand(
      brimble("encode --test-pattern --frames 2 -o " + shellQuote(out.string()) + " 2>&1"));
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("could not create"), std::string::npos) << result.output;
}

TEST(Brimble, HelpAndVersionSucceed) {
  const auto version = runCommand(brimble("--version"));
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_EQ(version.output.rfind("brimble ", 0), 0u) << version.output;
  const auto help = runCommand(brimble("--help"));
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.output.find("encode"), std::string::npos);
  const auto unknown = runCommand(brimble("frobnicate 2>&1"));
  EXPECT_EQ(unknown.exitCode, 2);
}

}  // namespace
}  // namespace brimble
