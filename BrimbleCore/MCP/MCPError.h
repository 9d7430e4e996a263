#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "BrimbleCore/MCP/JSONValue.h"

namespace brimble {

/// A JSON-RPC 2.0 error: what a response carries instead of a result when a request was malformed
/// or named something unknown. Thrown and caught like any error; `what()` is `message`. A plain
/// value.
class MCPError : public std::runtime_error {
 public:
  /// The JSON-RPC 2.0 predefined codes.
  enum class Code : std::int64_t {
    parseError = -32700,
    invalidRequest = -32600,
    methodNotFound = -32601,
    invalidParams = -32602,
    internalError = -32603,
  };

  MCPError(std::int64_t code, std::string message, std::optional<JSONValue> data = std::nullopt);
  MCPError(Code code, std::string message, std::optional<JSONValue> data = std::nullopt)
      : MCPError(static_cast<std::int64_t>(code), std::move(message), std::move(data)) {}

  static MCPError parseError(std::string message) { return {Code::parseError, std::move(message)}; }
  static MCPError invalidRequest(std::string message) {
    return {Code::invalidRequest, std::move(message)};
  }
  static MCPError methodNotFound(std::string message) {
    return {Code::methodNotFound, std::move(message)};
  }
  static MCPError invalidParams(std::string message) {
    return {Code::invalidParams, std::move(message)};
  }
  static MCPError internalError(std::string message) {
    return {Code::internalError, std::move(message)};
  }

  std::int64_t code() const noexcept { return code_; }
  const std::string& message() const noexcept { return message_; }
  const std::optional<JSONValue>& data() const noexcept { return data_; }

  /// `{"code": ..., "message": ..., "data": ...}`, `data` only when present.
  JSONValue toJSONValue() const;

  friend bool operator==(const MCPError& a, const MCPError& b) {
    return a.code_ == b.code_ && a.message_ == b.message_ && a.data_ == b.data_;
  }

 private:
  std::int64_t code_;
  std::string message_;
  std::optional<JSONValue> data_;
};

}  // namespace brimble
