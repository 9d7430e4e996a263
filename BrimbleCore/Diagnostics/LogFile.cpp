#include "BrimbleCore/Diagnostics/LogFile.h"

#include <cerrno>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "BrimbleCore/Support/SystemError.h"
#include "BrimbleCore/Support/UserFolders.h"

namespace brimble {
namespace {

constexpr std::size_t kMaxLogLineBytes = 8192;

// Held for one append: flock(2) orders processes, and its descriptor is shared by this
// process's threads, which the file mutex orders.
class FileLock {
 public:
  explicit FileLock(int fd) : fd_(fd) {
    while (::flock(fd_, LOCK_EX) != 0) {
      if (errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "lock the log");
      }
    }
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  ~FileLock() { ::flock(fd_, LOCK_UN); }

 private:
  int fd_;
};

UniqueFd openForAppending(const std::filesystem::path& path) {
  UniqueFd fd(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
  if (!fd) {
    throw systemError(errno, "open the log", path);
  }
  return fd;
}

void appendWhole(int fd, std::string_view bytes, const std::filesystem::path& path) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw systemError(errno, "write the log", path);
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

LogFile::LogFile(std::filesystem::path folder, std::string name, Limits limits)
    : folder_(std::move(folder)), name_(std::move(name)), limits_(limits) {}

void LogFile::append(std::string_view line) {
  std::string text(line.substr(0, kMaxLogLineBytes));
  text += '\n';
  std::scoped_lock guard(fileMutex_);
  if (!lock_) {
    openFiles();
  }
  FileLock lock(lock_.get());
  reopenIfReplaced();
  struct stat status {};
  if (::fstat(file_.get(), &status) != 0) {
    throw systemError(errno, "inspect the log", path());
  }
  if (status.st_size > 0 &&
      static_cast<std::uint64_t>(status.st_size) + text.size() > limits_.maxBytes) {
    rotate();
  }
  // One write(2) under the lock: an O_APPEND write lands whole at the end.
  appendWhole(file_.get(), text, path());
}

void LogFile::openFiles() {
  try {
    userFolders::createPrivate(folder_);
  } catch (const std::system_error& error) {
    throw systemError(error.code().value(), "create the log folder", folder_);
  }
  const std::filesystem::path lockPath = folder_ / ("." + name_ + ".lock");
  UniqueFd lock(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock) {
    throw systemError(errno, "open the log's lock", lockPath);
  }
  file_ = openForAppending(path());
  lock_ = std::move(lock);
}

// Another process may have rotated the file since this one opened it: lines go to the file
// that now has the name, not to the renamed one.
void LogFile::reopenIfReplaced() {
  struct stat named {};
  struct stat open {};
  if (::stat(path().c_str(), &named) == 0 && ::fstat(file_.get(), &open) == 0 &&
      named.st_ino == open.st_ino && named.st_dev == open.st_dev) {
    return;
  }
  file_ = openForAppending(path());
}

void LogFile::rotate() {
  const std::filesystem::path current = path();
  const auto old = [&](int number) { return folder_ / (name_ + ".log." + std::to_string(number)); };
  if (limits_.keptOldFiles <= 0) {
    ::unlink(current.c_str());
  } else {
    for (int number = limits_.keptOldFiles - 1; number >= 1; --number) {
      ::rename(old(number).c_str(), old(number + 1).c_str());
    }
    if (::rename(current.c_str(), old(1).c_str()) != 0) {
      throw systemError(errno, "rotate the log", current);
    }
  }
  file_ = openForAppending(current);
}

}  // namespace brimble
