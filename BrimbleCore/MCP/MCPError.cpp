#include "BrimbleCore/MCP/MCPError.h"

namespace brimble {

MCPError::MCPError(std::int64_t code, std::string message, std::optional<JSONValue> data)
    : std::runtime_error(message),
      code_(code),
      message_(std::move(message)),
      data_(std::move(data)) {}

JSONValue MCPError::toJSONValue() const {
  JSONValue::Object members{{"code", code_}, {"message", message_}};
  if (data_) {
    members.emplace("data", *data_);
  }
  return members;
}

}  // namespace brimble
