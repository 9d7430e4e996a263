#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "BrimbleCore/MCP/MCPClient.h"
#include "BrimbleCore/MCP/MCPInstallResult.h"
#include "BrimbleCore/MCP/MCPShim.h"

namespace brimble {

/// A failure that stops a whole install, as opposed to one host's error result. A plain value.
class MCPInstallError : public std::runtime_error {
 public:
  enum class Code { shimFailed };

  /// "Failed to install MCP shim: " + description.
  static MCPInstallError shimFailed(std::string_view description);

  Code code() const noexcept { return code_; }

 private:
  MCPInstallError(Code code, const std::string& description)
      : std::runtime_error(description), code_(code) {}
  Code code_;
};

/// A host with whether it is installed (its folder exists) and whether its configuration has a
/// "brimble" entry. A plain value.
struct MCPClientStatus {
  MCPClient client;
  bool detected = false;
  bool registered = false;

  friend bool operator==(const MCPClientStatus&, const MCPClientStatus&) = default;
};

/// Registers the MCP server with the hosts of one home directory by editing their JSON
/// configuration: the entry "brimble" under the host's servers key runs the shim. Only the entry's
/// bytes change (comments and trailing commas, which some hosts allow, stay); files are replaced
/// atomically and keep their mode; a file that is not a valid JSON object is never rewritten (that
/// host gets an error result, the file stays byte for byte). Every other key and server is kept.
/// Per-host failures never stop the other hosts.
///
/// Holds only paths: any thread, but runs against one home directory must not overlap.
class MCPInstaller {
 public:
  /// `toolVersion` is written into the shim.
  MCPInstaller(std::filesystem::path homeDirectory, std::string toolVersion);

  /// The current user's home directory: $HOME, else the password database. Throws
  /// std::runtime_error when neither knows it.
  static std::filesystem::path userHomeDirectory();

  const MCPShim& shim() const noexcept { return shim_; }

  /// Every supported host, detected or not, in MCPClient::all() order.
  std::vector<MCPClientStatus> detectClients() const;

  /// Writes the shim once, then points each host's entry at it, creating the configuration file
  /// (and its folder) when missing. `binaryPath`, the brimble the shim is expected to start, is
  /// named in the shim's header. Throws MCPInstallError when the shim cannot be written; then no
  /// host is touched.
  std::vector<MCPInstallResult> install(const std::vector<MCPClient>& clients,
                                        const std::optional<std::filesystem::path>& binaryPath);

  /// Removes each host's "brimble" entry (a host without one reports notRegistered and its file
  /// is not touched). A file left holding nothing but the empty servers object is one the
  /// installer created: it is deleted, with the folders made for it that are now empty, so the
  /// host no longer counts as detected. Any other file keeps everything but the entry. The shim is
  /// deleted once no host's file names it any more (a file
  /// that could not be edited may still run it).
  std::vector<MCPInstallResult> uninstall(const std::vector<MCPClient>& clients);

  /// The `command` of the host's "brimble" entry; no value without an entry, for an entry
  /// without a string command, or when the file cannot be read as a JSON object.
  std::optional<std::string> registeredCommand(MCPClient client) const;
  /// Whether the host's configuration has a "brimble" entry.
  bool isRegistered(MCPClient client) const;

  /// The brimble the shim would start: the first executable of /usr/local/bin/brimble,
  /// ~/.local/bin/brimble and /home/linuxbrew/.linuxbrew/bin/brimble (Homebrew on Linux), else
  /// the first on $PATH.
  std::optional<std::filesystem::path> resolveBinaryPath() const;
  /// The same with an explicit search path (the value of PATH).
  std::optional<std::filesystem::path> resolveBinaryPath(std::string_view searchPath) const;

 private:
  MCPInstallResult registerClient(MCPClient client) const;
  MCPInstallResult unregisterClient(MCPClient client) const;

  std::filesystem::path homeDirectory_;
  MCPShim shim_;
};

}  // namespace brimble
