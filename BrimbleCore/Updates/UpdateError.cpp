#include "BrimbleCore/Updates/UpdateError.h"

#include <fmt/format.h>

namespace brimble {

UpdateError UpdateError::unreachable(const std::string& url, const std::string& reason) {
  return {Code::unreachable, fmt::format("Cannot reach the release feed {}: {}", url, reason)};
}

UpdateError UpdateError::httpStatus(const std::string& url, long status) {
  return {Code::httpStatus,
          fmt::format("The release feed {} answered with HTTP status {}", url, status)};
}

UpdateError UpdateError::tooLarge(const std::string& url, std::size_t limit) {
  return {Code::tooLarge, fmt::format("The release feed {} is larger than {} KB, which no feed is",
                                      url, limit / 1024)};
}

UpdateError UpdateError::unreadableFeed(const std::string& url, const std::string& reason) {
  return {Code::unreadableFeed, fmt::format("The release feed {} cannot be read: {}", url, reason)};
}

}  // namespace brimble
