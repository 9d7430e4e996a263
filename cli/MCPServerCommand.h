#pragma once

#include "cli/Command.h"

namespace brimble::cli {

/// `brimble mcp-server`: the MCP server on standard input and output, for AI assistant hosts.
Command addMCPServerCommand(CLI::App& app);

}  // namespace brimble::cli
