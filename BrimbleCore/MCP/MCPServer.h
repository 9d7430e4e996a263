#pragma once

#include <chrono>
#include <concepts>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
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

/// What a running tool call sees of its request: whether the client cancelled it (or went away),
/// and a way to say how far it got. Handlers read it through MCPServer::currentCall() on the
/// serving thread; `reportProgress` and `stop` may be used from any thread while the call runs.
class MCPCallContext {
 public:
  MCPCallContext() = default;
  explicit MCPCallContext(std::stop_token stop) : stop_(std::move(stop)) {}
  MCPCallContext(const MCPCallContext&) = delete;
  MCPCallContext& operator=(const MCPCallContext&) = delete;

  /// Requested once "notifications/cancelled" names this call, or the input ends.
  const std::stop_token& stop() const noexcept { return stop_; }
  /// `done` of `total` (no total: a count that only grows), with a short message. Sent as
  /// "notifications/progress" every few seconds when the request carried a progress token.
  void reportProgress(double done, std::optional<double> total, std::string message);

  struct Progress {
    double done = 0;
    std::optional<double> total;
    std::string message;
    bool reported = false;
  };
  Progress progress() const;

 private:
  std::stop_token stop_;
  mutable std::mutex progressMutex_;  // guards the field below
  Progress progress_;
};

/// A generic MCP server over an MCPTransport: "initialize", "ping", the tool and resource tables
/// and their list, call and read methods. Requests are served strictly one at a time in arrival
/// order, so handlers never overlap and replies keep the order of the requests. While a tool runs
/// a reader thread keeps reading, so that "notifications/cancelled" and the end of the input stop
/// it (a cancelled call gets no reply, as the protocol asks). Thread contract: `run` on one
/// thread, which runs every handler; registration and the definition snapshots are thread-safe
/// and may happen while `run` is serving.
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
  /// the output), then returns. `interruptInput`, when given, makes a read blocked on the input
  /// return (the streams' endInput), so that leaving for a closed output never waits for input.
  void run(std::function<void()> interruptInput = {});

  /// Told of each tool call once it has ended, before its reply is sent: the tool's name, its
  /// structured result (null when it failed) and whether it failed. Runs on the serving thread;
  /// set it before `run`.
  using ToolCallObserver =
      std::function<void(const std::string& tool, const JSONValue& result, bool failed)>;
  void setToolCallObserver(ToolCallObserver observer) { toolCallObserver_ = std::move(observer); }

  /// The tool call being served; outside one, a context that is never stopped. Serving thread.
  MCPCallContext& currentCall() noexcept { return call_ ? *call_ : idleCall_; }

  /// How long a call runs before its first progress notification, and between them.
  static constexpr std::chrono::milliseconds kFirstProgress{1000};
  static constexpr std::chrono::milliseconds kProgressInterval{2000};

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
  /// Sets `cancelled` when the client cancelled the call while it ran.
  JSONValue callTool(const JSONValue& params, const MCPRequest& request, bool& cancelled);
  JSONValue readResource(const JSONValue& params);
  std::optional<MCPToolHandler> findTool(const std::string& name) const;
  std::optional<MCPResourceHandler> findResource(const std::string& uri) const;
  void readLoop(std::stop_token stop);
  /// Handles "notifications/cancelled" at once, on the reader thread.
  void cancelIfRunning(const MCPRequest& notification);
  /// Whether a tools/call is under way; pings then get their answer from the reading thread.
  bool toolRunning() const;
  void sendProgress(const JSONValue& token, std::chrono::steady_clock::time_point started,
                    double& lastSent);

  MCPTransport& transport_;
  const std::string serverName_;
  const std::string serverVersion_;
  const MCPServerCapabilities capabilities_;

  MCPCallContext idleCall_;
  std::unique_ptr<MCPCallContext> call_;  // serving thread only
  ToolCallObserver toolCallObserver_;     // set before serving

  mutable std::mutex queueMutex_;  // guards the fields below
  std::condition_variable queueChanged_;
  std::deque<MCPTransport::Incoming> queue_;
  std::optional<RequestID> runningID_;
  std::stop_source runningStop_;
  bool inputEnded_ = false;

  mutable std::mutex registryMutex_;  // guards both tables; never held while a handler runs
  std::vector<ToolEntry> tools_;
  std::vector<ResourceEntry> resources_;
};

}  // namespace brimble
