#include "BrimbleCore/MCP/MCPInstallResult.h"

namespace brimble {

std::string MCPInstallResult::logLine() const {
  const std::string name(client.displayName());
  switch (kind) {
    case Kind::registered:
      return "Registered " + name;
    case Kind::upgraded:
      return "Upgraded " + name + " entry to shim";
    case Kind::unregistered:
      return "Unregistered " + name;
    case Kind::notRegistered:
      return "Brimble was not registered with " + name;
    case Kind::error:
      break;
  }
  return "Error: " + message;
}

}  // namespace brimble
