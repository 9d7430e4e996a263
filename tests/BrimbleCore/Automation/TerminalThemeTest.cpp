#include "BrimbleCore/Automation/TerminalTheme.h"

#include <gtest/gtest.h>

namespace brimble {
namespace {

TEST(TerminalTheme, WellKnownSchemesAreFoundHoweverTheirNamesAreWritten) {
  const auto mocha = TerminalTheme::named("Catppuccin Mocha");
  ASSERT_TRUE(mocha);
  for (const char* name : {"catppuccin-mocha", "CATPPUCCIN_MOCHA", " catppuccin mocha "}) {
    const auto theme = TerminalTheme::named(name);
    ASSERT_TRUE(theme) << name;
    EXPECT_EQ(theme->background, mocha->background) << name;
  }
  EXPECT_FALSE(TerminalTheme::named("Drakula"));
}

TEST(TerminalTheme, JSONColoursReplaceThoseTheyNameAndKeepTheRest) {
  const TerminalTheme theme = TerminalTheme::parse(R"({
    "name": "Mine", "background": "#101010", "foreground": "#EEE", "purple": "#aa00aa",
    "brightBlack": "#555555", "BrightWhite": "#fafafa", "cursor": "#ff8800",
    "selection": "#333344"
  })");
  EXPECT_EQ(theme.background, "#101010");
  EXPECT_EQ(theme.foreground, "#eeeeee");
  EXPECT_EQ(theme.cursor, "#ff8800");
  EXPECT_EQ(theme.selection, "#333344");
  EXPECT_EQ(theme.ansi[5], "#aa00aa");  // magenta, which some schemes call purple
  EXPECT_EQ(theme.ansi[8], "#555555");
  EXPECT_EQ(theme.ansi[15], "#fafafa");
  // Colours it leaves out keep the default scheme's.
  EXPECT_EQ(theme.ansi[1], TerminalTheme::named("Brimble")->ansi[1]);
  EXPECT_EQ(TerminalTheme::parse(" nord ").background, "#2e3440");
}

TEST(TerminalTheme, UnknownNamesBrokenJSONAndBadColoursSayWhatIsWrong) {
  using Code = TerminalThemeError::Code;
  const auto error = [](const std::string& text) {
    try {
      TerminalTheme::parse(text);
    } catch (const TerminalThemeError& thrown) {
      return std::pair{thrown.code(), std::string(thrown.what())};
    }
    return std::pair{Code::unknownName, std::string("no error")};
  };
  const auto [unknown, unknownText] = error("Drakula");
  EXPECT_EQ(unknown, Code::unknownName);
  EXPECT_EQ(unknownText.substr(0, 50), "Unknown terminal theme 'Drakula' (themes: Brimble,");
  EXPECT_NE(unknownText.find("Dracula"), std::string::npos);
  EXPECT_EQ(error("{\"background\": \"#101010\""),
            std::pair(Code::invalidJSON,
                      std::string("The terminal theme is not a JSON object of colours: it does "
                                  "not parse")));
  EXPECT_EQ(error("{\"red\": \"crimson\"}"),
            std::pair(Code::invalidColor,
                      std::string("The terminal theme's 'red' is 'crimson', not a colour such as "
                                  "#1e1e2e")));
  EXPECT_EQ(error("{\"red\": 12}").first, Code::invalidColor);
  EXPECT_EQ(error("{\"red\": \"#12345\"}").first, Code::invalidColor);
}

}  // namespace
}  // namespace brimble
