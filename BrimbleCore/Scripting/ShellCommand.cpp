#include "BrimbleCore/Scripting/ShellCommand.h"

#include <algorithm>

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

ShellCommandText shellCommandText(const ScriptValue& command, int line,
                                  const ScriptContext& context) {
  if (command.kind != ScriptValue::Kind::string) {
    // `run $cmd`: the variable holds the command itself.
    return {context.resolve(command, line), {}};
  }
  // Pasting a value into the text would run whatever shell syntax it holds (a file name with
  // `$(...)` in it, a line a command printed); as the shell's own variable it stays data.
  ShellCommandText text{command.text, {}};
  std::vector<std::string> names = command.namesInText();
  for (std::size_t brace = command.text.find("${"); brace != std::string::npos;
       brace = command.text.find("${", brace + 2)) {
    std::size_t end = brace + 2;
    while (end < command.text.size() && isVariableNameCharacter(command.text[end])) {
      ++end;
    }
    const bool literal = std::find(command.literalDollars.begin(), command.literalDollars.end(),
                                   brace) != command.literalDollars.end();
    if (end > brace + 2 && !literal) {
      names.push_back(command.text.substr(brace + 2, end - brace - 2));
    }
  }
  for (const std::string& name : names) {
    const bool exported =
        std::any_of(text.environment.begin(), text.environment.end(),
                    [&](const std::string& entry) { return entry.starts_with(name + "="); });
    if (exported) {
      continue;
    }
    const ScriptVariableValue* value = context.variable(name);
    if (value != nullptr && !(name.front() >= '0' && name.front() <= '9')) {
      text.environment.push_back(name + "=" + value->stringValue());
    }
  }
  return text;
}

void executeRun(const RunInstruction& run, int line, ScriptContext& context, ProcessRunner& runner,
                const ScriptOutput& output, const std::vector<std::string>& scriptEnvironment) {
  ShellCommandText text = shellCommandText(run.command, line, context);
  for (const std::string& entry : scriptEnvironment) {
    const std::string name = entry.substr(0, entry.find('=') + 1);
    const bool named = std::any_of(text.environment.begin(), text.environment.end(),
                                   [&](const std::string& set) { return set.starts_with(name); });
    if (!named) {
      text.environment.push_back(entry);
    }
  }
  const std::string& command = text.command;
  const double seconds = context.doubleSetting("run-timeout", kDefaultRunTimeout);
  const std::optional<double> timeout = seconds > 0 ? std::optional<double>(seconds) : std::nullopt;

  const ShellResult result = runner.runShellCommand(command, timeout, line, text.environment);
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
