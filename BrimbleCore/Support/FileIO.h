#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace brimble {

/// Writes all of `bytes` at `offset` with pwrite(2), retrying short writes and EINTR.
/// Throws std::system_error naming `path` on failure.
void writeAllAt(int fd, std::span<const std::uint8_t> bytes, std::uint64_t offset,
                const std::filesystem::path& path);

/// Reads up to `bytes.size()` bytes at `offset` with pread(2), stopping early only at end of
/// file. Returns the number read. Throws std::system_error naming `path` on failure.
std::size_t readAt(int fd, std::span<std::uint8_t> bytes, std::uint64_t offset,
                   const std::filesystem::path& path);

/// The directory for temporary files: $TMPDIR when set and not empty, else /tmp.
std::filesystem::path temporaryDirectory();

/// A fresh random (version 4) UUID in canonical upper-case form.
std::string makeUUIDString();

}  // namespace brimble
