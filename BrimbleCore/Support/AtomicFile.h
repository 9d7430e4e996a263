#pragma once

#include <filesystem>
#include <string_view>

#include <sys/types.h>

namespace brimble {

/// Replaces the contents of `path` with `contents` so that readers see either the old file or
/// the new one, never a mix: the bytes go to a temporary file in the same folder, are flushed to
/// disk, and the temporary file is renamed over `path`. An existing file keeps its permission
/// bits (and, best effort, its owner); a new one gets `newFileMode` less the umask. A symbolic
/// link is followed, so the file it points to is replaced and the link stays. The folder must
/// exist. Throws std::system_error naming the path; on failure `path` is untouched and no
/// temporary file is left. Thread-safe for different paths.
void writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         mode_t newFileMode);

}  // namespace brimble
