#include "BrimbleCore/Scripting/ScriptContext.h"

#include <string>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "tests/Support/LogCapture.h"

namespace brimble {
namespace {

std::string errorText(const std::function<void()>& action) {
  try {
    action();
  } catch (const ScriptError& error) {
    return error.what();
  }
  return "no error";
}

TEST(ScriptContext, StartsWithFiveSettings) {
  const ScriptContext context;
  EXPECT_EQ(context.settings(),
            (std::map<std::string, std::string, std::less<>>{{"fps", "30"},
                                                             {"output", "output.gif"},
                                                             {"max-width", "800"},
                                                             {"loop-count", "0"},
                                                             {"transition", "0.3"}}));
  EXPECT_EQ(context.setting("strict"), nullptr);
}

TEST(ScriptContext, ReadersFallBackToTheDefault) {
  ScriptContext context;
  EXPECT_TRUE(context.boolSetting("cleanup", true));
  context.setSetting("cleanup", "Off");
  EXPECT_FALSE(context.boolSetting("cleanup", true));
  context.setSetting("cleanup", "maybe");
  EXPECT_TRUE(context.boolSetting("cleanup", true));

  EXPECT_EQ(context.intSetting("fps", 12), 30);
  context.setSetting("fps", "fast");
  EXPECT_EQ(context.intSetting("fps", 12), 12);
  EXPECT_EQ(context.intSetting("max-width", 1), 800);

  EXPECT_DOUBLE_EQ(context.doubleSetting("transition", 9), 0.3);
  EXPECT_DOUBLE_EQ(context.doubleSetting("run-timeout", 30), 30);
  context.setSetting("run-timeout", "2.5");
  EXPECT_DOUBLE_EQ(context.doubleSetting("run-timeout", 30), 2.5);
  context.setSetting("run-timeout", "soon");
  EXPECT_DOUBLE_EQ(context.doubleSetting("run-timeout", 30), 30);
}

TEST(ScriptContext, PacePresetsMergeAndLaterSetsOverride) {
  ScriptContext context;
  context.setSetting("output", "demo.gif");
  context.applyPace(PacePreset::cinematic);
  context.setSetting("fps", "60");
  EXPECT_EQ(context.intSetting("fps", 0), 60);
  EXPECT_DOUBLE_EQ(context.doubleSetting("transition", 0), 0.8);
  EXPECT_DOUBLE_EQ(context.doubleSetting("typing-delay", 0), 0.06);
  EXPECT_TRUE(context.boolSetting("auto-pace", false));
  EXPECT_EQ(*context.setting("output"), "demo.gif");
}

TEST(ScriptContext, ResolvesEachKindOfValue) {
  ScriptContext context;
  context.setVariable("out", ScriptVariableValue::lines({"a", "b", "c"}));
  context.setVariable("win", ScriptVariableValue::windowID(4242));
  context.setVariable("name", ScriptVariableValue::string("Ada"));
  EXPECT_EQ(context.resolve(ScriptValue::number(3), 1), "3");
  EXPECT_EQ(context.resolve(ScriptValue::number(3.0), 1), "3");
  EXPECT_EQ(context.resolve(ScriptValue::number(0.25), 1), "0.25");
  EXPECT_EQ(context.resolve(ScriptValue::number(-2), 1), "-2");
  EXPECT_EQ(context.resolve(ScriptValue::number(1e-7), 1), "0.0000001");
  EXPECT_EQ(context.resolve(ScriptValue::variable("out"), 1), "a\nb\nc");
  EXPECT_EQ(context.resolve(ScriptValue::variableIndex("out", 2), 1), "c");
  EXPECT_EQ(context.resolve(ScriptValue::variable("win"), 1), "4242");
  EXPECT_EQ(context.resolve(ScriptValue::variableIndex("win", 0), 1), "4242");
  EXPECT_EQ(context.resolve(ScriptValue::string("Hi $name!"), 1), "Hi Ada!");

  EXPECT_EQ(errorText([&] { context.resolve(ScriptValue::variable("missing"), 7); }),
            "Line 7: Undefined variable '$missing'");
  EXPECT_EQ(errorText([&] { context.resolve(ScriptValue::variableIndex("missing", 0), 7); }),
            "Line 7: Undefined variable '$missing'");
  EXPECT_EQ(errorText([&] { context.resolve(ScriptValue::variableIndex("out", 9), 8); }),
            "Line 8: $out[9] out of range");
  EXPECT_EQ(errorText([&] { context.resolve(ScriptValue::variableIndex("win", 1), 8); }),
            "Line 8: $win[1] out of range");
}

TEST(ScriptContext, ResolveDoubleConvertsTextOrFails) {
  ScriptContext context;
  context.setVariable("delay", ScriptVariableValue::lines({"1.5"}));
  context.setVariable("word", ScriptVariableValue::string("soon"));
  EXPECT_DOUBLE_EQ(context.resolveDouble(ScriptValue::number(2), 1), 2);
  EXPECT_DOUBLE_EQ(context.resolveDouble(ScriptValue::variable("delay"), 1), 1.5);
  EXPECT_DOUBLE_EQ(context.resolveDouble(ScriptValue::string("$delay"), 1), 1.5);
  EXPECT_EQ(errorText([&] { context.resolveDouble(ScriptValue::variable("word"), 3); }),
            "Line 3: Expected number, got 'soon'");
  EXPECT_EQ(errorText([&] { context.resolveDouble(ScriptValue::string("1.2.3"), 4); }),
            "Line 4: Expected number, got '1.2.3'");
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
  EXPECT_EQ(log.lines().size(), 3u);
}

TEST(ScriptVariableValue, StringValueAndLines) {
  EXPECT_EQ(ScriptVariableValue::string("a\nb").stringValue(), "a\nb");
  EXPECT_EQ(ScriptVariableValue::lines({"a", "", "b"}).stringValue(), "a\n\nb");
  EXPECT_EQ(ScriptVariableValue::lines({}).stringValue(), "");
  EXPECT_EQ(ScriptVariableValue::windowID(4294967295u).stringValue(), "4294967295");

  const ScriptVariableValue text = ScriptVariableValue::string("one\ntwo\n");
  EXPECT_EQ(text.lineAt(0), "one");
  EXPECT_EQ(text.lineAt(1), "two");
  EXPECT_EQ(text.lineAt(2), "");
  EXPECT_EQ(text.lineAt(3), std::nullopt);
  EXPECT_EQ(text.lineAt(-1), std::nullopt);

  const ScriptVariableValue lines = ScriptVariableValue::lines({"a", "b"});
  EXPECT_EQ(lines.lineAt(1), "b");
  EXPECT_EQ(lines.lineAt(2), std::nullopt);
  EXPECT_EQ(lines.kind(), ScriptVariableValue::Kind::lines);

  const ScriptVariableValue window = ScriptVariableValue::windowID(7);
  EXPECT_EQ(window.lineAt(0), "7");
  EXPECT_EQ(window.lineAt(1), std::nullopt);
}

}  // namespace
}  // namespace brimble
