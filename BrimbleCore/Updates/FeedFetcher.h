#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace brimble {

/// How long a feed may take and how large it may be.
struct FeedLimits {
  std::chrono::milliseconds timeout{5000};
  std::size_t maxBytes = 256 * 1024;
};

/// The body of `url` (http or https, following up to five redirects), fetched with libcurl.
/// Nothing else is fetched or written. Throws UpdateError: unreachable (no answer within the
/// timeout, a refused connection, another scheme), httpStatus (400 and above), tooLarge.
/// Thread-safe.
std::string fetchFeed(const std::string& url, const FeedLimits& limits = {});

}  // namespace brimble
