#include "BrimbleCore/MCP/BrimbleMCPServer.h"

#include "BrimbleCore/MCP/MCPResources.h"
#include "BrimbleCore/MCP/MCPTools.h"

namespace brimble {

BrimbleMCPServer::BrimbleMCPServer(MCPTransport& transport, MCPDesktop& desktop,
                                   std::string cliVersion)
    : desktop_(desktop),
      // One version everywhere: the host's serverInfo and brimble_status's cli_version.
      server_(transport, kServerName, cliVersion, {.tools = true, .resources = true}),
      context_(std::move(cliVersion)) {
  registerTools();
  registerResources();
}

void BrimbleMCPServer::registerTools() {
  const mcp::ToolEnvironment environment{server_, context_, desktop_};
  mcp::registerWindowTools(environment);
  mcp::registerInfoTools(environment);
  mcp::registerInputTools(environment);
  mcp::registerRecordingTools(environment);
  mcp::registerRenderTools(environment);
  mcp::registerScriptTools(environment);
  mcp::registerDiscoveryTools(environment);
}

void BrimbleMCPServer::registerResources() {
  MCPResources::registerAll(server_, context_, desktop_);
}

std::vector<std::string> BrimbleMCPServer::registeredToolNames() const {
  std::vector<std::string> names;
  for (const MCPToolDefinition& definition : server_.toolDefinitions()) {
    names.push_back(definition.name);
  }
  return names;
}

std::vector<std::string> BrimbleMCPServer::registeredResourceURIs() const {
  std::vector<std::string> uris;
  for (const MCPResourceDefinition& definition : server_.resourceDefinitions()) {
    uris.push_back(definition.uri);
  }
  return uris;
}

}  // namespace brimble
