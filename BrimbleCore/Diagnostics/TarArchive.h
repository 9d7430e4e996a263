#pragma once

#include <ctime>
#include <string>
#include <string_view>

namespace brimble {

/// A gzip-compressed tar archive of a few small files, built in memory: what a user attaches to
/// a problem report, readable by any tar on any system. One thread at a time.
class TarArchive {
 public:
  /// Adds a regular file, readable by everyone who can read the archive. `name` is a relative
  /// path of 1 to 99 bytes (the plain tar header's room); throws std::invalid_argument
  /// otherwise.
  void add(std::string_view name, std::string_view contents, std::time_t modified);

  /// The archive with its end marker, gzip-compressed.
  std::string gzipped() const;

 private:
  std::string tar_;
};

}  // namespace brimble
