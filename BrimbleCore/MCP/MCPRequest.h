#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <nlohmann/json_fwd.hpp>

#include "BrimbleCore/MCP/JSONValue.h"

namespace brimble {

/// A JSON-RPC id: a string or a 64-bit signed integer, echoed in the response exactly as the
/// client sent it. Equal when of the same case and value. A plain value.
class RequestID {
 public:
  RequestID(std::string text) : value_(std::move(text)) {}
  RequestID(const char* text) : value_(std::string(text)) {}
  RequestID(std::int64_t number) : value_(number) {}
  RequestID(int number) : value_(std::int64_t{number}) {}

  /// Throws JSONCodingError::typeMismatch "RequestID must be string or integer" for anything
  /// else: 1.5, 1.0, true, an array, a number beyond the 64-bit signed range.
  static RequestID fromJSON(const nlohmann::json& json);
  nlohmann::json toJSON() const;

  const std::string* stringValue() const noexcept { return std::get_if<std::string>(&value_); }
  std::optional<std::int64_t> integerValue() const noexcept;

  friend bool operator==(const RequestID&, const RequestID&) = default;

 private:
  std::variant<std::string, std::int64_t> value_;
};

/// One JSON-RPC message from the client. Without an `id` it is a notification, which is never
/// answered. A plain value.
struct MCPRequest {
  std::string jsonrpc;
  std::optional<RequestID> id;
  std::string method;
  std::optional<JSONValue> params;

  bool isNotification() const noexcept { return !id.has_value(); }

  /// Decodes one line of JSON text. A member that is null counts as absent. Throws
  /// JSONCodingError: invalidJSON and nestingTooDeep for the text, typeMismatch for a value that
  /// is not an object with string `jsonrpc` and `method` or has a bad id.
  static MCPRequest decode(std::string_view text);
};

}  // namespace brimble
