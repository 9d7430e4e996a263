#include "BrimbleCore/Scripting/PartialOutput.h"

#include <cerrno>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "BrimbleCore/Support/SystemError.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;

// Enough for every failed run of a busy afternoon; past it the folder is not worth searching.
constexpr int kMostNumbered = 999;

fs::path partialName(const fs::path& asked, int number) {
  std::string name = asked.stem().string() + ".partial";
  if (number > 1) {
    name += "-" + std::to_string(number);
  }
  return asked.parent_path() / (name + asked.extension().string());
}

/// The first name in `folder` that could be created, or the error that stopped the search.
std::optional<fs::path> reserveIn(const fs::path& folder, const fs::path& asked, int& error) {
  const fs::path base = folder / asked.filename();
  for (int number = 1; number <= kMostNumbered; ++number) {
    const fs::path candidate = partialName(base, number);
    // O_EXCL: created here and now, so nothing that was there is replaced.
    const UniqueFd file(
        ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (file) {
      return candidate;
    }
    if (errno != EEXIST) {
      error = errno;
      return std::nullopt;
    }
  }
  error = EEXIST;
  return std::nullopt;
}

}  // namespace

PartialOutput PartialOutput::reserve(const fs::path& asked) {
  int error = 0;
  const fs::path folder = asked.has_parent_path() ? asked.parent_path() : fs::path(".");
  if (auto beside = reserveIn(folder, asked, error)) {
    return PartialOutput(asked.has_parent_path() ? *beside : beside->filename());
  }
  std::error_code noTemporary;
  const fs::path temporary = fs::temp_directory_path(noTemporary);
  if (!noTemporary) {
    if (auto there = reserveIn(temporary, asked, error)) {
      return PartialOutput(*there);
    }
  }
  throw systemError(error, "could not keep what was recorded in", temporary);
}

PartialOutput::PartialOutput(PartialOutput&& other) noexcept
    : path_(std::move(other.path_)), kept_(std::exchange(other.kept_, true)) {}

PartialOutput::~PartialOutput() {
  if (!kept_) {
    ::unlink(path_.c_str());
  }
}

}  // namespace brimble
