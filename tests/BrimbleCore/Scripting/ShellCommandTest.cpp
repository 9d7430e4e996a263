#include "BrimbleCore/Scripting/ShellCommand.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptParser.h"
#include "BrimbleCore/Scripting/ShellProcessRunner.h"
#include "tests/Support/ErrorText.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

// Runs one `run` line of a script the way the engine will: parsed, then executed against the
// context with a real shell.
class RunLine {
 public:
  void operator()(const std::string& source) {
    const std::vector<LocatedInstruction> parsed = ScriptParser::parse(source);
    ASSERT_EQ(parsed.size(), 1u);
    executeRun(std::get<RunInstruction>(parsed.front().instruction), parsed.front().line, context,
               runner, [this](std::string_view line) { printed.emplace_back(line); });
  }

  std::string error(const std::string& source) {
    return testing::errorText<ScriptError>([&] { (*this)(source); });
  }

  std::string variable(const std::string& name) const {
    const ScriptVariableValue* value = context.variable(name);
    return value == nullptr ? "(undefined)" : value->stringValue();
  }

  ScriptContext context;
  ShellProcessRunner runner;
  std::vector<std::string> printed;
};

TEST(ShellCommand, CapturesLinesWithoutTheirCRAndStandardErrorApart) {
  RunLine run;
  run(R"(run "printf 'a\nb\n'; echo warn >&2" as $out)");
  run(R"(run "true" as $none)");
  // The script's own escapes apply first, so the shell's backslashes are doubled.
  run(R"(run "printf 'x\\r\\ny\\r\\n\\r\\nz'" as $dos)");
  EXPECT_EQ(*run.context.variable("out"), ScriptVariableValue::lines({"a", "b"}));
  EXPECT_EQ(run.variable("out_stderr"), "warn");
  EXPECT_EQ(*run.context.variable("none"), ScriptVariableValue::lines({}));
  EXPECT_EQ(*run.context.variable("dos"), ScriptVariableValue::lines({"x", "y", "", "z"}));
  EXPECT_EQ(run.variable("_exitcode"), "0");
  EXPECT_EQ(run.printed, (std::vector<std::string>{"     2 line(s) captured to $out",
                                                   "     0 line(s) captured to $none",
                                                   "     4 line(s) captured to $dos"}));
  // A later run without standard error leaves no stale text behind.
  run(R"(run "echo again" as $out)");
  EXPECT_EQ(run.variable("out_stderr"), "(undefined)");
}

TEST(ShellCommand, StrictModeStopsOnAFailureAndWithoutItTheStatusStaysReadable) {
  RunLine run;
  EXPECT_EQ(run.error("\n\nrun \"false\""), "Line 3: Command 'false' failed (exit 1): exit code 1");
  EXPECT_EQ(run.variable("_exitcode"), "1");
  EXPECT_EQ(run.error(R"(run "echo boom >&2; exit 4" as $r)"),
            "Line 1: Command 'echo boom >&2; exit 4' failed (exit 4): boom");
  EXPECT_EQ(run.variable("r_stderr"), "boom");
  run.context.setSetting("strict", "false");
  run(R"(run "exit 3" as $r)");
  EXPECT_EQ(run.variable("_exitcode"), "3");
  EXPECT_EQ(run.printed.back(), "     0 line(s) captured to $r");
}

TEST(ShellCommand, TheRunTimeoutSettingLimitsTheCommandWhateverStrictSays) {
  RunLine run;
  run.context.setSetting("run-timeout", "1");
  run.context.setSetting("strict", "off");
  EXPECT_EQ(run.error("run \"sleep 5\""), "Line 1: Command 'sleep 5' timed out after 1s");
  // Zero means no limit; a run need not print.
  run.context.setSetting("run-timeout", "0");
  executeRun(RunInstruction{ScriptValue::string("sleep 1.2; echo ok"), "v"}, 1, run.context,
             run.runner, {});
  EXPECT_EQ(run.variable("v"), "ok");
}

TEST(ShellCommand, ScriptVariablesAreExpandedAndShellOnesPassThrough) {
  RunLine run;
  run.context.setVariable("greeting", ScriptVariableValue::string("hello"));
  testing::LogCapture log;
  run(R"(run "echo $greeting ${greeting}! $HOME" as $v)");
  EXPECT_EQ(run.variable("v"), std::string("hello hello! ") + std::getenv("HOME"));
  // A name the script does not define is the shell's own, not a mistake.
  EXPECT_EQ(log.lines(), std::vector<std::string>{});
  run.context.setVariable("cmd", ScriptVariableValue::lines({"echo from-variable"}));
  run("run $cmd as $w");
  EXPECT_EQ(run.variable("w"), "from-variable");
  EXPECT_EQ(run.error("run $nothing"), "Line 1: Undefined variable '$nothing'");
}

TEST(ShellCommand, ScriptVariablesReachTheShellAsDataNeverAsCode) {
  testing::TempDirectory directory;
  const std::string folder = directory.path().string();
  RunLine run;
  // Output that looks like shell code, captured as the issue's attacker would.
  run(R"(run "printf '%s' '$(touch )" + folder + R"(/pwned)'" as $v)");
  EXPECT_EQ(run.variable("v"), "$(touch " + folder + "/pwned)");
  run(R"(run "echo $v" as $echoed)");
  EXPECT_EQ(run.variable("echoed"), "$(touch " + folder + "/pwned)");
  run(R"(run "echo `echo $v`; echo \"$v\"; echo ${v}" as $nested)");
  EXPECT_FALSE(std::filesystem::exists(directory / "pwned"));

  // Every shell metacharacter survives the trip unchanged, one word in double quotes.
  const std::string hostile = "a b;c|d&e'f\"g`h\\i$j*k\nl";
  run.context.setVariable("hostile", ScriptVariableValue::string(hostile));
  run(R"(run "printf '%s' \"$hostile\"" as $copy)");
  EXPECT_EQ(run.variable("copy"), hostile);
  run(R"(run "set -- $hostile; echo $#" as $words)");
  EXPECT_EQ(run.variable("words"), "3");  // split at blanks and the newline, never run

  // `$name` of no script variable, and `\$`, are the shell's.
  run.context.setVariable("greeting", ScriptVariableValue::string("hello"));
  run(R"(run "printf '%s' \"\$greeting-$nothing-\$HOME\"" as $shell)");
  EXPECT_EQ(run.variable("shell"), std::string("--") + std::getenv("HOME"));
}

}  // namespace
}  // namespace brimble
