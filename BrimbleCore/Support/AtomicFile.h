#pragma once

#include <filesystem>
#include <string_view>

#include <sys/types.h>

#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {

/// A file that replaces `path` whole or not at all, so readers see either the old file or the
/// new one, never a mix: the bytes go to a hidden temporary file in the same folder, which
/// `commit` flushes to disk and renames over `path`. An existing file keeps its permission bits
/// (and, best effort, its owner); a new one gets `newFileMode` less the umask. A symbolic link at
/// `path` is followed, so the file it points to is replaced and the link stays. If `commit` is
/// never reached (an error, a cancellation), the temporary file is deleted and `path` is
/// untouched. One thread at a time.
class AtomicFile {
 public:
  /// Creates the empty temporary file. The folder must exist. Throws std::system_error naming
  /// the path when the file cannot be created or an existing `path` cannot be inspected.
  AtomicFile(const std::filesystem::path& path, mode_t newFileMode);
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  /// Deletes the temporary file unless `commit` succeeded.
  ~AtomicFile();

  /// The temporary file, open for writing; it may also be opened again by `temporaryPath`.
  int fd() const noexcept { return file_.get(); }
  const std::filesystem::path& temporaryPath() const noexcept { return temporary_; }

  /// Sets the mode, flushes the data to disk and renames the temporary file over `path`. Throws
  /// std::system_error naming the file; `path` is then untouched and the temporary file is
  /// deleted by the destructor.
  void commit();

 private:
  std::filesystem::path target_;
  std::filesystem::path temporary_;
  mode_t mode_;
  bool restoreOwner_ = false;
  uid_t owner_ = 0;
  gid_t group_ = 0;
  UniqueFd file_;
  bool committed_ = false;
};

/// Replaces the contents of `path` with `contents` through an AtomicFile. Throws
/// std::system_error naming the path; on failure `path` is untouched and no temporary file is
/// left. Thread-safe for different paths.
void writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         mode_t newFileMode);

}  // namespace brimble
