#pragma once

#include <optional>
#include <string>

#include "BrimbleCore/MCP/JSONValue.h"
#include "BrimbleCore/MCP/MCPError.h"
#include "BrimbleCore/MCP/MCPRequest.h"

namespace brimble {

/// One JSON-RPC response: `jsonrpc` "2.0", the request's id when it is known, and exactly one
/// of `result` and `error`. A plain value.
struct MCPResponse {
  static constexpr std::string_view jsonrpc = "2.0";
  std::optional<RequestID> id;
  std::optional<JSONValue> result;
  std::optional<MCPError> error;

  static MCPResponse success(std::optional<RequestID> id, JSONValue result) {
    return {std::move(id), std::move(result), std::nullopt};
  }
  static MCPResponse failure(std::optional<RequestID> id, MCPError error) {
    return {std::move(id), std::nullopt, std::move(error)};
  }

  /// Compact JSON with sorted keys. `id`, `result`, `error` and the error's `data` are written
  /// only when present: a response to a line whose id is unknown has no `id` member at all,
  /// never `"id": null`. Throws JSONCodingError::notEncodable for NaN or infinities.
  std::string encode() const;
};

}  // namespace brimble
