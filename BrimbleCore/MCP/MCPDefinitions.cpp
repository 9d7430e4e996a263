#include "BrimbleCore/MCP/MCPDefinitions.h"

namespace brimble {

JSONValue MCPToolDefinition::toJSONValue() const {
  return JSONValue::Object{
      {"name", name}, {"description", description}, {"inputSchema", inputSchema}};
}

JSONValue MCPResourceDefinition::toJSONValue() const {
  return JSONValue::Object{
      {"uri", uri}, {"name", name}, {"description", description}, {"mimeType", mimeType}};
}

JSONValue MCPServerCapabilities::toJSONValue() const {
  JSONValue::Object members;
  if (tools) {
    members.emplace("tools", JSONValue::Object{});
  }
  if (resources) {
    members.emplace("resources", JSONValue::Object{});
  }
  return members;
}

}  // namespace brimble
