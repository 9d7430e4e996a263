#include "BrimbleCore/MCP/MCPResponse.h"

#include <nlohmann/json.hpp>

namespace brimble {

std::string MCPResponse::encode() const {
  // nlohmann::json orders object members by key, which gives the sorted form.
  nlohmann::json json = nlohmann::json::object();
  json["jsonrpc"] = jsonrpc;
  if (id) {
    json["id"] = id->toJSON();
  }
  if (result) {
    json["result"] = result->toJSON();
  }
  if (error) {
    json["error"] = error->toJSONValue().toJSON();
  }
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace brimble
