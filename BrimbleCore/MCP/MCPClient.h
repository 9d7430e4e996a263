#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <string_view>

namespace brimble {

/// One supported MCP host (AI assistant) and where it keeps its server list. A plain value.
class MCPClient {
 public:
  enum class Kind { claudeCode, claudeDesktop, cursor, vscode, windsurf };

  constexpr MCPClient(Kind kind) noexcept : kind_(kind) {}

  /// Every supported host, in the order they are reported.
  static std::array<MCPClient, 5> all() noexcept;

  /// "claude-code" and so on; no value for any other name.
  static std::optional<MCPClient> fromName(std::string_view rawName) noexcept;

  Kind kind() const noexcept { return kind_; }
  /// "claude-code", "claude-desktop", "cursor", "vscode", "windsurf".
  std::string_view rawName() const noexcept;
  /// "Claude Code", "Claude Desktop", "Cursor", "VS Code", "Windsurf".
  std::string_view displayName() const noexcept;

  /// The host's JSON configuration file under `home`.
  std::filesystem::path configFile(const std::filesystem::path& home) const;
  /// The folder whose presence means the host is installed.
  std::filesystem::path parentDirectory(const std::filesystem::path& home) const;
  /// The top-level key holding the server entries: "servers" for VS Code, else "mcpServers".
  std::string_view serversKey() const noexcept;
  /// Whether entries state `"type": "stdio"` (VS Code's format).
  bool entryNeedsType() const noexcept { return kind_ == Kind::vscode; }

  friend bool operator==(MCPClient, MCPClient) = default;

 private:
  Kind kind_;
};

}  // namespace brimble
