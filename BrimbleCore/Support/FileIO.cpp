#include "BrimbleCore/Support/FileIO.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>

#include <sys/random.h>
#include <unistd.h>

#include "BrimbleCore/Support/SystemError.h"

namespace brimble {

void writeAllAt(int fd, std::span<const std::uint8_t> bytes, std::uint64_t offset,
                const std::filesystem::path& path) {
  while (!bytes.empty()) {
    const ssize_t written = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw systemError(errno, "write", path);
    }
    bytes = bytes.subspan(static_cast<std::size_t>(written));
    offset += static_cast<std::uint64_t>(written);
  }
}

std::size_t readAt(int fd, std::span<std::uint8_t> bytes, std::uint64_t offset,
                   const std::filesystem::path& path) {
  std::size_t total = 0;
  while (total < bytes.size()) {
    const ssize_t got =
        ::pread(fd, bytes.data() + total, bytes.size() - total, static_cast<off_t>(offset + total));
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw systemError(errno, "read", path);
    }
    if (got == 0) {
      break;
    }
    total += static_cast<std::size_t>(got);
  }
  return total;
}

std::filesystem::path temporaryDirectory() {
  const char* tmpdir = std::getenv("TMPDIR");
  if (tmpdir != nullptr && *tmpdir != '\0') {
    return tmpdir;
  }
  return "/tmp";
}

std::string makeUUIDString() {
  // Every name takes its bits from the kernel: a generator seeded from 32 bits could only ever
  // produce 2^32 different names, so two processes or threads could pick the same one.
  std::array<std::uint8_t, 16> bytes{};
  for (std::size_t filled = 0; filled < bytes.size();) {
    const ssize_t got = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw systemError(errno, "could not get random bytes for", "a UUID");
    }
    filled += static_cast<std::size_t>(got);
  }
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) {
      text += '-';
    }
    text += kHex[bytes[i] >> 4];
    text += kHex[bytes[i] & 0x0F];
  }
  return text;
}

}  // namespace brimble
