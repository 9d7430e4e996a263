#include "cli/CommandDesktop.h"

#include <stdexcept>

#include <fmt/format.h>

#include "BrimbleCore/Platform/PlatformBackend.h"

namespace brimble::cli {

std::unique_ptr<Desktop> commandDesktop(bool headless) {
  if (headless) {
    return platform::openDesktop(platform::DesktopChoice::embedded);
  }
  try {
    return platform::openDesktop(platform::DesktopChoice::user);
  } catch (const DesktopError& error) {
    throw std::runtime_error(fmt::format("{}: {}, or give --headless to use Brimble's own display",
                                         error.what(), platform::texts().sessionAdvice));
  }
}

std::unique_ptr<Desktop> scriptDesktop(bool headless) {
  return platform::openDesktop(headless ? platform::DesktopChoice::embedded
                                        : platform::DesktopChoice::script);
}

std::unique_ptr<Desktop> lastingDesktop() {
  try {
    return platform::openDesktop(platform::DesktopChoice::user);
  } catch (const DesktopError& error) {
    throw std::runtime_error(fmt::format(
        "{}, and a display started for this one command would vanish with it. Start a display "
        "that stays with `eval \"$(brimble display start)\"` (and stop it later with `brimble "
        "display stop`), or {}.",
        error.what(), platform::texts().sessionAdvice));
  }
}

}  // namespace brimble::cli
