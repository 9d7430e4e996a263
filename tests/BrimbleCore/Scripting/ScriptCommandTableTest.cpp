// The manifest's JSON form (choices only where there are some) and its round trip through
// `brimble commands --json` are checked in tests/cli/ScriptCommandsTest.cpp; every command
// parsing whatever its case and option order in ScriptParserTest.cpp.

#include "BrimbleCore/Scripting/ScriptCommandTable.h"

#include <algorithm>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptParser.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble {
namespace {

// An editor snippet as the line a user gets by accepting its placeholders: `${1:x}` becomes its
// placeholder (coordinates and sizes named x, y, w, h become 10), `${1|a,b|}` its first choice
// and `\$` a dollar sign.
std::string filledIn(const std::string& snippet) {
  std::string line;
  for (std::size_t i = 0; i < snippet.size(); ++i) {
    if (snippet.compare(i, 2, "\\$") == 0) {
      line += '$';
      ++i;
    } else if (snippet.compare(i, 2, "${") == 0) {
      const std::size_t close = snippet.find('}', i);
      const std::string body = snippet.substr(i + 2, close - i - 2);
      const std::size_t mark = body.find_first_of(":|");
      std::string value = body.substr(mark + 1);
      if (body[mark] == '|') {
        value = value.substr(0, value.find(','));
      }
      line += value == "x" || value == "y" || value == "w" || value == "h" ? "10" : value;
      i = close;
    } else {
      line += snippet[i];
    }
  }
  return line;
}

// A command half added (an instruction without a row, a row copied and left with its old name or
// instruction) is caught here rather than by a script that parses into the wrong command.
TEST(ScriptCommandTable, EveryInstructionHasOneCommandAndEveryCommandOneName) {
  std::vector<std::vector<std::string>> claims(std::variant_size_v<ScriptInstruction>);
  std::map<std::string, int> rowsNamed;
  for (const ScriptCommand& command : ScriptCommandTable::shared().commands()) {
    const std::string& name = command.info.name;
    ++rowsNamed[name];
    EXPECT_NE(command.parse, nullptr) << name;
    EXPECT_FALSE(command.forms.empty()) << name;
    for (const InstructionForm& form : command.forms) {
      ASSERT_LT(form.alternative, claims.size()) << name;
      claims[form.alternative].push_back(name);
    }
  }
  for (std::size_t alternative = 0; alternative < claims.size(); ++alternative) {
    std::string owners;
    for (const std::string& name : claims[alternative]) {
      owners += " " + name;
    }
    EXPECT_EQ(claims[alternative].size(), 1u)
        << "instruction alternative " << alternative << " belongs to:" << owners;
  }
  for (const auto& [name, rows] : rowsNamed) {
    EXPECT_EQ(rows, 1) << name;
    EXPECT_EQ(name, lowercased(name)) << "the parser looks command words up in lower case";
  }
}

// What an editor inserts for a command is a line the parser takes, and it becomes one of that
// command's own instructions, which is named after the command again.
TEST(ScriptCommandTable, EachCommandsSnippetParsesIntoItsOwnInstruction) {
  const ScriptCommandTable& table = ScriptCommandTable::shared();
  for (const ScriptCommand& command : table.commands()) {
    const std::string line = filledIn(command.info.snippet);
    SCOPED_TRACE(line);
    std::vector<LocatedInstruction> parsed;
    ASSERT_NO_THROW(parsed = ScriptParser::parse(line));
    ASSERT_EQ(parsed.size(), 1u);
    const ScriptInstruction& instruction = parsed[0].instruction;
    EXPECT_TRUE(std::any_of(
        command.forms.begin(), command.forms.end(),
        [&](const InstructionForm& form) { return form.alternative == instruction.index(); }));
    EXPECT_EQ(commandName(instruction), command.info.name);
    EXPECT_EQ(table.find(command.info.name), &command);
  }
  // The parser lower-cases the word first; the table holds only the spellings it publishes.
  EXPECT_EQ(table.find("Record"), nullptr);
  EXPECT_EQ(table.find("bogus"), nullptr);
}

// This platform has no iOS Simulator and no Safari; the rest of those commands runs.
TEST(ScriptCommandTable, TheFormsThisPlatformCannotRunSayWhy) {
  const auto reason = [](const std::string& line) {
    return unavailableOnThisPlatform(ScriptParser::parse(line).at(0).instruction);
  };
  const std::string simulator = "Simulator capture is not available on this platform.";
  EXPECT_EQ(reason("tap 10 20"), simulator);
  EXPECT_EQ(reason("record simulator duration 2"), simulator);
  EXPECT_EQ(reason("browser safari \"https://x\""),
            "Safari is not available on this platform; use 'browser chrome'");
  for (const std::string line : {"record $w", "record region 0 0 9 9", "browser chrome \"x\"",
                                 "target app \"Safari\"", "click 1 2"}) {
    EXPECT_EQ(reason(line), std::nullopt) << line;
  }
}

}  // namespace
}  // namespace brimble
