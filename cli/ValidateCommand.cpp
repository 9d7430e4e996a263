#include "cli/ValidateCommand.h"

#include <cstdio>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptValidation.h"
#include "cli/OptionValues.h"
#include "cli/ScriptSource.h"

namespace brimble::cli {
namespace {

int runValidate(const std::string& file) {
  ScriptSource source;
  try {
    source = readScriptSource(file);
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimble validate: {}\n", error.what());
    return kExitFailure;
  }
  try {
    for (const std::string& line : validate(source.text, source.file).lines()) {
      fmt::print("{}\n", line);
    }
  } catch (const ScriptError& error) {
    // The located message stands alone, so that its caret lines up under the quoted line.
    fmt::print(stderr, "{}\n", error.what());
    return kExitFailure;
  }
  return kExitSuccess;
}

}  // namespace

Command addValidateCommand(CLI::App& app) {
  auto file = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand(
      "validate",
      "Check a .brim script or a .tape file without running it: errors, warnings and a "
      "summary");
  command->add_option("file", *file, "The script to check, or - for standard input")
      ->check(scriptFileValue())
      ->required();
  return {command, [file] { return runValidate(*file); }};
}

}  // namespace brimble::cli
