// `brimble completion bash|zsh|fish` in the real shells: commands, options, option values and
// script files, as a user pressing Tab would get them.

#include <algorithm>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/Support/CommandHelp.h"
#include "tests/Support/Files.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using testing::runCommand;
using testing::shellQuote;

using Offers = std::set<std::string>;

Offers linesOf(const std::string& text) {
  Offers lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.insert(line.substr(0, line.find('\t')));  // fish puts a description after a tab
  }
  return lines;
}

// A folder with scripts, other files and a folder to complete in, and the shells' home.
struct CompletionFolder {
  testing::TempDirectory directory;

  CompletionFolder() {
    testing::writeFile(directory / "demo.brim", "wait 1\n");
    testing::writeFile(directory / "intro.tape", "Sleep 1s\n");
    testing::writeFile(directory / "notes.txt", "not a script\n");
    fs::create_directory(directory / "scripts");
    fs::create_directory(directory / "home");
  }

  // A command line that runs `shell` in the folder with a home of its own.
  std::string in(const std::string& shell) const {
    const std::string home = (directory / "home").string();
    return "cd " + shellQuote(directory.path().string()) + " && HOME=" + shellQuote(home) +
           " XDG_STATE_HOME=" + shellQuote(home + "/state") +
           " XDG_CONFIG_HOME=" + shellQuote(home + "/config") +
           " XDG_DATA_HOME=" + shellQuote(home + "/data") + " " + shell;
  }

  // Writes the script `brimble completion <shell>` prints, and returns its path.
  std::string script(const std::string& shell) const {
    const std::string file = (directory / ("completion." + shell)).string();
    const auto result =
        runCommand(in(testing::brimbleCommand("completion " + shell) + " > " + shellQuote(file)));
    EXPECT_EQ(result.exitCode, 0);
    return file;
  }
};

// What `brimble re<TAB>` must offer in every shell: record and report, and nothing else that
// does not start with "re".
void expectTheCommandsStartingWithRe(const Offers& re) {
  EXPECT_TRUE(re.contains("record") && re.contains("report")) << ::testing::PrintToString(re);
  EXPECT_TRUE(std::all_of(re.begin(), re.end(), [](const auto& w) { return w.starts_with("re"); }))
      << ::testing::PrintToString(re);
}

TEST(BrimbleCompletion, BashCompletesCommandsOptionsValuesAndScriptFiles) {
  const CompletionFolder folder;
  const std::string script = folder.script("bash");
  // What the function `complete` registered for brimble offers for the words, the last being
  // the one under the cursor.
  const auto offers = [&](const std::string& words) {
    const std::string driver =
        "source " + shellQuote(script) +
        "\nfunction=$(complete -p brimble | sed -n 's/.*-F \\([^ ]*\\).*/\\1/p')\n"
        "COMP_WORDS=(" +
        words +
        ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
        "COMP_LINE=\"${COMP_WORDS[*]}\"\nCOMP_POINT=${#COMP_LINE}\n"
        "\"$function\" brimble \"${COMP_WORDS[COMP_CWORD]}\" \"${COMP_WORDS[COMP_CWORD-1]}\"\n"
        "if ((${#COMPREPLY[@]})); then printf '%s\\n' \"${COMPREPLY[@]}\"; fi\n";
    testing::writeFile(folder.directory / "driver.bash", driver);
    const auto result = runCommand(folder.in("bash --norc --noprofile driver.bash 2>&1"));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    return linesOf(result.output);
  };

  expectTheCommandsStartingWithRe(offers("brimble re"));
  EXPECT_EQ(offers("brimble run ''"), (Offers{"demo.brim", "intro.tape", "scripts", "home"}));
  EXPECT_EQ(offers("brimble validate d"), (Offers{"demo.brim"}));

  Offers runOptions;
  for (const std::string& name : testing::brimbleHelp("run").options) {
    if (name.starts_with("--")) {
      runOptions.insert(name);
    }
  }
  EXPECT_EQ(offers("brimble run --"), runOptions);
  EXPECT_EQ(offers("brimble encode --palette ''"), (Offers{"auto", "global", "perFrame"}));
  EXPECT_EQ(offers("brimble encode --palette = gl"), Offers{"global"});  // --palette=gl
  EXPECT_EQ(offers("brimble completion ''"), (Offers{"bash", "zsh", "fish"}));
  // Options and their values before the cursor are walked over, not taken for commands.
  EXPECT_EQ(offers("brimble --verbose window open --app run '' "), Offers{});
  EXPECT_EQ(offers("brimble --verbose record -o run --fp"), Offers{"--fps"});
  EXPECT_EQ(offers("brimble input ''"), (Offers{"type", "key", "click", "move", "scroll"}));
  EXPECT_FALSE(offers("brimble ma").contains("manual"));
}

TEST(BrimbleCompletion, FishAndZshOfferWhatBashOffers) {
  const CompletionFolder folder;
  const std::string fish = folder.script("fish");
  const auto offers = [&](const std::string& line) {
    const auto result = runCommand(folder.in(
        "fish --no-config -c " +
        shellQuote("source " + shellQuote(fish) + "; and complete -C " + shellQuote(line)) +
        " 2>&1"));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    return linesOf(result.output);
  };
  expectTheCommandsStartingWithRe(offers("brimble re"));
  EXPECT_EQ(offers("brimble run "), (Offers{"demo.brim", "intro.tape", "scripts/", "home/"}));
  EXPECT_EQ(offers("brimble encode --palette "), (Offers{"auto", "global", "perFrame"}));
  EXPECT_TRUE(offers("brimble run --").contains("--timeline"));

  const std::string zsh = folder.script("zsh");
  const fs::path functions = folder.directory / "functions";
  fs::create_directory(functions);
  fs::copy_file(zsh, functions / "_brimble");
  const auto loaded =
      runCommand(folder.in("zsh -f -c " +
                           shellQuote("fpath=(" + shellQuote(functions.string()) +
                                      " $fpath); autoload -U compinit; compinit -u -d " +
                                      shellQuote((folder.directory / "zcompdump").string()) +
                                      "; print -r -- ${_comps[brimble]}") +
                           " 2>&1"));
  EXPECT_EQ(loaded.exitCode, 0);
  EXPECT_EQ(loaded.output, "_brimble\n");
  // What _brimble hands zsh's completion functions, which print it here instead: zsh itself
  // then keeps the matches that start with the word typed.
  testing::writeFile(folder.directory / "driver.zsh",
                     "compdef() { :; }\n"
                     "source " +
                         shellQuote(zsh) +
                         "\n"
                         "_describe() { print -rl -- \"${described[@]%%:*}\"; }\n"
                         "_files() { print -r -- \"files $*\"; }\n"
                         "compadd() { shift; print -rl -- \"$@\"; }\n"
                         "words=(\"$@\"); CURRENT=$#; _brimble\n");
  const auto handed = [&](const std::string& words) {
    const auto result = runCommand(folder.in("zsh -f driver.zsh " + words + " 2>&1"));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    return linesOf(result.output);
  };
  const Offers commands = handed("brimble re");
  EXPECT_TRUE(commands.contains("record") && commands.contains("report"));
  EXPECT_FALSE(commands.contains("manual"));
  EXPECT_EQ(handed("brimble run ''"), Offers{"files -g *.(brim|tape)"});
  EXPECT_EQ(handed("brimble encode --palette ''"), (Offers{"auto", "global", "perFrame"}));
  EXPECT_TRUE(handed("brimble --verbose record -o run --fp").contains("--fps"));
}

}  // namespace
}  // namespace brimble
