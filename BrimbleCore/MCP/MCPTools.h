#pragma once

#include <string>

#include "BrimbleCore/MCP/MCPDesktop.h"
#include "BrimbleCore/MCP/MCPServer.h"
#include "BrimbleCore/MCP/SessionContext.h"

namespace brimble::mcp {

/// What every tool family works with; all three outlive the server's run.
struct ToolEnvironment {
  MCPServer& server;
  SessionContext& context;
  MCPDesktop& desktop;
};

inline constexpr const char* kSimulatorUnavailable =
    "Simulator capture is not available in this MCP session.";

/// Whether the screen can be captured: a display answers and has a monitor. Brings the display
/// up when none was needed yet.
bool screenRecordingGranted(MCPDesktop& desktop);
/// Fails the call with the platform's Screen Recording text unless the screen can be captured.
void requireScreen(MCPDesktop& desktop);
/// Whether applications can be driven: synthetic input reaches the display and the
/// accessibility bus answers.
bool accessibilityGranted(MCPDesktop& desktop);

// Each registers its family's tools on `environment.server`, in the catalogue's order.
void registerWindowTools(const ToolEnvironment& environment);
void registerInfoTools(const ToolEnvironment& environment);
void registerInputTools(const ToolEnvironment& environment);
void registerRecordingTools(const ToolEnvironment& environment);
void registerRenderTools(const ToolEnvironment& environment);
void registerScriptTools(const ToolEnvironment& environment);
void registerDiscoveryTools(const ToolEnvironment& environment);

}  // namespace brimble::mcp
