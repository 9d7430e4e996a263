#include "BrimbleCore/Scripting/ScriptTerminalText.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptTextWait.h"
#include "tests/Support/FakeAppLauncher.h"
#include "tests/Support/FakeClock.h"
#include "tests/Support/FakeWindowSystem.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

void append(const fs::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary | std::ios::app) << bytes;
}

struct TerminalRig {
  testing::FakeClock clock;
  testing::FakeWindowSystem system{clock};
  testing::FakeAppLauncher launcher{std::set<std::string>{"xterm"}};
  WindowManager manager{system, launcher, clock};
};

TEST(ScriptTerminalText, ReadsWhatWasAddedToALogAtTheSizeItsWindowHas) {
  TerminalRig rig;
  // 40 cells of 10 x 20 pixels across and 3 down, inside 12 pixels of padding on each side.
  const ScreenRect frame{0, 0, 424, 84};
  rig.system.add(WindowInfo{7, "xterm", "XTerm", 0, frame, frame});
  rig.system.setSizeSteps(7, {10, 20, 24, 24});
  std::optional<ScriptTerminalText> terminals(rig.manager);

  const fs::path log = terminals->newLog();
  const fs::path folder = log.parent_path();
  EXPECT_TRUE(fs::is_regular_file(log));
  EXPECT_EQ(fs::file_size(log), 0u);
  // Only we may read what the terminal shows.
  EXPECT_EQ(fs::status(folder).permissions() & fs::perms::all, fs::perms::owner_all);
  terminals->follow(7, log, 80, 24);
  EXPECT_TRUE(terminals->follows(7));
  EXPECT_FALSE(terminals->follows(8));

  append(log, "one\r\ntwo is a line longer than the screen is wide\r\n");
  const TerminalTranscript& first = terminals->screen(7);
  EXPECT_EQ(first.columns(), 40);
  EXPECT_EQ(first.lines(), (Lines{"two is a line longer than the screen is", "wide", ""}));
  append(log, "thr");
  append(log, "ee");
  EXPECT_EQ(terminals->screen(7).lines(),
            (Lines{"two is a line longer than the screen is", "wide", "three"}));

  // The window grew by a row: what comes next has room.
  rig.system.moveResize(7, {0, 0, 424, 104});
  append(log, "\r\nfour");
  EXPECT_EQ(terminals->screen(7).lines(),
            (Lines{"two is a line longer than the screen is", "wide", "three", "four"}));

  // The logs go with the script.
  terminals.reset();
  EXPECT_FALSE(fs::exists(folder));
}

TEST(ScriptTerminalText, AWindowThatTellsNoSizeKeepsTheOneGiven) {
  TerminalRig rig;
  ScriptTerminalText terminals(rig.manager);
  const fs::path log = terminals.newLog();
  EXPECT_NE(terminals.newLog(), log);
  terminals.follow(3, log, 5, 2);
  append(log, "abcdefg\r\nh");
  EXPECT_EQ(terminals.screen(3).lines(), (Lines{"fg", "h"}));
}

TEST(ScriptTextWait, ALinePatternLooksAtTheLastLineThatIsNotBlankAndAScreenOneAtAll) {
  const Lines screen{"~ $ make", "Building...", "Done", "~ $", "", ""};
  const auto matches = [&](const std::string& pattern, bool lastLine) {
    return textWaitMatches(textWaitPattern(pattern, 1), screen, lastLine);
  };
  EXPECT_TRUE(matches("\\$$", true));
  EXPECT_FALSE(matches("Done", true));
  EXPECT_TRUE(matches("^Done$", false));
  EXPECT_TRUE(matches("Build", false));
  EXPECT_FALSE(matches("Failed", false));
  // Across lines, and to the end of the text shown.
  EXPECT_TRUE(matches("Building\\.\\.\\.\\nDone", false));
  EXPECT_TRUE(matches("Done\n~ \\$$", false));
  // A blank screen has no last line.
  EXPECT_FALSE(textWaitMatches(textWaitPattern(".*", 1), {"", ""}, true));
}

TEST(ScriptTextWait, APatternThatIsNoRegularExpressionIsTheLinesError) {
  try {
    textWaitPattern("(unclosed", 4);
    FAIL() << "a bad pattern was taken";
  } catch (const ScriptError& error) {
    EXPECT_EQ(
        std::string(error.what()).rfind("Line 4: invalid wait-for-text pattern \"(unclosed\": ", 0),
        0u)
        << error.what();
  }
}

}  // namespace
}  // namespace brimble
