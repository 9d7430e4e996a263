#include "BrimbleCore/MCP/MCPClient.h"

namespace brimble {
namespace {

struct ClientRow {
  std::string_view rawName;
  std::string_view displayName;
  std::string_view configFile;       // relative to the home directory
  std::string_view parentDirectory;  // relative to the home directory
};

// Indexed by MCPClient::Kind. The Linux locations of each host's user-level configuration.
constexpr ClientRow kRows[] = {
    {"claude-code", "Claude Code", ".claude.json", ".claude"},
    {"claude-desktop", "Claude Desktop", ".config/Claude/claude_desktop_config.json",
     ".config/Claude"},
    {"cursor", "Cursor", ".cursor/mcp.json", ".cursor"},
    {"vscode", "VS Code", ".config/Code/User/mcp.json", ".config/Code/User"},
    {"windsurf", "Windsurf", ".codeium/windsurf/mcp_config.json", ".codeium/windsurf"},
};

const ClientRow& row(MCPClient::Kind kind) noexcept {
  return kRows[static_cast<int>(kind)];
}

}  // namespace

std::array<MCPClient, 5> MCPClient::all() noexcept {
  return {MCPClient(Kind::claudeCode), MCPClient(Kind::claudeDesktop), MCPClient(Kind::cursor),
          MCPClient(Kind::vscode), MCPClient(Kind::windsurf)};
}

std::optional<MCPClient> MCPClient::fromName(std::string_view rawName) noexcept {
  for (const MCPClient client : all()) {
    if (client.rawName() == rawName) {
      return client;
    }
  }
  return std::nullopt;
}

std::string_view MCPClient::rawName() const noexcept {
  return row(kind_).rawName;
}

std::string_view MCPClient::displayName() const noexcept {
  return row(kind_).displayName;
}

std::filesystem::path MCPClient::configFile(const std::filesystem::path& home) const {
  return home / row(kind_).configFile;
}

std::filesystem::path MCPClient::parentDirectory(const std::filesystem::path& home) const {
  return home / row(kind_).parentDirectory;
}

std::string_view MCPClient::serversKey() const noexcept {
  return kind_ == Kind::vscode ? "servers" : "mcpServers";
}

}  // namespace brimble
