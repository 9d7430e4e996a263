#pragma once

#include <concepts>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "BrimbleCore/MCP/JSONValue.h"
#include "BrimbleCore/MCP/MCPDefinitions.h"
#include "BrimbleCore/MCP/MCPRequest.h"
#include "BrimbleCore/MCP/MCPTransport.h"

namespace brimble {

/// What a tool answers: the structured result, sent first as one JSON text item, and content
/// items to follow it (an `image` the assistant can look at). A plain value.
struct MCPToolResult {
  /// Implicit, so handlers return a JSONValue (or an Object, an Array) as they always did.
  template <typename T>
  requires std::convertible_to<T, JSONValue> MCPToolResult(T&& structured)  // NOLINT
      : value(std::forward<T>(structured)) {}
  MCPToolResult(JSONValue structured, std::vector<JSONValue> extra)
      : value(std::move(structured)), extraContent(std::move(extra)) {}

  JSONValue value;
  /// Content items as the protocol writes them, for example {"type": "image", "data", "mimeType"}.
  std::vector<JSONValue> extraContent;
};

/// Runs a tool: the call's `arguments` in, the structured result out. Throws MCPToolError for a
/// failure the user can act on; any other exception is reported as an internal error.
using MCPToolHandler = std::function<MCPToolResult(const JSONValue& arguments)>;

/// Reads a resource: the requested URI in (under a template, the full URI), its text out.
using MCPResourceHandler = std::function<std::string(const std::string& uri)>;

/// A generic MCP server over an MCPTransport: "initialize", "ping", the tool and resource tables
/// and their list, call and read methods. Requests are served strictly one at a time in arrival
/// order, so handlers never overlap. Thread contract: `run` on one thread; registration and the
/// definition snapshots are thread-safe and may happen while `run` is serving.
class MCPServer {
 public:
  /// The transport must outlive the server.
  MCPServer(MCPTransport& transport, std::string serverName, std::string serverVersion,
            MCPServerCapabilities capabilities = {.tools = true, .resources = true});
  MCPServer(const MCPServer&) = delete;
  MCPServer& operator=(const MCPServer&) = delete;

  /// Inserts the tool, or replaces the one of the same name in its place.
  void registerTool(MCPToolDefinition definition, MCPToolHandler handler);
  /// Inserts the resource, or replaces the one of the same URI in its place.
  void registerResource(MCPResourceDefinition definition, MCPResourceHandler handler);

  /// The registered definitions, in registration order.
  std::vector<MCPToolDefinition> toolDefinitions() const;
  std::vector<MCPResourceDefinition> resourceDefinitions() const;

  /// Serves requests until the input ends or a response cannot be written (the host closed
  /// the output), then returns.
  void run();

  /// Answers one request (a notification gets no answer). `run` calls this for each request;
  /// tests and embedders may call it directly.
  void handle(const MCPRequest& request);

  const std::string& serverName() const noexcept { return serverName_; }
  const std::string& serverVersion() const noexcept { return serverVersion_; }
  const MCPServerCapabilities& capabilities() const noexcept { return capabilities_; }

 private:
  struct ToolEntry {
    MCPToolDefinition definition;
    MCPToolHandler handler;
  };
  struct ResourceEntry {
    MCPResourceDefinition definition;
    MCPResourceHandler handler;
  };

  JSONValue initializeResult() const;
  JSONValue callTool(const JSONValue& params);
  JSONValue readResource(const JSONValue& params);
  std::optional<MCPToolHandler> findTool(const std::string& name) const;
  std::optional<MCPResourceHandler> findResource(const std::string& uri) const;

  MCPTransport& transport_;
  const std::string serverName_;
  const std::string serverVersion_;
  const MCPServerCapabilities capabilities_;

  mutable std::mutex lock_;  // guards both tables; never held while a handler runs
  std::vector<ToolEntry> tools_;
  std::vector<ResourceEntry> resources_;
};

}  // namespace brimble
