#include "BrimbleCore/Support/AtomicFile.h"

#include <cerrno>
#include <fstream>
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

AtomicFile::AtomicFile(const std::filesystem::path& path, mode_t newFileMode)
    : target_(followLinks(path)) {
  struct stat existing {};
  if (::stat(target_.c_str(), &existing) == 0) {
    mode_ = existing.st_mode & 07777;
    // Only root may give a file away; anyone else keeps the file as their own.
    restoreOwner_ = existing.st_uid != ::geteuid() || existing.st_gid != ::getegid();
    owner_ = existing.st_uid;
    group_ = existing.st_gid;
  } else if (errno == ENOENT) {
    mode_ = newFileMode & ~currentUmask();
  } else {
    throw systemError(errno, "could not inspect", target_);
  }
  // Appended piece by piece: GCC 12 at -O3 warns falsely (-Wrestrict) on `"." + name + ...`.
  std::string name = ".";
  name += target_.filename().string();
  name += ".brimble-XXXXXX";
  std::string pattern = (target_.parent_path() / name).string();
  file_.reset(::mkostemp(pattern.data(), O_CLOEXEC));
  if (!file_) {
    throw systemError(errno, "could not create a temporary file beside", target_);
  }
  temporary_ = pattern;
}

AtomicFile::~AtomicFile() {
  if (!committed_) {
    file_.close();
    ::unlink(temporary_.c_str());
  }
}

void AtomicFile::commit() {
  if (::fchmod(file_.get(), mode_) != 0) {
    throw systemError(errno, "could not set the mode of", temporary_);
  }
  if (restoreOwner_) {
    [[maybe_unused]] const int ignored = ::fchown(file_.get(), owner_, group_);
  }
  if (::fsync(file_.get()) != 0) {
    throw systemError(errno, "could not flush", temporary_);
  }
  if (const int error = file_.close(); error != 0) {
    throw systemError(error, "could not write", temporary_);
  }
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) {
    throw systemError(errno, "could not replace", target_);
  }
  committed_ = true;
}

void writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         mode_t newFileMode) {
  AtomicFile file(path, newFileMode);
  writeAllAt(file.fd(),
             std::span(reinterpret_cast<const std::uint8_t*>(contents.data()), contents.size()), 0,
             file.temporaryPath());
  file.commit();
}

}  // namespace brimble
