#include "BrimbleCore/MCP/MCPRequest.h"

#include <limits>

#include <nlohmann/json.hpp>

namespace brimble {
namespace {

std::string requiredString(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) {
    throw JSONCodingError::typeMismatch(std::string("MCPRequest needs a string '") + key + "'");
  }
  return found->get<std::string>();
}

}  // namespace

RequestID RequestID::fromJSON(const nlohmann::json& json) {
  if (json.is_string()) {
    return json.get<std::string>();
  }
  if (json.is_number_integer() && !json.is_number_unsigned()) {
    return json.get<std::int64_t>();
  }
  if (json.is_number_unsigned() &&
      json.get<std::uint64_t>() <=
          static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    return static_cast<std::int64_t>(json.get<std::uint64_t>());
  }
  throw JSONCodingError::typeMismatch("RequestID must be string or integer");
}

nlohmann::json RequestID::toJSON() const {
  if (const std::string* text = stringValue()) {
    return *text;
  }
  return std::get<std::int64_t>(value_);
}

std::optional<std::int64_t> RequestID::integerValue() const noexcept {
  if (const std::int64_t* number = std::get_if<std::int64_t>(&value_)) {
    return *number;
  }
  return std::nullopt;
}

MCPRequest MCPRequest::decode(std::string_view text) {
  const nlohmann::json json = JSONValue::parseJSON(text);
  if (!json.is_object()) {
    throw JSONCodingError::typeMismatch("MCPRequest must be a JSON object");
  }
  MCPRequest request;
  request.jsonrpc = requiredString(json, "jsonrpc");
  request.method = requiredString(json, "method");
  if (const auto id = json.find("id"); id != json.end() && !id->is_null()) {
    request.id = RequestID::fromJSON(*id);
  }
  if (const auto params = json.find("params"); params != json.end() && !params->is_null()) {
    request.params = JSONValue::fromJSON(*params);
  }
  return request;
}

}  // namespace brimble
