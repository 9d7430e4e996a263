#include "cli/MCPServerCommand.h"

#include <CLI/CLI.hpp>

#include "BrimbleCore/Capture/ScreenRecorder.h"
#include "BrimbleCore/MCP/MCPServer.h"
#include "BrimbleCore/MCP/MCPStandardStreams.h"
#include "BrimbleCore/MCP/MCPTransport.h"

namespace brimble::cli {
namespace {

// The name and version hosts show for this server; the protocol surface is versioned on its
// own, apart from the command-line tool.
constexpr const char* kServerName = "brimble";
constexpr const char* kServerVersion = "1.0.0";

int runMCPServer() {
  ScreenRecorder::sweepOrphanedFrameFiles();
  MCPStandardStreams streams;
  MCPTransport transport(streams.input(), streams.output());
  MCPServer server(transport, kServerName, kServerVersion,
                   MCPServerCapabilities{.tools = true, .resources = true});
  server.run();
  return kExitSuccess;
}

}  // namespace

Command addMCPServerCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "mcp-server", "Serve the Model Context Protocol on standard input and output (for AI tools)");
  // Hosts may pass arguments through the shim; none change the server.
  command->allow_extras();
  return {command, [] { return runMCPServer(); }};
}

}  // namespace brimble::cli
