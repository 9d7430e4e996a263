// What `brimble` says about a command line it cannot run, before it starts any work: usage
// errors and output files that cannot be written, across the commands.

#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/Support/Files.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using testing::runCommand;
using testing::shellQuote;

struct Row {
  std::string arguments;
  int exitCode;
  std::string error;  // standard error, a "Run ... --help" line after it for usage errors
};

/// Runs each row in `directory` (bounded: a command that wrongly starts recording still ends)
/// and compares its exit code and standard error.
void expectRows(const fs::path& directory, const std::vector<Row>& rows,
                const std::string& prefix = "") {
  for (const Row& row : rows) {
    const auto result =
        runCommand("cd " + shellQuote(directory.string()) + " && timeout 20 " + prefix +
                   testing::brimbleCommand(row.arguments) + " 2>&1 >/dev/null");
    EXPECT_EQ(result.exitCode, row.exitCode) << row.arguments;
    EXPECT_EQ(result.output, row.error) << row.arguments;
  }
}

TEST(BrimbleCommandLine, UsageErrorsSayWhatIsWrongInOneLineAndWhereTheUsageIs) {
  const testing::TempDirectory directory;
  std::vector<Row> rows;
  const auto add = [&rows](const std::string& arguments, const std::string& command,
                           const std::string& what) {
    rows.push_back(
        {arguments, 2, command + ": " + what + "\nRun '" + command + " --help' for usage.\n"});
  };
  add("", "brimble", "no command given");
  add("recrod -o x.gif", "brimble", "unknown command 'recrod'; did you mean 'record'?");
  add("help", "brimble", "unknown command 'help'; did you mean '--help'?");
  add("rn demo.brim", "brimble", "unknown command 'rn'; did you mean 'run'?");
  add("window opne Terminal", "brimble window", "unknown command 'opne'; did you mean 'open'?");
  add("window", "brimble window", "no command given (use open, focus, resize or close)");
  add("encode --fsp 3 -o x.gif", "brimble encode", "unknown option '--fsp'; did you mean '--fps'?");
  add("record --display --outptu x.gif", "brimble record",
      "unknown option '--outptu'; did you mean '--output'?");
  add("windows extra", "brimble windows", "unexpected argument 'extra'");
  add("record --display", "brimble record", "--output is required");
  add("input click 5", "brimble input click", "point takes at least 2 values (got 1)");
  add("mcp-install curser", "brimble mcp-install",
      "unknown host 'curser' (use claude-code, claude-desktop, cursor, vscode or windsurf); did "
      "you mean 'cursor'?");
  // Numbers that mean nothing: no recording is started, however short.
  const std::string seconds = "--duration: must be a number of seconds above 0";
  add("record --display -o x.gif --duration 0", "brimble record", seconds + " (got '0')");
  add("record --display -o x.gif --duration 1e12", "brimble record",
      "--duration: must be at most 86400 seconds (got '1e12')");
  add("record --display -o x.gif --fps 2.5", "brimble record",
      "--fps: must be a whole number from 1 to 120 (got '2.5')");
  add("encode --test-pattern -o x.gif --max-width -1", "brimble encode",
      "--max-width: must be a whole number from 0 to 65535 (got '-1')");
  add("process in.gif --speed inf", "brimble process",
      "--speed: must be a number from 0.01 to 100 (got 'inf')");
  add("encode --test-pattern --frames 0 -o x.gif", "brimble encode",
      "--frames: must be a whole number from 1 to 100000 (got '0')");
  add("encode --test-pattern --fps 0 -o x.gif", "brimble encode",
      "--fps: must be a whole number from 1 to 100 (got '0')");
  add("encode --test-pattern --crf 52 -o x.mp4", "brimble encode",
      "--crf: must be a whole number from 0 to 51 (got '52')");
  add("record --display --preset quick -o x.mp4", "brimble record",
      "--preset: unknown preset 'quick' (use ultrafast, superfast, veryfast, faster, fast, medium, "
      "slow, slower, veryslow or placebo)");
  // The encoder's own checks, after the parser's: one line.
  for (const auto& [arguments, what] : std::vector<std::pair<std::string, std::string>>{
           {"--size 0x10 -o x.gif", "--size must be WIDTHxHEIGHT, each 1 to 65535 (got \"0x10\")"},
           {"--size wide -o x.gif", "--size must be WIDTHxHEIGHT, each 1 to 65535 (got \"wide\")"},
           {"--format tiff -o x", "unknown format \"tiff\" (use gif, webp, apng or mp4)"}}) {
    rows.push_back({"encode --test-pattern " + arguments, 2, "brimble encode: " + what + "\n"});
  }
  rows.push_back({"encode -o x.gif", 2,
                  "brimble encode: no input: give a directory of frames, frame files, a GIF, or "
                  "--test-pattern\n"});
  // Window ids: decimal or 0x-hex, never octal.
  add("still --window 010 -o x.png", "brimble still",
      "--window: must be an X window id such as 0x1a00007 (got '010')");
  expectRows(directory.path(), rows);
  EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST(BrimbleCommandLine, AnOutputThatCannotBeWrittenIsRefusedBeforeAnyWork) {
  const testing::TempDirectory directory;
  const std::string dir = directory.path().string();
  testing::writeFile(directory / "file", "");
  fs::create_directory(directory / "locked");
  fs::permissions(directory.path(), fs::perms(0755));
  fs::permissions(directory / "locked", fs::perms(0555));
  const auto cannot = [&dir](const std::string& command, const std::string& output,
                             const std::string& why) {
    return "brimble " + command + ": cannot write " + dir + "/" + output + ": " + why + "\n";
  };
  expectRows(
      directory.path(),
      {
          {"record --display --duration 1 -o " + dir + "/missing/r.gif", 1,
           cannot("record", "missing/r.gif", "the folder " + dir + "/missing does not exist")},
          {"still --display -o " + dir + "/file/s.png", 1,
           cannot("still", "file/s.png", dir + "/file is not a folder")},
          {"encode --test-pattern -o " + dir + "/locked", 1,
           cannot("encode", "locked", "it is a folder")},
          {"process " + dir + "/missing/in.gif", 1,
           cannot("process", "missing/in.processed.gif",
                  "the folder " + dir + "/missing does not exist")},
          {"process in.gif -o out.txt", 2,
           "brimble process: unknown extension \".txt\" in out.txt (use .gif, .webp, .png or .mp4, "
           "or --format)\n"},
      });
  // Root writes anywhere, so the folder is tried as somebody else.
  expectRows(directory.path(),
             {{"encode --test-pattern -o locked/x.webp", 1,
               "brimble encode: cannot write locked/x.webp: the folder locked is not writable "
               "(Permission denied)\n"}},
             ::geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "");
}

}  // namespace
}  // namespace brimble
