// How the text of a setting converts is checked in ScriptSettingsTest.cpp.

#include "BrimbleCore/Scripting/ScriptContext.h"

#include <functional>
#include <string>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptParser.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/LogCapture.h"

namespace brimble {
namespace {

TEST(ScriptContext, StartsWithTheDefaultsPacePresetsMergeOverThemAndReadersFallBack) {
  ScriptContext context;
  context.setSetting("output", "demo.gif");
  context.applyPace(PacePreset::cinematic);
  context.setSetting("fps", "60");
  std::string settings;
  for (const auto& [name, value] : context.settings()) {
    settings += name + "=" + value + " ";
  }
  EXPECT_EQ(settings,
            "auto-pace=true auto-pace-delay=0.8 fps=60 idle-threshold=2.0 loop-count=0 "
            "max-width=800 output=demo.gif transition=0.8 typing-delay=0.06 ");
  context.setSetting("cleanup", "Off");
  context.setSetting("fps", "fast");
  EXPECT_FALSE(context.boolSetting("cleanup", true));
  EXPECT_TRUE(context.boolSetting("show-cursor", true));
  EXPECT_EQ(context.intSetting("fps", 12), 12);
  // Values the table rules out are ignored as unparsable ones are.
  context.setSetting("fps", "25");
  context.setSetting("max-width", "-5");
  context.setSetting("transition", "0.5");
  EXPECT_EQ(context.intSetting("fps", 30), 30);
  EXPECT_EQ(context.intSetting("max-width", 800), 800);
  EXPECT_EQ(context.doubleSetting("transition", 0.3), 0.5);
}

TEST(ScriptContext, ResolvesEachKindOfValueOrSaysWhyNot) {
  ScriptContext context;
  context.setVariable("out", ScriptVariableValue::lines({"a", "b", "1.5"}));
  context.setVariable("text", ScriptVariableValue::string("one\ntwo\n"));
  context.setVariable("win", ScriptVariableValue::windowID(4294967295u));
  context.setVariable("name", ScriptVariableValue::string("Ada"));
  const std::pair<ScriptValue, std::string> cases[] = {
      {ScriptValue::number(-0.25), "-0.25"},
      {ScriptValue::number(1e-7), "0.0000001"},
      {ScriptValue::variable("out"), "a\nb\n1.5"},
      {ScriptValue::variableIndex("out", 2), "1.5"},
      {ScriptValue::variableIndex("text", 1), "two"},
      {ScriptValue::variableIndex("text", 2), ""},
      {ScriptValue::variable("win"), "4294967295"},
      {ScriptValue::variableIndex("win", 0), "4294967295"},
      {ScriptValue::string("Hi $name!"), "Hi Ada!"},
  };
  for (const auto& [value, text] : cases) {
    EXPECT_EQ(context.resolve(value, 1), text);
  }
  EXPECT_DOUBLE_EQ(context.resolveDouble(ScriptValue::variableIndex("out", 2), 1), 1.5);
  EXPECT_DOUBLE_EQ(context.resolveDouble(ScriptValue::string("2.5"), 1), 2.5);
  const std::pair<std::function<void()>, std::string> failures[] = {
      {[&] { context.resolve(ScriptValue::variable("missing"), 7); },
       "Line 7: Undefined variable '$missing'"},
      {[&] { context.resolve(ScriptValue::variableIndex("missing", 0), 7); },
       "Line 7: Undefined variable '$missing'"},
      {[&] { context.resolve(ScriptValue::variableIndex("out", 3), 8); },
       "Line 8: $out[3] out of range"},
      {[&] { context.resolve(ScriptValue::variableIndex("win", 1), 8); },
       "Line 8: $win[1] out of range"},
      {[&] { context.resolveDouble(ScriptValue::variable("name"), 3); },
       "Line 3: Expected number, got 'Ada'"},
  };
  for (const auto& [action, text] : failures) {
    EXPECT_EQ(testing::errorText<ScriptError>(action), text);
  }
}

TEST(ScriptContext, WholeNumbersRoundAndWindowsComeOnlyFromWindowVariables) {
  ScriptContext context;
  context.setVariable("x", ScriptVariableValue::string("12.5"));
  context.setVariable("far", ScriptVariableValue::string("1e12"));
  context.setVariable("win", ScriptVariableValue::windowID(0x1a00007));
  context.setVariable("out", ScriptVariableValue::lines({"0x1a00007"}));
  EXPECT_EQ(context.resolveInt(ScriptValue::variable("x"), 1), 13);
  EXPECT_EQ(context.resolveInt(ScriptValue::number(-2.5), 1), -3);
  EXPECT_EQ(context.resolveInt(ScriptValue::string("799.4"), 1), 799);
  EXPECT_EQ(context.resolveWindowID("win", 1), 0x1a00007u);
  const std::pair<std::function<void()>, std::string> failures[] = {
      {[&] { context.resolveInt(ScriptValue::variable("far"), 4); },
       "Line 4: Expected number, got '1e12'"},
      {[&] { context.resolveInt(ScriptValue::string("wide"), 4); },
       "Line 4: Expected number, got 'wide'"},
      {[&] { context.resolveWindowID("out", 5); },
       "Line 5: $out holds no window (bind one with capture-window ... as $out)"},
      {[&] { context.resolveWindowID("nope", 6); }, "Line 6: Undefined variable '$nope'"},
  };
  for (const auto& [action, text] : failures) {
    EXPECT_EQ(testing::errorText<ScriptError>(action), text);
  }
}

TEST(ScriptContext, InterpolationLeavesUnknownNamesAndWarns) {
  ScriptContext context;
  context.setVariable("user", ScriptVariableValue::string("ada"));
  context.setVariable("out", ScriptVariableValue::lines({"x", "y"}));
  testing::LogCapture log;
  EXPECT_EQ(context.interpolateVariables("$missing and $user", 12), "$missing and ada");
  EXPECT_EQ(
      log.lines(),
      (std::vector<std::string>{"BrimbleCore: Warning: line 12: undefined variable '$missing'"}));
  // The longest name wins, a lone dollar stays, and indexes are not applied inside strings.
  EXPECT_EQ(context.interpolateVariables("$user_x $ $user. cost $5", 1), "$user_x $ ada. cost $5");
  EXPECT_EQ(context.interpolateVariables("$out[1]", 1), "x\ny[1]");
  EXPECT_EQ(context.interpolateVariables("$$user", 1), "$ada");
}

TEST(ScriptContext, ABackslashedDollarInAStringIsTypedAsWrittenAndWarnsOfNothing) {
  ScriptContext context;
  context.setVariable("t", ScriptVariableValue::windowID(12345));
  const auto typed = [&](const std::string& line) {
    const std::vector<LocatedInstruction> parsed = ScriptParser::parse(line);
    return context.resolve(std::get<TypeInstruction>(parsed.front().instruction).text, 1);
  };
  testing::LogCapture log;
  EXPECT_EQ(typed(R"(type "echo \$t and $t")"), "echo $t and 12345");
  EXPECT_EQ(typed(R"(type "\$HOME costs \$5, \\$t")"), "$HOME costs $5, \\12345");
  // The other escapes, as documented: a line feed (which presses Enter), a tab, a quote.
  EXPECT_EQ(typed(R"(type "a\nb\tc \"d\" \x")"), "a\nb\tc \"d\" x");
  EXPECT_EQ(log.lines(), std::vector<std::string>{});
}

}  // namespace
}  // namespace brimble
