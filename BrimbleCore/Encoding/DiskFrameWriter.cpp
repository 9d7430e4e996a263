#include "BrimbleCore/Encoding/DiskFrameWriter.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "BrimbleCore/Support/FileIO.h"
#include "BrimbleCore/Support/Log.h"
#include "BrimbleCore/Support/SystemError.h"

namespace brimble {

DiskFrameWriter::DiskFrameWriter(const std::filesystem::path& directory)
    : fileURL_((directory.empty() ? temporaryDirectory() : directory) /
               (std::string(kFilePrefix) + makeUUIDString())) {
  // O_EXCL: a fresh UUID never names an existing file, so a clash means something is wrong.
  fileHandle_.reset(::open(fileURL_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!fileHandle_) {
    throw CompressedFrameStoreError::writerUnavailable(fileURL_);
  }
  // Held until the file is closed: the sweep of orphaned files leaves a locked file alone.
  if (::flock(fileHandle_.get(), LOCK_SH) != 0) {
    const int lockError = errno;
    fileHandle_.close();
    ::unlink(fileURL_.c_str());
    throw systemError(lockError, "lock", fileURL_);
  }
}

DiskFrameWriter::~DiskFrameWriter() {
  bool ownsFile = false;
  {
    std::scoped_lock lock(indexMutex_);
    ownsFile = !handedOver_;
  }
  if (ownsFile) {
    discard();
  }
}

int DiskFrameWriter::count() const {
  std::scoped_lock lock(indexMutex_);
  return static_cast<int>(offsets_.size());
}

void DiskFrameWriter::append(std::span<const std::uint8_t> data) {
  std::scoped_lock lock(indexMutex_);
  if (!fileHandle_) {
    // The handle is gone after finalize or discard; report it the way the OS would.
    throw systemError(EBADF, "write", fileURL_);
  }
  writeAllAt(fileHandle_.get(), data, currentOffset_, fileURL_);
  if (data.size() > UINT64_MAX - currentOffset_) {
    std::abort();  // a frame file cannot outgrow 64-bit offsets; continuing would corrupt it
  }
  offsets_.push_back({currentOffset_, data.size()});
  currentOffset_ += data.size();
}

std::unique_ptr<CompressedFrameStore> DiskFrameWriter::finalize() {
  std::vector<FrameExtent> offsets;
  bool wasClosed = false;
  UniqueFd handle;
  {
    std::scoped_lock lock(indexMutex_);
    offsets = offsets_;
    wasClosed = isClosed_;
    isClosed_ = true;
    handedOver_ = true;
    handle = std::move(fileHandle_);
  }
  // The store locks the file before the writer lets go of it, so no sweep finds it unlocked.
  auto store = std::make_unique<DiskFrameStore>(fileURL_, std::move(offsets));
  if (!wasClosed) {
    if (const int error = handle.close(); error != 0) {
      throw systemError(error, "close", fileURL_);
    }
  }
  return store;
}

void DiskFrameWriter::discard() noexcept {
  UniqueFd handle;
  {
    std::scoped_lock lock(indexMutex_);
    isClosed_ = true;
    handle = std::move(fileHandle_);
  }
  handle.close();
  std::error_code ignored;
  std::filesystem::remove(fileURL_, ignored);
}

namespace {

// Whether `link` is `path` itself or, for a folder, lies inside it.
bool refersToPath(std::string_view link, const std::string& path, bool folder) {
  if (link == path) {
    return true;
  }
  return folder && link.size() > path.size() && link.starts_with(path) && link[path.size()] == '/';
}

// Whether a running process has `path` (for a folder, anything inside it) open or as its
// working directory, or names it in its environment: the programs of an embedded display keep
// their private folders in TMPDIR and XDG_RUNTIME_DIR without holding a file there. Without a
// readable /proc nothing can be told, and everything counts as held.
bool heldByARunningProcess(const std::filesystem::path& path, bool folder) {
  std::error_code error;
  std::filesystem::directory_iterator processes("/proc", error);
  if (error || !std::filesystem::exists("/proc/self/fd", error)) {
    return true;
  }
  const std::string target = path.lexically_normal().string();
  for (const std::filesystem::directory_entry& process : processes) {
    const std::string pid = process.path().filename().string();
    if (pid.empty() ||
        !std::all_of(pid.begin(), pid.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      continue;
    }
    std::error_code ignored;
    if (refersToPath(std::filesystem::read_symlink(process.path() / "cwd", ignored).string(),
                     target, folder)) {
      return true;
    }
    for (std::filesystem::directory_iterator fds(process.path() / "fd", ignored), end;
         !ignored && fds != end; fds.increment(ignored)) {
      std::error_code linkError;
      if (refersToPath(std::filesystem::read_symlink(fds->path(), linkError).string(), target,
                       folder)) {
        return true;
      }
    }
    if (!folder) {
      continue;
    }
    std::ifstream environment(process.path() / "environ", std::ios::binary);
    for (std::string variable; std::getline(environment, variable, '\0');) {
      const auto equals = variable.find('=');
      if (equals != std::string::npos &&
          refersToPath(std::string_view(variable).substr(equals + 1), target, folder)) {
        return true;
      }
    }
  }
  return false;
}

// A frame file's writer and store hold a shared lock on it for as long as they live, so an
// exclusive lock is granted only when no process uses the file any more (a crash releases it).
bool removeFrameFileUnlessLocked(const std::filesystem::path& file) {
  UniqueFd handle(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!handle || ::flock(handle.get(), LOCK_EX | LOCK_NB) != 0) {
    return false;
  }
  return ::unlink(file.c_str()) == 0;
}

// Atomic writes name their temporaries ".<target>.brimble-XXXXXX" beside the target.
bool isAtomicWriteTemporary(const std::string& name) {
  const auto marker = name.rfind(".brimble-");
  return name.starts_with('.') && marker != std::string::npos && marker > 1 &&
         name.size() - marker == std::string_view(".brimble-XXXXXX").size();
}

}  // namespace

void DiskFrameWriter::sweepOrphans(const std::filesystem::path& directory, double age) {
  namespace fs = std::filesystem;
  const auto cutoff =
      fs::file_time_type::clock::now() -
      std::chrono::duration_cast<fs::file_time_type::duration>(std::chrono::duration<double>(age));
  int frameFiles = 0;
  int displayFolders = 0;
  int temporaries = 0;
  std::error_code error;
  fs::directory_iterator entries(directory, error);
  if (error) {
    return;
  }
  for (const fs::directory_entry& entry : entries) {
    const std::string name = entry.path().filename().string();
    const bool frameFile = name.starts_with(kFilePrefix);
    const bool displayFolder = name.starts_with(kDisplayFolderPrefix);
    const bool temporary = isAtomicWriteTemporary(name);
    if (!frameFile && !displayFolder && !temporary) {
      continue;
    }
    std::error_code entryError;
    const auto modified = entry.last_write_time(entryError);
    if (entryError || modified >= cutoff) {
      continue;
    }
    if (frameFile) {
      if (entry.is_regular_file(entryError) && removeFrameFileUnlessLocked(entry.path())) {
        ++frameFiles;
      }
    } else if (displayFolder) {
      if (entry.is_directory(entryError) && !entry.is_symlink(entryError) &&
          !heldByARunningProcess(entry.path(), true) &&
          fs::remove_all(entry.path(), entryError) > 0 && !entryError) {
        ++displayFolders;
      }
    } else if (entry.is_regular_file(entryError) && !entry.is_symlink(entryError) &&
               entry.file_size(entryError) == 0 && !entryError &&
               !heldByARunningProcess(entry.path(), false) &&
               fs::remove(entry.path(), entryError)) {
      ++temporaries;
    }
  }
  if (frameFiles > 0) {
    logLine("Brimble: swept " + std::to_string(frameFiles) +
            " orphaned frame-store file(s) from a prior session");
  }
  if (displayFolders > 0 || temporaries > 0) {
    logLine("Brimble: swept " + std::to_string(displayFolders) + " display folder(s) and " +
            std::to_string(temporaries) + " empty temporary file(s) left by runs that ended early");
  }
}

}  // namespace brimble
