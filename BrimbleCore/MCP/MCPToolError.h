#pragma once

#include <stdexcept>
#include <string>

namespace brimble {

/// What a tool handler throws to report a failure the user can act on ("No window matches
/// 'Termnial'."). The server turns it into a tool result with "isError" and `message` as its
/// text; it is not a JSON-RPC error. `what()` is `message`. A plain value.
class MCPToolError : public std::runtime_error {
 public:
  explicit MCPToolError(const std::string& message) : std::runtime_error(message) {}

  std::string message() const { return what(); }
};

}  // namespace brimble
