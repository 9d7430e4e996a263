#pragma once

#include <string>
#include <vector>

#include "BrimbleCore/MCP/MCPDesktop.h"
#include "BrimbleCore/MCP/MCPServer.h"
#include "BrimbleCore/MCP/MCPTransport.h"
#include "BrimbleCore/MCP/SessionContext.h"

namespace brimble {

/// Brimble's MCP server: the 25 tools and 9 resources on an MCPServer named "brimble", with the
/// SessionContext that keeps recordings between calls. The transport and the desktop are
/// borrowed and must outlive it. `start` on one thread, the one that owns the desktop.
class BrimbleMCPServer {
 public:
  static constexpr const char* kServerName = "brimble";

  /// `cliVersion` is the build's version, reported as the server's and by brimble_status.
  BrimbleMCPServer(MCPTransport& transport, MCPDesktop& desktop, std::string cliVersion);
  BrimbleMCPServer(const BrimbleMCPServer&) = delete;
  BrimbleMCPServer& operator=(const BrimbleMCPServer&) = delete;

  /// Serves until the input ends. `interruptInput` as for MCPServer::run.
  void start(std::function<void()> interruptInput = {}) { server_.run(std::move(interruptInput)); }

  std::vector<std::string> registeredToolNames() const;
  std::vector<std::string> registeredResourceURIs() const;
  MCPServer& server() noexcept { return server_; }
  SessionContext& context() noexcept { return context_; }

 private:
  void registerTools();
  void registerResources();

  MCPDesktop& desktop_;
  MCPServer server_;
  // Last: its recordings stop before anything they use goes away.
  SessionContext context_;
};

}  // namespace brimble
