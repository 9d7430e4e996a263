#include "BrimbleCore/MCP/MCPServer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <thread>
#include <variant>

#include <nlohmann/json.hpp>

#include "BrimbleCore/MCP/MCPError.h"
#include "BrimbleCore/MCP/MCPToolError.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {
namespace {

constexpr std::string_view kProtocolVersion = "2024-11-05";

// Each request's method and how long it took, in the log (and on standard error with
// --verbose); never its parameters, which may be typed text.
class RequestTimer {
 public:
  explicit RequestTimer(const std::string& method) : method_(method) {}
  RequestTimer(const RequestTimer&) = delete;
  RequestTimer& operator=(const RequestTimer&) = delete;
  ~RequestTimer() {
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started_;
    logVerbose("[Brimble MCP] " + method_ + " took " + std::to_string(took.count()) + " s");
  }

 private:
  const std::string& method_;
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

JSONValue textContent(std::string text, bool isError) {
  JSONValue::Object result{{"content", JSONValue::Array{JSONValue::Object{
                                           {"type", "text"}, {"text", std::move(text)}}}}};
  if (isError) {
    result.emplace("isError", true);
  }
  return result;
}

// The structured result travels as one pretty-printed JSON text block, never as structured
// content, so every host shows it the same way.
std::string resultText(const JSONValue& result) {
  try {
    return result.encode(JSONValue::Style::pretty);
  } catch (const JSONCodingError&) {
    logLine("BrimbleCore: MCP jsonEncode failed; returning empty object");
    return "{}";
  }
}

}  // namespace

MCPServer::MCPServer(MCPTransport& transport, std::string serverName, std::string serverVersion,
                     MCPServerCapabilities capabilities)
    : transport_(transport),
      serverName_(std::move(serverName)),
      serverVersion_(std::move(serverVersion)),
      capabilities_(capabilities) {}

void MCPServer::registerTool(MCPToolDefinition definition, MCPToolHandler handler) {
  std::scoped_lock guard(registryMutex_);
  const auto existing = std::find_if(tools_.begin(), tools_.end(), [&](const ToolEntry& entry) {
    return entry.definition.name == definition.name;
  });
  if (existing != tools_.end()) {
    *existing = {std::move(definition), std::move(handler)};
  } else {
    tools_.push_back({std::move(definition), std::move(handler)});
  }
}

void MCPServer::registerResource(MCPResourceDefinition definition, MCPResourceHandler handler) {
  std::scoped_lock guard(registryMutex_);
  const auto existing = std::find_if(
      resources_.begin(), resources_.end(),
      [&](const ResourceEntry& entry) { return entry.definition.uri == definition.uri; });
  if (existing != resources_.end()) {
    *existing = {std::move(definition), std::move(handler)};
  } else {
    resources_.push_back({std::move(definition), std::move(handler)});
  }
}

std::vector<MCPToolDefinition> MCPServer::toolDefinitions() const {
  std::scoped_lock guard(registryMutex_);
  std::vector<MCPToolDefinition> definitions;
  definitions.reserve(tools_.size());
  for (const ToolEntry& entry : tools_) {
    definitions.push_back(entry.definition);
  }
  return definitions;
}

std::vector<MCPResourceDefinition> MCPServer::resourceDefinitions() const {
  std::scoped_lock guard(registryMutex_);
  std::vector<MCPResourceDefinition> definitions;
  definitions.reserve(resources_.size());
  for (const ResourceEntry& entry : resources_) {
    definitions.push_back(entry.definition);
  }
  return definitions;
}

void MCPCallContext::reportProgress(double done, std::optional<double> total, std::string message) {
  std::scoped_lock guard(progressMutex_);
  progress_ = {done, total, std::move(message), true};
}

MCPCallContext::Progress MCPCallContext::progress() const {
  std::scoped_lock guard(progressMutex_);
  return progress_;
}

void MCPServer::run(std::function<void()> interruptInput) {
  transport_.log("Server starting (" + serverName_ + " v" + serverVersion_ + ")");
  // Reads on while a tool runs, so that a cancellation or the end of the input reaches it.
  std::jthread reader([this](std::stop_token stop) { readLoop(std::move(stop)); });
  while (true) {
    MCPTransport::Incoming incoming;
    {
      std::unique_lock guard(queueMutex_);
      queueChanged_.wait(guard, [this] { return !queue_.empty(); });
      incoming = std::move(queue_.front());
      queue_.pop_front();
    }
    if (std::holds_alternative<MCPTransport::EndOfInput>(incoming)) {
      transport_.log("EOF on stdin, shutting down");
      return;
    }
    if (const MCPError* error = std::get_if<MCPError>(&incoming)) {
      transport_.sendError(std::nullopt, *error);
    } else {
      handle(std::get<MCPRequest>(incoming));
    }
    // A host that closed its end reads no more answers; serving on would only run tools
    // (recordings among them) for nobody.
    if (transport_.isOutputClosed()) {
      transport_.log("Output closed, shutting down");
      reader.request_stop();
      if (interruptInput) {
        interruptInput();
      }
      return;
    }
  }
}

void MCPServer::readLoop(std::stop_token stop) {
  while (!stop.stop_requested()) {
    MCPTransport::Incoming incoming = transport_.readNextRequest();
    const bool ended = std::holds_alternative<MCPTransport::EndOfInput>(incoming);
    if (const MCPRequest* request = std::get_if<MCPRequest>(&incoming)) {
      if (request->method == "notifications/cancelled") {
        cancelIfRunning(*request);
      } else if (request->method == "ping" && !request->isNotification() && toolRunning()) {
        // Answered at once, not in turn: hosts ping to learn whether the server lives, and one
        // long tool call must not make it look dead.
        transport_.sendResult(request->id, JSONValue::Object{});
        continue;
      }
    }
    {
      std::scoped_lock guard(queueMutex_);
      if (ended) {
        // Nobody will read the answer: the running call stops like an interrupt.
        inputEnded_ = true;
        runningStop_.request_stop();
      }
      queue_.push_back(std::move(incoming));
    }
    queueChanged_.notify_one();
    if (ended) {
      return;
    }
  }
}

bool MCPServer::toolRunning() const {
  std::scoped_lock guard(queueMutex_);
  return runningID_.has_value();
}

void MCPServer::cancelIfRunning(const MCPRequest& notification) {
  const JSONValue noParams;
  const JSONValue& params = notification.params ? *notification.params : noParams;
  std::optional<RequestID> id;
  try {
    id = RequestID::fromJSON(params["requestId"].toJSON());
  } catch (const std::exception&) {
    return;
  }
  std::scoped_lock guard(queueMutex_);
  if (runningID_ && *runningID_ == *id) {
    transport_.log("Cancelling the running request");
    runningStop_.request_stop();
    return;
  }
  // A call still waiting its turn never starts, and like a running one gets no reply.
  const auto queued = std::find_if(queue_.begin(), queue_.end(), [&](const auto& incoming) {
    const MCPRequest* request = std::get_if<MCPRequest>(&incoming);
    return request != nullptr && request->id == id;
  });
  if (queued != queue_.end()) {
    transport_.log("Request cancelled: " + std::get<MCPRequest>(*queued).method);
    queue_.erase(queued);
  }
}

void MCPServer::sendProgress(const JSONValue& token, std::chrono::steady_clock::time_point started,
                             double& lastSent) {
  const MCPCallContext::Progress progress = call_->progress();
  const double elapsed =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  // Without a count of a known total the elapsed seconds serve as the count; progress must only
  // grow, so a count below what was sent waits until it passes it.
  const bool counted = progress.reported && progress.total.has_value();
  const double value = counted ? progress.done : std::floor(elapsed * 10) / 10;
  if (value <= lastSent) {
    return;
  }
  lastSent = value;
  JSONValue::Object params{{"progressToken", token}, {"progress", value}};
  if (counted) {
    params.emplace("total", *progress.total);
  }
  params.emplace("message",
                 progress.message.empty()
                     ? "Still running (" + std::to_string(static_cast<int>(elapsed)) + " s)"
                     : progress.message);
  transport_.sendNotification("notifications/progress", params);
}

void MCPServer::handle(const MCPRequest& request) {
  const std::string& method = request.method;
  const RequestTimer timer(method);
  if (method == "notifications/initialized") {
    transport_.log("Client initialized");
    return;
  }
  // JSON-RPC forbids answering a notification; hosts send "notifications/cancelled" and others
  // routinely and treat a reply as an error.
  if (request.isNotification()) {
    transport_.log("Ignoring notification: " + method);
    return;
  }
  const JSONValue noParams;
  const JSONValue& params = request.params ? *request.params : noParams;
  try {
    JSONValue result;
    if (method == "initialize") {
      result = initializeResult();
    } else if (method == "tools/list") {
      JSONValue::Array tools;
      for (const MCPToolDefinition& definition : toolDefinitions()) {
        tools.push_back(definition.toJSONValue());
      }
      result = JSONValue::Object{{"tools", std::move(tools)}};
    } else if (method == "tools/call") {
      bool cancelled = false;
      result = callTool(params, request, cancelled);
      if (cancelled) {
        // The protocol asks for no reply to a cancelled request; the client has forgotten it.
        transport_.log("Request cancelled: " + method);
        return;
      }
    } else if (method == "resources/list") {
      JSONValue::Array resources;
      for (const MCPResourceDefinition& definition : resourceDefinitions()) {
        resources.push_back(definition.toJSONValue());
      }
      result = JSONValue::Object{{"resources", std::move(resources)}};
    } else if (method == "resources/read") {
      result = readResource(params);
    } else if (method == "ping") {
      result = JSONValue::Object{};
    } else {
      throw MCPError::methodNotFound("Unknown method: " + method);
    }
    transport_.sendResult(request.id, std::move(result));
  } catch (const MCPError& error) {
    transport_.sendError(request.id, error);
  } catch (const std::exception& error) {
    // Only the server's own failures (memory) get here: handlers' errors are caught below.
    transport_.sendError(request.id,
                         MCPError::internalError(std::string("Internal error: ") + error.what()));
  }
}

JSONValue MCPServer::initializeResult() const {
  // The client's protocol version is not examined: this server speaks one version.
  return JSONValue::Object{
      {"protocolVersion", kProtocolVersion},
      {"capabilities", capabilities_.toJSONValue()},
      {"serverInfo", JSONValue::Object{{"name", serverName_}, {"version", serverVersion_}}},
  };
}

JSONValue MCPServer::callTool(const JSONValue& params, const MCPRequest& request, bool& cancelled) {
  const std::string* name = params["name"].stringValue();
  if (name == nullptr) {
    throw MCPError::invalidParams("tools/call requires 'name' parameter");
  }
  const JSONValue& given = params["arguments"];
  const JSONValue arguments = given.isNull() ? JSONValue(JSONValue::Object{}) : given;
  const std::optional<MCPToolHandler> handler = findTool(*name);
  if (!handler) {
    throw MCPError::methodNotFound("Unknown tool: " + *name);
  }
  std::stop_source stop;
  {
    std::scoped_lock guard(queueMutex_);
    runningID_ = request.id;
    runningStop_ = stop;
    if (inputEnded_) {
      stop.request_stop();
    }
  }
  call_ = std::make_unique<MCPCallContext>(stop.get_token());
  const JSONValue& token = params["_meta"]["progressToken"];
  const bool wantsProgress = token.stringValue() != nullptr || token.numberValue().has_value();
  const auto started = std::chrono::steady_clock::now();
  std::mutex tickMutex;
  std::condition_variable_any tick;
  std::jthread ticker;
  if (wantsProgress) {
    ticker = std::jthread([&](const std::stop_token& tickerStop) {
      std::unique_lock guard(tickMutex);
      auto next = started + kFirstProgress;
      double lastSent = -1;
      while (true) {
        tick.wait_until(guard, tickerStop, next, [] { return false; });
        if (tickerStop.stop_requested()) {
          return;
        }
        sendProgress(token, started, lastSent);
        next += kProgressInterval;
      }
    });
  }
  JSONValue content;
  JSONValue structured;
  bool failed = true;
  // Tool failures are results the assistant reads, not protocol errors.
  try {
    MCPToolResult result = (*handler)(arguments);
    content = textContent(resultText(result.value), false);
    if (toolCallObserver_) {
      structured = result.value;
    }
    failed = false;
    // The JSON text stays first and unchanged, so hosts that show only the first item lose
    // nothing.
    JSONValue::Array& items = *(*content.objectValue())["content"].arrayValue();
    for (JSONValue& item : result.extraContent) {
      items.push_back(std::move(item));
    }
  } catch (const MCPToolError& error) {
    content = textContent(error.what(), true);
  } catch (const std::exception& error) {
    content = textContent(std::string("Internal error: ") + error.what(), true);
  } catch (...) {
    content = textContent("Internal error: unknown error", true);
  }
  // No progress may follow the reply.
  ticker = std::jthread();
  {
    std::scoped_lock guard(queueMutex_);
    cancelled = stop.stop_requested() && !inputEnded_;
    runningID_.reset();
  }
  call_.reset();
  if (toolCallObserver_) {
    // A call the client cancelled was stopped, not failed.
    toolCallObserver_(*name, structured, failed && !cancelled);
  }
  return content;
}

JSONValue MCPServer::readResource(const JSONValue& params) {
  const std::string* uri = params["uri"].stringValue();
  if (uri == nullptr) {
    throw MCPError::invalidParams("resources/read requires 'uri' parameter");
  }
  const std::optional<MCPResourceHandler> handler = findResource(*uri);
  if (!handler) {
    throw MCPError::invalidParams("Unknown resource: " + *uri);
  }
  std::string text;
  try {
    text = (*handler)(*uri);
  } catch (const std::exception& error) {
    throw MCPError::internalError(std::string("Resource read error: ") + error.what());
  } catch (...) {
    throw MCPError::internalError("Resource read error: unknown error");
  }
  // The read always says "text/plain", whatever the listing declares.
  return JSONValue::Object{{"contents", JSONValue::Array{JSONValue::Object{
                                            {"uri", *uri},
                                            {"mimeType", "text/plain"},
                                            {"text", std::move(text)},
                                        }}}};
}

std::optional<MCPToolHandler> MCPServer::findTool(const std::string& name) const {
  std::scoped_lock guard(registryMutex_);
  for (const ToolEntry& entry : tools_) {
    if (entry.definition.name == name) {
      return entry.handler;
    }
  }
  return std::nullopt;
}

std::optional<MCPResourceHandler> MCPServer::findResource(const std::string& uri) const {
  std::scoped_lock guard(registryMutex_);
  for (const ResourceEntry& entry : resources_) {
    if (entry.definition.uri == uri) {
      return entry.handler;
    }
  }
  for (const ResourceEntry& entry : resources_) {
    const std::string& pattern = entry.definition.uri;
    const auto brace = pattern.find('{');
    if (brace != std::string::npos && uri.starts_with(std::string_view(pattern).substr(0, brace))) {
      return entry.handler;
    }
  }
  return std::nullopt;
}

}  // namespace brimble
