#include "BrimbleCore/Support/AtomicFile.h"

#include <cerrno>
#include <fstream>
#include <optional>
#include <span>
#include <string>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/SystemError.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {
namespace {

// umask(2) can only be read by setting it, which races with other threads; the kernel also
// reports it in /proc/self/status.
mode_t currentUmask() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("Umask:")) {
      return static_cast<mode_t>(std::stoul(line.substr(6), nullptr, 8));
    }
  }
  return 022;
}

std::filesystem::path followLinks(const std::filesystem::path& path) {
  std::error_code error;
  if (!std::filesystem::is_symlink(std::filesystem::symlink_status(path, error))) {
    return path;
  }
  const std::filesystem::path target = std::filesystem::weakly_canonical(path, error);
  return error ? path : target;
}

}  // namespace

void writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         mode_t newFileMode) {
  const std::filesystem::path target = followLinks(path);
  std::optional<struct stat> existing;
  struct stat info {};
  if (::stat(target.c_str(), &info) == 0) {
    existing = info;
  } else if (errno != ENOENT) {
    throw systemError(errno, "could not inspect", target);
  }

  // Appended piece by piece: GCC 12 at -O3 warns falsely (-Wrestrict) on `"." + name + ...`.
  std::string name = ".";
  name += target.filename().string();
  name += ".brimble-XXXXXX";
  std::string pattern = (target.parent_path() / name).string();
  UniqueFd file(::mkostemp(pattern.data(), O_CLOEXEC));
  if (!file) {
    throw systemError(errno, "could not create a temporary file beside", target);
  }
  const std::filesystem::path temporary = pattern;
  try {
    writeAllAt(file.get(),
               std::span(reinterpret_cast<const std::uint8_t*>(contents.data()), contents.size()),
               0, temporary);
    const mode_t mode = existing ? (existing->st_mode & 07777) : (newFileMode & ~currentUmask());
    if (::fchmod(file.get(), mode) != 0) {
      throw systemError(errno, "could not set the mode of", temporary);
    }
    if (existing && (existing->st_uid != ::geteuid() || existing->st_gid != ::getegid())) {
      // Only root may give a file away; anyone else keeps the file as their own.
      [[maybe_unused]] const int ignored = ::fchown(file.get(), existing->st_uid, existing->st_gid);
    }
    if (::fsync(file.get()) != 0) {
      throw systemError(errno, "could not flush", temporary);
    }
    if (const int error = file.close(); error != 0) {
      throw systemError(error, "could not write", temporary);
    }
    if (::rename(temporary.c_str(), target.c_str()) != 0) {
      throw systemError(errno, "could not replace", target);
    }
  } catch (...) {
    ::unlink(temporary.c_str());
    throw;
  }
}

}  // namespace brimble
