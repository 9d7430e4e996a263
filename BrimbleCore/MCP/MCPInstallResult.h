#pragma once

#include <string>

#include "BrimbleCore/MCP/MCPClient.h"

namespace brimble {

/// What installing into, or removing from, one host's configuration did. A plain value.
struct MCPInstallResult {
  enum class Kind {
    registered,     // the entry now points at the shim
    upgraded,       // an entry pointed elsewhere and now points at the shim
    unregistered,   // the entry is gone
    notRegistered,  // there was no entry to remove
    error,          // nothing changed; `message` says why
  };

  MCPClient client;
  Kind kind;
  std::string message;  // for `error` only

  static MCPInstallResult registered(MCPClient client) { return {client, Kind::registered, {}}; }
  static MCPInstallResult upgraded(MCPClient client) { return {client, Kind::upgraded, {}}; }
  static MCPInstallResult unregistered(MCPClient client) {
    return {client, Kind::unregistered, {}};
  }
  static MCPInstallResult notRegistered(MCPClient client) {
    return {client, Kind::notRegistered, {}};
  }
  static MCPInstallResult error(MCPClient client, std::string message) {
    return {client, Kind::error, std::move(message)};
  }

  /// "Registered Cursor", "Upgraded Cursor entry to shim", "Unregistered Cursor", "Brimble was
  /// not registered with Cursor" or "Error: " + message.
  std::string logLine() const;

  friend bool operator==(const MCPInstallResult&, const MCPInstallResult&) = default;
};

}  // namespace brimble
