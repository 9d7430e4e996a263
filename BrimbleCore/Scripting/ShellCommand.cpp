#include "BrimbleCore/Scripting/ShellCommand.h"

#include "BrimbleCore/Scripting/ScriptError.h"

namespace brimble {

std::vector<std::string> outputLines(const std::string& text) {
  std::vector<std::string> lines;
  if (text.empty()) {
    return lines;
  }
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find('\n', start);
    std::string line = text.substr(start, end == std::string::npos ? end : end - start);
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    lines.push_back(std::move(line));
    if (end == std::string::npos) {
      return lines;
    }
    start = end + 1;
  }
}

void executeRun(const RunInstruction& run, int line, ScriptContext& context, ProcessRunner& runner,
                const ScriptOutput& output) {
  const std::string command = context.resolve(run.command, line);
  const double seconds = context.doubleSetting("run-timeout", kDefaultRunTimeout);
  const std::optional<double> timeout = seconds > 0 ? std::optional<double>(seconds) : std::nullopt;

  const ShellResult result = runner.runShellCommand(command, timeout, line);
  context.setVariable("_exitcode", ScriptVariableValue::string(std::to_string(result.exitStatus)));

  if (run.variable) {
    const std::string& name = *run.variable;
    std::vector<std::string> lines = outputLines(result.output);
    const std::size_t count = lines.size();
    context.setVariable(name, ScriptVariableValue::lines(std::move(lines)));
    // A stale error text from an earlier run would be mistaken for this run's.
    if (result.errorOutput.empty()) {
      context.removeVariable(name + "_stderr");
    } else {
      context.setVariable(name + "_stderr", ScriptVariableValue::string(result.errorOutput));
    }
    if (output) {
      output("     " + std::to_string(count) + " line(s) captured to $" + name);
    }
  }

  if (result.exitStatus != 0 && context.boolSetting("strict", true)) {
    throw ScriptError::commandFailed(line, command, result.exitStatus, result.errorOutput);
  }
}

}  // namespace brimble
