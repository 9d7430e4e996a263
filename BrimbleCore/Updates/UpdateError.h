#pragma once

#include <stdexcept>
#include <string>

namespace brimble {

/// Failures of an update check: the feed could not be fetched, or was not a release feed.
class UpdateError : public std::runtime_error {
 public:
  enum class Code {
    /// No answer: no such host, a refused connection, a timeout, an unsupported address.
    unreachable,
    /// The server answered with an HTTP error status.
    httpStatus,
    /// The answer was larger than any feed.
    tooLarge,
    /// The answer was not a release feed (not JSON, no version, a version that is no number).
    unreadableFeed,
  };

  static UpdateError unreachable(const std::string& url, const std::string& reason);
  static UpdateError httpStatus(const std::string& url, long status);
  static UpdateError tooLarge(const std::string& url, std::size_t limit);
  static UpdateError unreadableFeed(const std::string& url, const std::string& reason);

  Code code() const noexcept { return code_; }

 private:
  UpdateError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}

  Code code_;
};

}  // namespace brimble
