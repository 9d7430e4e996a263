#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "tests/Support/ChildProcess.h"

namespace brimble::testing {

/// A real HTTP server on 127.0.0.1 (Python's http.server) serving the files of `folder`, on a
/// port the system picks; stopped when this goes away.
class LocalHTTPServer {
 public:
  /// Throws std::runtime_error when the server does not start within a few seconds.
  explicit LocalHTTPServer(const std::filesystem::path& folder);

  /// "http://127.0.0.1:PORT/" + `path`.
  std::string url(const std::string& path) const;

 private:
  std::unique_ptr<ChildProcess> server_;
  int port_ = 0;
};

/// An address on 127.0.0.1 where nothing listens: connections to it are refused.
std::string closedPortURL();

}  // namespace brimble::testing
