#include "BrimbleCore/Automation/TerminalTranscript.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/Files.h"

namespace brimble {
namespace {

using Lines = std::vector<std::string>;

// A bash session recorded with `script` on a 40 x 8 terminal: a coloured prompt, `ls --color`,
// a line longer than the terminal, `seq`, `less` (the alternate screen), a line edited with the
// arrow keys, `clear` and a tab.
std::string bashSession() {
  return testing::readFile(std::filesystem::path(BRIMBLE_SOURCE_DIR) /
                           "tests/BrimbleCore/Automation/bash-session.typescript");
}

TerminalTranscript after(const std::string& bytes, int columns, int rows) {
  TerminalTranscript transcript(columns, rows);
  transcript.write(bytes);
  return transcript;
}

TEST(TerminalTranscript, RebuildsWhatARecordedBashSessionShowedAtEachStep) {
  const std::string session = bashSession();
  ASSERT_FALSE(session.empty());

  // Inside less: its own screen, the file's first lines and its status line.
  const std::size_t quitting = session.find("\r\x1b[K\x1b[?1l");
  ASSERT_NE(quitting, std::string::npos);
  TerminalTranscript transcript(40, 8);
  transcript.write(session.substr(0, quitting));
  EXPECT_EQ(transcript.lines(),
            (Lines{"page line 1", "page line 2", "page line 3", "page line 4", "page line 5",
                   "page line 6", "page line 7", "../pages.txt"}));
  EXPECT_EQ(transcript.lastLine(), "../pages.txt");

  // Back from less, the shell's screen as it was, scrolled by the edited line (typed "abc",
  // then two steps left and "XY" over "bc") and its output.
  const std::size_t clearing = session.find("\x1b[H\x1b[2J");
  ASSERT_NE(clearing, std::string::npos);
  transcript.write(session.substr(quitting, clearing - quitting));
  EXPECT_EQ(transcript.lines(), (Lines{"10", "11", "12", "dir $ less ../pages.txt",
                                       "dir $ echo aXYbc", "aXYbc", "dir $ clear", ""}));

  // After `clear`: the tab's stop is column 8.
  transcript.write(session.substr(clearing));
  EXPECT_EQ(transcript.lines(), (Lines{"dir $ printf \"tab\\there\\n\"", "tab     here",
                                       "dir $ exit", "exit", "", "", "", ""}));
  EXPECT_EQ(transcript.lastLine(), "exit");
}

TEST(TerminalTranscript, TheSessionsLongLineWrapsAtTheRightMargin) {
  const std::string session = bashSession();
  const std::size_t seq = session.find("seq 1 12");
  ASSERT_NE(seq, std::string::npos);
  const TerminalTranscript transcript = after(session.substr(0, seq), 40, 8);
  EXPECT_EQ(transcript.lines(),
            (Lines{"rec $ cd dir && ls --color=always", "alpha  beta  gamma",
                   "dir $ echo 0123456789abcdefghijklmnopqrs", "tuvwxyz0123456789ABCDEFGHIJ",
                   "0123456789abcdefghijklmnopqrstuvwxyz0123", "456789ABCDEFGHIJ", "dir $", ""}));
  EXPECT_EQ(transcript.lastLine(), "dir $");
}

TEST(TerminalTranscript, BytesCutAnywhereGiveTheSameScreen) {
  const std::string session = bashSession();
  TerminalTranscript byteByByte(40, 8);
  for (const char c : session) {
    byteByByte.write(std::string(1, c));
  }
  EXPECT_EQ(byteByByte.lines(), after(session, 40, 8).lines());

  // A character cut between two reads is put together again.
  TerminalTranscript cut(10, 1);
  cut.write("caf\xC3");
  cut.write("\xA9 \xE6\x97");
  cut.write("\xA5\xE6\x9C\xAC!");
  EXPECT_EQ(cut.lastLine(), "caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC!");
}

TEST(TerminalTranscript, CursorMovesErasesInsertsAndDeletes) {
  // Up, down, right, left, to a column, to a row, to a place.
  EXPECT_EQ(after("abcdef\x1b[3DXY\x1b[2;4H1\x1b[A2\x1b[B\x1b[2C3\x1b[1G4\x1b[3d5", 8, 3).lines(),
            (Lines{"abcX2f", "4  1   3", " 5"}));
  // Erase to the end of the line, to its start, all of it; below and above the cursor.
  EXPECT_EQ(after("abcdef\x1b[4G\x1b[K", 8, 1).lastLine(), "abc");
  EXPECT_EQ(after("abcdef\x1b[4G\x1b[1K", 8, 1).lastLine(), "    ef");
  EXPECT_EQ(after("abcdef\x1b[2K", 8, 1).lastLine(), "");
  EXPECT_EQ(after("one\r\ntwo\r\nthree\x1b[2;2H\x1b[J", 8, 3).lines(), (Lines{"one", "t", ""}));
  EXPECT_EQ(after("one\r\ntwo\r\nthree\x1b[2;2H\x1b[1J", 8, 3).lines(),
            (Lines{"", "  o", "three"}));
  EXPECT_EQ(after("one\r\ntwo\x1b[2J", 8, 2).lines(), (Lines{"", ""}));
  // Insert and delete characters; erase some; insert and delete lines.
  EXPECT_EQ(after("abcdef\x1b[3G\x1b[2@", 8, 1).lastLine(), "ab  cdef");
  EXPECT_EQ(after("abcdef\x1b[2G\x1b[3P", 8, 1).lastLine(), "aef");
  EXPECT_EQ(after("abcdef\x1b[2G\x1b[3X", 8, 1).lastLine(), "a   ef");
  EXPECT_EQ(after("1\r\n2\r\n3\x1b[2;1H\x1b[L", 4, 3).lines(), (Lines{"1", "", "2"}));
  EXPECT_EQ(after("1\r\n2\r\n3\x1b[1;1H\x1b[M", 4, 3).lines(), (Lines{"2", "3", ""}));
  // In insert mode characters push the rest of the line along.
  EXPECT_EQ(after("abcd\x1b[2G\x1b[4hXY\x1b[4lZ", 8, 1).lastLine(), "aXYZcd");
  // Backspace, carriage return, save and restore.
  EXPECT_EQ(after("abc\b\bX\rY\x1b"
                  "7\r\nZ\x1b"
                  "8W",
                  4, 2)
                .lines(),
            (Lines{"YWc", "Z"}));
}

TEST(TerminalTranscript, ScrollsAtTheBottomAndInsideAScrollRegion) {
  EXPECT_EQ(after("1\r\n2\r\n3\r\n4", 4, 3).lines(), (Lines{"2", "3", "4"}));
  // A status line that stays while the rows above it scroll.
  EXPECT_EQ(after("\x1b[3;1Hstatus\x1b[1;2r\x1b[1;1H1\r\n2\r\n3\r\n4", 8, 3).lines(),
            (Lines{"3", "4", "status"}));
  // A reverse line feed at the top brings a blank row in.
  EXPECT_EQ(after("1\r\n2\x1b[H\x1bM0", 4, 2).lines(), (Lines{"0", "1"}));
  // A full line leaves the cursor at its end; only the next character wraps.
  EXPECT_EQ(after("abcd\r\nef", 4, 3).lines(), (Lines{"abcd", "ef", ""}));
  EXPECT_EQ(after("abcdef", 4, 3).lines(), (Lines{"abcd", "ef", ""}));
  // Characters two cells wide take two cells, and move to the next line when one is left.
  EXPECT_EQ(after("abc\xE6\x97\xA5", 4, 2).lines(), (Lines{"abc", "\xE6\x97\xA5"}));
}

TEST(TerminalTranscript, AFullScreenProgramsScreenIsItsOwn) {
  TerminalTranscript transcript(10, 3);
  transcript.write("$ top\r\n");
  transcript.write("\x1b[?1049h\x1b[H\x1b[2Jtasks: 3\x1b[3;1Hq to quit");
  EXPECT_EQ(transcript.lines(), (Lines{"tasks: 3", "", "q to quit"}));
  transcript.write("\x1b[?1049l$ ");
  EXPECT_EQ(transcript.lines(), (Lines{"$ top", "$", ""}));
}

TEST(TerminalTranscript, ColoursTitlesModesAndBrokenBytesShowNothingOfTheirOwn) {
  EXPECT_EQ(after("\x1b[1;38;5;110mdir\x1b[0m \x1b]0;title\x07$ \x1b[?2004h\x1b=\x1b(B"
                  "\x1bP1$r0m\x1b\\ok\x1b[>0c\x1b[6n",
                  20, 1)
                .lastLine(),
            "dir $ ok");
  // An OSC ended by ESC \, a sequence cut off by another, bytes that are not UTF-8.
  EXPECT_EQ(after("\x1b]2;a title\x1b\\A\x1b[12\x1b[2GB\xFF\xC3(", 20, 1).lastLine(),
            "AB\xEF\xBF\xBD\xEF\xBF\xBD(");
}

TEST(TerminalTranscript, OnlyTheScreenIsKeptHoweverMuchIsWritten) {
  TerminalTranscript transcript(20, 3);
  std::string lines;
  for (int i = 1; i <= 200000; ++i) {
    lines += "line " + std::to_string(i) + "\r\n";
  }
  transcript.write(lines);
  EXPECT_EQ(transcript.lines(), (Lines{"line 199999", "line 200000", ""}));
  // A title that never ends swallows what follows it, and only that.
  transcript.write("\x1b]0;" + std::string(8 * 1024 * 1024, 'x'));
  transcript.write("\x07shown");
  EXPECT_EQ(transcript.lastLine(), "shown");
}

TEST(TerminalTranscript, AResizedScreenKeepsTheCursorsLine) {
  TerminalTranscript transcript(10, 4);
  transcript.write("a\r\nb\r\nc\r\nd");
  transcript.resize(10, 2);
  EXPECT_EQ(transcript.lines(), (Lines{"c", "d"}));
  transcript.resize(3, 3);
  transcript.write("\r\nlonger");
  EXPECT_EQ(transcript.lines(), (Lines{"d", "lon", "ger"}));
  EXPECT_EQ(transcript.columns(), 3);
  EXPECT_EQ(transcript.rows(), 3);
}

}  // namespace
}  // namespace brimble
