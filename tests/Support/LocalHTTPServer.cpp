#include "tests/Support/LocalHTTPServer.h"

#include <chrono>
#include <regex>
#include <stdexcept>

#include <netinet/in.h>
#include <sys/socket.h>

#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble::testing {

LocalHTTPServer::LocalHTTPServer(const std::filesystem::path& folder) {
  server_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{"python3", "-u", "-m", "http.server", "--bind", "127.0.0.1",
                               "--directory", folder.string(), "0"});
  // "Serving HTTP on 127.0.0.1 port 40123 (http://127.0.0.1:40123/) ..."
  const auto line = server_->readLine(std::chrono::seconds(10));
  std::smatch port;
  if (!line || !std::regex_search(*line, port, std::regex(R"(port (\d+))"))) {
    throw std::runtime_error("the test HTTP server did not start: " + line.value_or("") +
                             server_->errorOutput());
  }
  port_ = std::stoi(port[1]);
}

std::string LocalHTTPServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + "/" + path;
}

std::string closedPortURL() {
  // A port the system just handed out and took back: nothing listens on it.
  UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    throw std::runtime_error("cannot find a free port");
  }
  return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/feed.json";
}

}  // namespace brimble::testing
