#pragma once

#include <stdexcept>
#include <stop_token>

namespace brimble {

/// Thrown by long operations that noticed their stop token was triggered. Whatever they were
/// writing has been cleaned up by the time it reaches the caller.
class CancellationError : public std::runtime_error {
 public:
  CancellationError() : std::runtime_error("cancelled") {}
};

/// Throws CancellationError when `token` asks to stop.
inline void checkCancellation(const std::stop_token& token) {
  if (token.stop_requested()) {
    throw CancellationError();
  }
}

}  // namespace brimble
