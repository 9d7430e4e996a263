#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace brimble {

/// The shell script MCP hosts run as the "brimble" server, ~/.local/share/brimble/mcp-shim.sh.
/// It starts `brimble mcp-server` from the first executable of /usr/local/bin/brimble,
/// ~/.local/bin/brimble, /home/linuxbrew/.linuxbrew/bin/brimble and `command -v brimble`;
/// without one it serves a small Python responder that tells the assistant how to install
/// Brimble (build it from source and put it on PATH), so a host never shows a bare "server
/// failed to start". A plain value; installs of one home directory
/// must not run concurrently.
class MCPShim {
 public:
  /// `toolVersion` goes into the script's first comment line.
  MCPShim(std::filesystem::path homeDirectory, std::string toolVersion);

  /// `homeDirectory`/.local/share/brimble/mcp-shim.sh.
  std::filesystem::path path() const;

  /// The script text. `installedBy` (the brimble it is expected to start) is named in a comment.
  std::string script(const std::optional<std::filesystem::path>& installedBy) const;

  /// Writes the script atomically, executable, creating its folder. Throws std::system_error.
  void install(const std::optional<std::filesystem::path>& installedBy = std::nullopt) const;
  /// Deletes the script if present. Throws std::system_error.
  void uninstall() const;

 private:
  std::filesystem::path homeDirectory_;
  std::string toolVersion_;
};

}  // namespace brimble
