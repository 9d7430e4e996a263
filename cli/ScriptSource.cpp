#include "cli/ScriptSource.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptLibrary.h"
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

}  // namespace

ScriptSource readScriptSource(const std::string& argument) {
  if (argument == "-") {
    return {readAll(STDIN_FILENO, "standard input"), {}};
  }
  std::error_code ignored;
  if (argument.find('/') == std::string::npos && !std::filesystem::exists(argument, ignored)) {
    const ScriptLibrary library;
    std::string name = argument;
    const std::string text = library.read(name);
    if (!name.ends_with(".brim")) {
      name += ".brim";
    }
    return {text, library.directory() / name};
  }
  UniqueFd fd(::open(argument.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) {
    if (errno == ENOENT) {
      throw ScriptError::fileNotFound(argument);
    }
    throw systemError(errno, "open", argument);
  }
  return {readAll(fd.get(), argument), argument};
}

}  // namespace brimble::cli
