#include "cli/ValidateCommand.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptValidation.h"
#include "BrimbleCore/Support/SystemError.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble::cli {
namespace {

std::string readAll(int fd, const std::string& name) {
  std::string text;
  char buffer[64 * 1024];
  for (;;) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got == 0) {
      return text;
    }
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw systemError(errno, "read", name);
    }
    text.append(buffer, static_cast<std::size_t>(got));
  }
}

std::string readScript(const std::string& file) {
  if (file == "-") {
    return readAll(STDIN_FILENO, "standard input");
  }
  UniqueFd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) {
    if (errno == ENOENT) {
      throw ScriptError::fileNotFound(file);
    }
    throw systemError(errno, "open", file);
  }
  return readAll(fd.get(), file);
}

int runValidate(const std::string& file) {
  std::string source;
  try {
    source = readScript(file);
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimble validate: {}\n", error.what());
    return kExitFailure;
  }
  try {
    for (const std::string& line : validate(source).lines()) {
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
      "validate", "Check a .brim script without running it: errors, warnings and a summary");
  command->add_option("file", *file, "The script to check, or - for standard input")->required();
  return {command, [file] { return runValidate(*file); }};
}

}  // namespace brimble::cli
