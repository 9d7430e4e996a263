#include "cli/MCPServerCommand.h"

#include <memory>

#include <CLI/CLI.hpp>

#include "BrimbleCore/Capture/ScreenRecorder.h"
#include "BrimbleCore/Diagnostics/Doctor.h"
#include "BrimbleCore/MCP/BrimbleMCPServer.h"
#include "BrimbleCore/MCP/MCPStandardStreams.h"
#include "BrimbleCore/MCP/MCPTransport.h"
#include "BrimbleCore/Platform/PlatformBackend.h"
#include "BrimbleCore/Support/Version.h"
#include "cli/UsageCounting.h"

namespace brimble::cli {
namespace {

int runMCPServer(bool headless) {
  ScreenRecorder::sweepOrphanedFrameFiles();
  MCPStandardStreams streams;
  MCPTransport transport(streams.input(), streams.output());
  // Declared before the server, so it outlives the recordings that capture its display.
  MCPDesktop desktop(
      [headless] {
        return platform::openDesktop(headless ? platform::DesktopChoice::embedded
                                              : platform::DesktopChoice::userFoundElseEmbedded);
      },
      platform::texts());
  // Where the server records in its own display, the user's desktop is not needed.
  desktop.setChecklist([&desktop, headless] {
    const auto session = desktop.session();
    return examineMachine(headless || (session && session->embedded)).checks;
  });
  BrimbleMCPServer server(transport, desktop, brimble::kVersion);
  server.server().setToolCallObserver(
      [statistics = UsageStatistics::forUser()](const std::string& tool, const JSONValue& result,
                                                bool failed) {
        statistics.record(toolCallUsage(tool, result, failed));
      });
  server.start([&streams] { streams.endInput(); });
  return kExitSuccess;
}

}  // namespace

Command addMCPServerCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "mcp-server", "Serve the Model Context Protocol on standard input and output (for AI tools)");
  auto headless = std::make_shared<bool>(false);
  command->add_flag(
      "--headless", *headless,
      "Record and drive Brimble's own embedded display instead of the desktop session");
  // Hosts may pass other arguments through the shim; none change the server.
  command->allow_extras();
  return {command, [headless] { return runMCPServer(*headless); }};
}

}  // namespace brimble::cli
