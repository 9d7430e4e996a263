#pragma once

#include <filesystem>

namespace brimble::testing {

/// A fresh directory under the temporary directory, removed with everything in it when the
/// test ends, passed or failed.
class TempDirectory {
 public:
  TempDirectory();
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  ~TempDirectory();

  const std::filesystem::path& path() const noexcept { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace brimble::testing
