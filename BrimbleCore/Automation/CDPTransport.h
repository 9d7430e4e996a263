#pragma once

#include <functional>
#include <optional>
#include <string>

namespace brimble {

/// A message channel to a browser's DevTools endpoint (a WebSocket in the product, an in-memory
/// pair in tests). Thread-safe.
class CDPTransport {
 public:
  /// Called with each text message received, in order, on the transport's own thread; then once
  /// with no value when the connection has closed (from either side).
  using Receiver = std::function<void(std::optional<std::string> message)>;

  virtual ~CDPTransport() = default;

  /// Starts delivering messages to `receiver`. Called once.
  virtual void start(Receiver receiver) = 0;
  /// Sends one text message. Throws CDPError::connectionClosed once the connection is closed.
  virtual void send(std::string message) = 0;
  /// Closes the connection; the receiver then gets its final call.
  virtual void close() = 0;
};

}  // namespace brimble
