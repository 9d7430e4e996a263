// The manual pages `brimble manual` writes for the build: clean man(7) that man opens, and
// brimble(1) listing everything --help lists, so a page that drops a command or an option fails.

#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/Support/CommandHelp.h"
#include "tests/Support/Files.h"
#include "tests/Support/RunCommand.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using testing::runCommand;
using testing::shellQuote;

// The page as man shows it, without hyphenation or line-end hyphens to split a name.
std::string rendered(const std::string& page) {
  return runCommand("groff -man -Tascii -P-cbou " + shellQuote(page) + " 2>&1").output;
}

// The part of the rendered brimble(1) from a command's heading to the next command's heading:
// headings are the only lines indented by exactly three spaces.
std::string sectionOf(const std::string& text, const std::string& command) {
  const std::string heading = "\n   brimble " + command + "\n";
  const std::size_t start = text.find(heading);
  if (start == std::string::npos) {
    return {};
  }
  std::size_t end = start + heading.size();
  while ((end = text.find("\n   ", end)) != std::string::npos && text[end + 4] == ' ') {
    ++end;
  }
  return text.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

// Whether a tagged paragraph of the rendered page starts with `term` (alone or before its
// arguments or its text).
bool hasTerm(const std::string& text, const std::string& term) {
  const std::string start = "\n       " + term;
  return text.find(start + " ") != std::string::npos ||
         text.find(start + "\n") != std::string::npos;
}

TEST(BrimbleManual, PagesRenderCleanlyAndListEveryCommandOptionScriptCommandAndSetting) {
  const testing::TempDirectory directory;
  const std::string environment = "HOME=" + shellQuote(directory.path().string()) +
                                  " XDG_CONFIG_HOME=" + shellQuote((directory / "config").string());
  for (const auto& [name, file] :
       {std::pair{"brimble", "brimble.1"}, std::pair{"brimble-app", "brimble-app.1"},
        std::pair{"script", "brimble-script.5"}}) {
    const std::string page = (directory / file).string();
    ASSERT_EQ(runCommand(environment + " " + testing::brimbleCommand("manual --man ") + name +
                         " > " + shellQuote(page))
                  .exitCode,
              0);
    const auto check = runCommand("groff -man -ww -z " + shellQuote(page) + " 2>&1");
    EXPECT_EQ(check.exitCode, 0) << file;
    EXPECT_EQ(check.output, "") << file;
    // As Debian's package checks do: every line fits 80 columns.
    const auto fitted = runCommand(environment + " LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E " +
                                   "UTF-8 -l -Tutf8 -Z " + shellQuote(page) + " 2>&1 >/dev/null");
    EXPECT_EQ(fitted.output, "") << file;
    const auto shown =
        runCommand(environment + " MANWIDTH=80 man -P cat -l " + shellQuote(page) + " 2>&1");
    EXPECT_EQ(shown.exitCode, 0) << file;
    EXPECT_NE(shown.output.find("NAME"), std::string::npos) << shown.output;
  }

  const std::string brimble = rendered((directory / "brimble.1").string());
  for (const std::string& option : testing::brimbleHelp("").options) {
    EXPECT_NE(brimble.find(option), std::string::npos) << option;
  }
  const auto commands = testing::brimbleCommandPaths();
  EXPECT_GT(commands.size(), 25u);
  for (const std::string& command : commands) {
    const std::string section = sectionOf(brimble, command);
    EXPECT_FALSE(section.empty()) << "no section for brimble " << command;
    for (const std::string& option : testing::brimbleHelp(command).options) {
      EXPECT_NE(section.find(" " + option), std::string::npos)
          << option << " of brimble " << command;
    }
  }
  // Hidden from --help, hidden from the page.
  EXPECT_EQ(sectionOf(brimble, "manual"), "");

  const std::string script = rendered((directory / "brimble-script.5").string());
  const auto manifest = nlohmann::json::parse(
      runCommand(testing::brimbleCommand("commands --json")).output, nullptr, false);
  ASSERT_TRUE(manifest.contains("commands"));
  for (const auto& command : manifest["commands"]) {
    EXPECT_TRUE(hasTerm(script, command["name"].get<std::string>())) << command["name"];
  }
  const auto settings = nlohmann::json::parse(
      runCommand(testing::brimbleCommand("settings --json")).output, nullptr, false);
  ASSERT_TRUE(settings.contains("settings"));
  for (const auto& setting : settings["settings"]) {
    EXPECT_TRUE(hasTerm(script, setting["name"].get<std::string>())) << setting["name"];
  }
}

TEST(BrimbleManual, BuildWritesPagesAndCompletionsWhereTheyAreInstalledFrom) {
  const testing::TempDirectory directory;
  const auto result = runCommand(testing::brimbleCommand("manual --write ") +
                                 shellQuote((directory / "share").string()));
  ASSERT_EQ(result.exitCode, 0);
  for (const char* file :
       {"man/man1/brimble.1", "man/man1/brimble-app.1", "man/man5/brimble-script.5",
        "bash-completion/completions/brimble", "zsh/site-functions/_brimble",
        "fish/vendor_completions.d/brimble.fish"}) {
    EXPECT_FALSE(testing::readFile(directory / "share" / file).empty()) << file;
  }
  EXPECT_EQ(testing::readFile(directory / "share/man/man1/brimble.1"),
            runCommand(testing::brimbleCommand("manual --man brimble")).output);
}

}  // namespace
}  // namespace brimble
