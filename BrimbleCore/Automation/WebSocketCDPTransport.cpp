#include "BrimbleCore/Automation/WebSocketCDPTransport.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <regex>
#include <thread>

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include "BrimbleCore/Automation/CDPError.h"

namespace brimble {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
namespace net = boost::asio;
using tcp = net::ip::tcp;

}  // namespace

/// Everything the socket's thread touches. Handlers keep it alive while they are pending.
struct WebSocketCDPTransport::State : std::enable_shared_from_this<State> {
  net::io_context io;
  websocket::stream<tcp::socket> socket{io};
  beast::flat_buffer buffer;
  Receiver receiver;
  std::atomic<bool> closed = false;
  // Touched only on the socket's thread:
  std::deque<std::string> outbox;
  bool finished = false;

  void readNext() {
    socket.async_read(buffer, [self = shared_from_this()](beast::error_code error, std::size_t) {
      if (error) {
        self->finish();
        return;
      }
      std::string text = beast::buffers_to_string(self->buffer.data());
      self->buffer.consume(self->buffer.size());
      self->receiver(std::move(text));
      self->readNext();
    });
  }

  void writeNext() {
    socket.async_write(net::buffer(outbox.front()),
                       [self = shared_from_this()](beast::error_code error, std::size_t) {
                         if (error) {
                           self->finish();
                           return;
                         }
                         self->outbox.pop_front();
                         if (!self->outbox.empty()) {
                           self->writeNext();
                         }
                       });
  }

  void finish() {
    if (finished) {
      return;
    }
    finished = true;
    closed = true;
    outbox.clear();
    beast::error_code ignored;
    socket.next_layer().close(ignored);
    if (receiver) {
      receiver(std::nullopt);
    }
  }
};

WebSocketCDPTransport::WebSocketCDPTransport(const std::string& url)
    : state_(std::make_shared<State>()) {
  static const std::regex kURL(R"(ws://([^/:]+):(\d+)(/.*))");
  std::smatch parts;
  if (!std::regex_match(url, parts, kURL)) {
    throw CDPError::connectionClosed();
  }
  try {
    tcp::resolver resolver(state_->io);
    net::connect(state_->socket.next_layer(), resolver.resolve(parts[1].str(), parts[2].str()));
    // DevTools messages (a page's whole DOM, screenshots) can be large.
    state_->socket.read_message_max(256 * 1024 * 1024);
    state_->socket.handshake(parts[1].str() + ":" + parts[2].str(), parts[3].str());
  } catch (const std::exception&) {
    throw CDPError::connectionClosed();
  }
}

WebSocketCDPTransport::~WebSocketCDPTransport() {
  close();
  if (thread_.joinable()) {
    thread_.join();
  }
  // The thread ends by itself once the socket has died; whatever was posted after that (the
  // close, late sends) holds the state that owns the io_context, so run it here or it leaks.
  state_->io.restart();
  state_->io.run();
}

void WebSocketCDPTransport::start(Receiver receiver) {
  state_->receiver = std::move(receiver);
  net::post(state_->io, [state = state_] { state->readNext(); });
  thread_ = std::thread([state = state_] { state->io.run(); });
}

void WebSocketCDPTransport::send(std::string message) {
  if (state_->closed) {
    throw CDPError::connectionClosed();
  }
  net::post(state_->io, [state = state_, message = std::move(message)]() mutable {
    if (state->finished) {
      return;
    }
    state->outbox.push_back(std::move(message));
    if (state->outbox.size() == 1) {
      state->writeNext();
    }
  });
}

void WebSocketCDPTransport::close() {
  state_->closed = true;
  net::post(state_->io, [state = state_] { state->finish(); });
}

std::optional<std::string> loopbackHTTPGet(int port, const std::string& path) {
  try {
    net::io_context io;
    beast::tcp_stream stream(io);
    stream.expires_after(std::chrono::seconds(2));
    stream.connect(
        tcp::endpoint(net::ip::make_address("127.0.0.1"), static_cast<unsigned short>(port)));
    http::request<http::empty_body> request(http::verb::get, path, 11);
    request.set(http::field::host, "127.0.0.1:" + std::to_string(port));
    http::write(stream, request);
    beast::flat_buffer buffer;
    http::response<http::string_body> response;
    http::read(stream, buffer, response);
    beast::error_code ignored;
    stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
    if (response.result() != http::status::ok) {
      return std::nullopt;
    }
    return response.body();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace brimble
