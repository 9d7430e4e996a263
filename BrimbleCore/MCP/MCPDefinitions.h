#pragma once

#include <string>

#include "BrimbleCore/MCP/JSONValue.h"

namespace brimble {

/// A tool as `tools/list` shows it. `inputSchema` is a JSON Schema object:
/// `{"type": "object", "properties": {...}, "required": [...]}`. A plain value.
struct MCPToolDefinition {
  std::string name;
  std::string description;
  JSONValue inputSchema;

  /// Exactly the keys "name", "description", "inputSchema".
  JSONValue toJSONValue() const;
};

/// A resource as `resources/list` shows it. `uri` may be a template ending in a `{name}`
/// placeholder; reads of any URI under the part before the "{" reach its handler. A plain value.
struct MCPResourceDefinition {
  std::string uri;
  std::string name;
  std::string description;
  std::string mimeType;

  /// Exactly the keys "uri", "name", "description", "mimeType".
  JSONValue toJSONValue() const;
};

/// What the server offers, as `initialize` reports it. A plain value.
struct MCPServerCapabilities {
  bool tools = false;
  bool resources = false;

  /// "tools" and "resources", each an empty object, for the flags that are set.
  JSONValue toJSONValue() const;
};

}  // namespace brimble
