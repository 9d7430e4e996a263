#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble mcp-install [CLIENT...]`: registers the MCP server with AI assistant hosts (by
/// default every detected one) through the shim.
Command addMCPInstallCommand(CLI::App& app);

/// `brimble mcp-uninstall [CLIENT...]`: removes the entries again (by default every host that
/// has one).
Command addMCPUninstallCommand(CLI::App& app);

/// `brimble mcp-status`: per host, whether it is detected and registered.
Command addMCPStatusCommand(CLI::App& app);

}  // namespace brimble::cli
