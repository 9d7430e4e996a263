#pragma once

#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "BrimbleCore/Automation/CDPTransport.h"

namespace brimble {

/// The DevTools WebSocket (RFC 6455, Boost.Beast) to a browser on this machine. One thread of its
/// own runs the socket: it reads continuously and writes what `send` queues, in order.
class WebSocketCDPTransport final : public CDPTransport {
 public:
  /// Connects to a "ws://127.0.0.1:PORT/devtools/page/ID" URL. Throws CDPError::connectionClosed
  /// when the handshake fails.
  explicit WebSocketCDPTransport(const std::string& url);
  WebSocketCDPTransport(const WebSocketCDPTransport&) = delete;
  WebSocketCDPTransport& operator=(const WebSocketCDPTransport&) = delete;
  ~WebSocketCDPTransport() override;

  void start(Receiver receiver) override;
  void send(std::string message) override;
  void close() override;

 private:
  struct State;
  std::shared_ptr<State> state_;
  std::thread thread_;  // runs the socket; joined by the destructor
};

/// The body of an HTTP GET of `path` from 127.0.0.1:`port`; no value when nothing answers.
std::optional<std::string> loopbackHTTPGet(int port, const std::string& path);

}  // namespace brimble
