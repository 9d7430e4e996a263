#pragma once

#include <cstdio>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace brimble::cli {

/// A failure already explained to the user: unwinds a command to where it returns its exit code.
struct CommandFailure {
  int exitCode;
};

/// Says "brimble COMMAND: MESSAGE" on stderr and ends the command with `exitCode`.
template <typename... Args>
[[noreturn]] void failCommand(std::string_view command, int exitCode,
                              fmt::format_string<Args...> format, Args&&... args) {
  fmt::print(stderr, "brimble {}: {}\n", command, fmt::format(format, std::forward<Args>(args)...));
  throw CommandFailure{exitCode};
}

}  // namespace brimble::cli
