#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "BrimbleCore/Scripting/ProcessRunner.h"
#include "BrimbleCore/Scripting/ScriptContext.h"
#include "BrimbleCore/Scripting/ScriptInstruction.h"

namespace brimble {

/// Receives one progress line of a running script, without its line end. An empty function
/// means the script runs quiet.
using ScriptOutput = std::function<void(std::string_view line)>;

/// The seconds a `run` may take when `run-timeout` is not set.
inline constexpr double kDefaultRunTimeout = 30;

/// What `/bin/sh -c` runs for a `run` command, and the environment it runs with.
struct ShellCommandText {
  std::string command;
  /// "name=value" for each script variable the command names.
  std::vector<std::string> environment;
};

/// The shell command `command` stands for on script line `line`. A quoted command is the
/// shell's text as written: each `$name` in it that names a script variable is passed to the
/// shell as its environment variable `name`, so the shell reads the value as data (`"$name"`
/// keeps it one word; inside single quotes it is not expanded). `\$` and the names of no script
/// variable are the shell's own. A variable (`run $cmd`) holds the command's text itself.
/// Throws as ScriptContext::resolve.
ShellCommandText shellCommandText(const ScriptValue& command, int line,
                                  const ScriptContext& context);

/// Executes `run <command> [as $v]` on script line `line`:
/// - resolves the command (`shellCommandText`) and runs it through `runner`, limited to the
/// `run-timeout` setting
///   (zero or less: no limit);
/// - stores the exit status in `_exitcode`;
/// - with `as $v`, stores the standard output's lines in `v` and a non-empty standard error in
///   `v_stderr` (removing an older one), and prints "     N line(s) captured to $v" to `output`;
/// - with the `strict` setting on (the default), a non-zero status throws commandFailed.
/// `scriptEnvironment` ("NAME=value", from the script's `env` lines) reaches the command too,
/// below the variables it names.
/// Also throws what resolving and the runner throw (time-outs whatever `strict` says).
void executeRun(const RunInstruction& run, int line, ScriptContext& context, ProcessRunner& runner,
                const ScriptOutput& output, const std::vector<std::string>& scriptEnvironment = {});

/// Command output as lines: split at line feeds, a carriage return before one dropped. Empty
/// text has no lines.
std::vector<std::string> outputLines(const std::string& text);

}  // namespace brimble
