#pragma once

#include <filesystem>

namespace brimble {

/// The file that keeps what a failed script had recorded: beside the output it asked for, named
/// so that it says it is partial ("demo.gif" becomes "demo.partial.gif", then
/// "demo.partial-2.gif" and so on), or in the temporary directory when that folder cannot take
/// it (it was deleted, or is not writable). The name is reserved by creating the file empty, so
/// no file of the user's is ever replaced; unless `keep` is called, the reservation is removed
/// again. One thread at a time.
class PartialOutput {
 public:
  /// Reserves the first free name beside `asked`, else in the temporary directory. Throws
  /// std::system_error naming the temporary directory when neither place takes a file.
  static PartialOutput reserve(const std::filesystem::path& asked);

  PartialOutput(PartialOutput&& other) noexcept;
  PartialOutput& operator=(PartialOutput&&) = delete;
  PartialOutput(const PartialOutput&) = delete;
  PartialOutput& operator=(const PartialOutput&) = delete;
  ~PartialOutput();

  const std::filesystem::path& path() const noexcept { return path_; }
  /// The file now holds what was recorded: it stays.
  void keep() noexcept { kept_ = true; }

 private:
  explicit PartialOutput(std::filesystem::path path) : path_(std::move(path)) {}

  std::filesystem::path path_;
  bool kept_ = false;
};

}  // namespace brimble
